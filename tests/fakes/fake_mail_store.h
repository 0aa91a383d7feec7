// A mail store in memory. All of it is public to tests; every port call asks the FaultPlan first
// ("mail.List", "hidden.Write", ...).
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fault_plan.h"
#include "platform/errors.h"
#include "platform/mail_store.h"

namespace trevix::fakes {

class FakeHiddenMailStore final : public HiddenMailStore {
 public:
    explicit FakeHiddenMailStore(FaultPlan& plan) : plan_(plan) {}

    Result<std::vector<HiddenMail>> List() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("hidden.List"));
        std::vector<HiddenMail> list;
        for (const auto& [id, mail] : mails) {
            HiddenMail bare = mail;
            bare.properties.clear();
            bare.attachments.clear();
            list.push_back(std::move(bare));
        }
        return list;
    }

    Result<HiddenMail> Read(const std::string& id) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("hidden.Read"));
        const auto found = mails.find(id);
        if (found == mails.end()) return MessagingError(kNotFound);
        return found->second;
    }

    Status Write(HiddenMail& mail) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("hidden.Write"));
        if (mail.revision == 0) {
            const std::string number = std::to_string(++last_id_);
            mail.id = std::string(16 - number.size(), '0') + number;
        } else {
            const auto found = mails.find(mail.id);
            if (found == mails.end()) return MessagingError(kObjectDeleted);
            if (found->second.revision != mail.revision) return MessagingError(kObjectChanged);
        }
        ++mail.revision;
        mail.modified_ns = ++now_ns;
        mails[mail.id] = mail;
        return {};
    }

    Status Remove(const std::string& id) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("hidden.Remove"));
        if (mails.erase(id) == 0) return MessagingError(kNotFound);
        return {};
    }

    std::map<std::string, HiddenMail> mails;  // by ID
    std::int64_t now_ns = 1700000000000000000;

 private:
    FaultPlan& plan_;
    int last_id_ = 0;
};

class FakeMailStore final : public MailStore {
 public:
    struct Message {
        std::string key;
        std::string content;
        std::string flags;
        std::int64_t changed_ns = 0;
        std::int64_t received_ns = 0;
        int version = 1;  // rises with every change of flags
    };
    struct FolderState {
        MailFolder folder;
        std::vector<Message> messages;
        int generation = 1;  // rises with every change
    };

    explicit FakeMailStore(FaultPlan& plan) : hidden(plan), plan_(plan) {
        root.folder = {"", "", true};
    }

    std::string address() const override { return store_address; }
    std::string display_name() const override { return store_name; }
    std::string inbox_path() const override { return inbox; }
    HiddenMailStore& Hidden() override { return hidden; }

    Result<std::vector<MailFolder>> Folders() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("mail.Folders"));
        std::vector<MailFolder> list;
        for (const FolderState& state : folders) {
            list.push_back(state.folder);
        }
        // Parents before children.
        std::stable_sort(list.begin(), list.end(),
                         [](const MailFolder& a, const MailFolder& b) { return a.path < b.path; });
        return list;
    }

    Result<MailChange> List(const std::string& folder, const MailListing* known) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("mail.List"));
        const FolderState* state = Find(folder);
        if (state == nullptr) return MessagingError(kNotFound, folder);
        MailChange change;
        const std::string stamp = std::to_string(state->generation);
        if (known != nullptr && known->stamp == stamp) {
            change.changed = false;
            return change;
        }
        change.listing.stamp = stamp;
        for (const Message& message : state->messages) {
            change.listing.entries.push_back(EntryOf(message));
        }
        return change;
    }

    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("mail.Read"));
        const Message* message = Find(folder, entry.key);
        if (message == nullptr) return MessagingError(kObjectDeleted);
        return Blob::FromString(message->content);
    }

    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("mail.Stage"));
        const auto found = FindAsListed(folder, entry);
        if (!found.ok()) return found.error();
        auto bytes = content.ToString();
        if (!bytes.ok()) return bytes.error();
        return std::unique_ptr<StagedMail>(
            std::make_unique<Staged>(*this, folder, entry, std::move(bytes).value()));
    }

    // What mail programs do.

    FolderState& AddFolder(const std::string& path, const std::string& name) {
        folders.push_back({{path, name, true}, {}, 1});
        return folders.back();
    }

    std::string AddMessage(const std::string& folder, std::string content,
                           std::int64_t received_ns) {
        FolderState& state = *Find(folder);
        Message message;
        message.key = "m" + std::to_string(++last_key_);
        message.content = std::move(content);
        message.received_ns = received_ns;
        message.changed_ns = now_ns;
        state.messages.push_back(std::move(message));
        ++state.generation;
        return state.messages.back().key;
    }

    void SetFlags(const std::string& folder, const std::string& key, const std::string& flags) {
        Message* message = Find(folder, key);
        if (message == nullptr) return;
        message->flags = flags;
        message->changed_ns = now_ns;
        ++message->version;
        ++Find(folder)->generation;
    }

    void RemoveMessage(const std::string& folder, const std::string& key) {
        FolderState* state = Find(folder);
        if (state == nullptr) return;
        std::erase_if(state->messages, [&key](const Message& one) { return one.key == key; });
        ++state->generation;
    }

    FolderState* Find(const std::string& folder) {
        if (folder.empty()) return &root;
        for (FolderState& state : folders) {
            if (state.folder.path == folder) return &state;
        }
        return nullptr;
    }

    Message* Find(const std::string& folder, const std::string& key) {
        FolderState* state = Find(folder);
        if (state == nullptr) return nullptr;
        for (Message& message : state->messages) {
            if (message.key == key) return &message;
        }
        return nullptr;
    }

    static MailEntry EntryOf(const Message& message) {
        MailEntry entry;
        entry.key = message.key;
        entry.locator = message.key + "#" + std::to_string(message.version);
        entry.size_bytes = message.content.size();
        entry.changed_ns = message.changed_ns;
        entry.received_ns = message.received_ns;
        return entry;
    }

    std::string store_address = "maildir:/fake";
    std::string store_name = "Fake";
    std::string inbox;
    FolderState root;
    std::deque<FolderState> folders;  // references to its elements stay good
    FakeHiddenMailStore hidden;
    std::int64_t now_ns = 1700000000000000000;  // the time of changes; moved by tests
    int commits = 0;                            // replacements that took place

 private:
    class Staged final : public StagedMail {
     public:
        Staged(FakeMailStore& store, std::string folder, MailEntry entry, std::string bytes)
            : store_(store),
              folder_(std::move(folder)),
              entry_(std::move(entry)),
              bytes_(std::move(bytes)) {}

        Blob content() const override { return Blob::FromString(bytes_); }

        Result<MailEntry> Commit() override {
            TREVIX_RETURN_IF_ERROR(store_.plan_.Enter("mail.Commit"));
            if (done_) return MessagingError(kCallFailed);
            const auto found = store_.FindAsListed(folder_, entry_);
            if (!found.ok()) return found.error();
            Message& message = *found.value();
            message.key = "m" + std::to_string(++store_.last_key_);
            message.content = bytes_;
            message.changed_ns = store_.now_ns;
            ++store_.Find(folder_)->generation;
            ++store_.commits;
            done_ = true;
            MailEntry entry = EntryOf(message);
            entry.number = entry_.number;
            return entry;
        }

     private:
        FakeMailStore& store_;
        std::string folder_;
        MailEntry entry_;
        std::string bytes_;
        bool done_ = false;
    };

    Result<Message*> FindAsListed(const std::string& folder, const MailEntry& entry) {
        Message* message = Find(folder, entry.key);
        if (message == nullptr) return MessagingError(kObjectDeleted);
        if (EntryOf(*message).locator != entry.locator) return MessagingError(kObjectChanged);
        return message;
    }

    FaultPlan& plan_;
    int last_key_ = 0;
};

}  // namespace trevix::fakes
