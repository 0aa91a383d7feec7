// FakeMessaging: message stores in memory, for tests of the core.
//
// Tests fill and read the *Data structs directly. Every call of an object asks the fault plan
// first. Opened messages are copies; Update() puts them back and fails when the stored message was
// changed or removed since.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_clock.h"
#include "fakes/fake_file_system.h"
#include "fakes/fault_plan.h"
#include "platform/messaging.h"

namespace trevix::fakes {

struct AttachmentData {
    std::string name;
    std::string data;
    int type = kAttachmentFileData;
    std::string content_id;
    std::int32_t size_bytes = -1;  // -1: the data's own
    std::string extension;
    std::string long_name;
    std::string short_name;
    std::string rendering;
    std::string display_name;
    std::int32_t method = 0;  // 0: what follows from the type
    Date modified;            // the zero date: none
    bool refuses_reading = false;
    bool refuses_writing = false;
    bool refuses_deleting = false;

    std::int32_t Size() const {
        return size_bytes >= 0 ? size_bytes : static_cast<std::int32_t>(data.size());
    }
    std::int32_t Method() const {
        if (method != 0) return method;
        switch (type) {
            case kAttachmentFileLink: return 4;
            case kAttachmentOle: return 6;
            case kAttachmentEmbeddedMessage: return 5;
            default: return 1;
        }
    }
};

struct MessageData {
    std::string id;  // hexadecimal entry ID
    std::string message_class = "IPM.Note";
    std::string subject;
    Date modified;
    Date received;  // the zero date: unknown
    std::int32_t number = 0;
    std::string display_to;
    std::string display_cc;
    std::vector<AttachmentData> attachments;
    struct Named {
        std::string name;
        Variant value;
    };
    std::vector<Named> named;
    std::string formatted_body;
    std::string sender_type;
    std::string sender_address;
    std::string sender_name;
    std::vector<std::pair<int, std::string>> recipients;  // type, address
    bool long_term_id = true;
    int revision = 0;
    int updates = 0;

    const Variant* Find(const std::string& name) const {
        for (const Named& property : named) {
            if (property.name == name) return &property.value;
        }
        return nullptr;
    }
};

struct FolderData {
    std::string id;
    std::string name;
    std::string container_class = "IPF.Note";
    std::vector<MessageData> messages;
    std::vector<std::unique_ptr<FolderData>> folders;
    FolderData* parent = nullptr;

    FolderData& Add(const std::string& folder_id, const std::string& folder_name) {
        folders.push_back(std::make_unique<FolderData>());
        folders.back()->id = folder_id;
        folders.back()->name = folder_name;
        folders.back()->parent = this;
        return *folders.back();
    }
};

struct StoreData {
    std::string id;
    std::string name;
    FolderData root;
    bool root_fails = false;
};

// All that the fake objects share.
struct MessagingState {
    MessagingState(FaultPlan& fault_plan, FakeFileSystem& file_system, FakeClock& fake_clock)
        : plan(fault_plan), files(file_system), clock(fake_clock) {}

    FaultPlan& plan;
    FakeFileSystem& files;
    FakeClock& clock;
    std::vector<std::unique_ptr<StoreData>> stores;  // the first is the default store
    FolderData outbox;
    std::vector<MessageData> hidden;  // of the default store's Inbox
    std::string inbox_id;
    std::string user_name = "Anna";
    bool logged_on = false;
    std::vector<LogonRequest> logons;
    std::string accepted_profile = "home";
    bool utilities_shut_down = false;
    std::vector<std::string> opened;               // IDs of messages, in order
    std::vector<std::string> deleted_attachments;  // their names, in order
    int next_id = 0x5000;

    FolderData* FindFolder(const std::string& id, FolderData* below);
    FolderData* FindFolder(const std::string& store_id, const std::string& id);
    StoreData* FindStore(const std::string& id);
    MessageData* FindMessage(const std::string& id);
    bool RemoveMessage(const std::string& id);
    std::vector<MessageData>* CollectionOf(const std::string& id);
};

class FakeMessaging final : public MessagingFactory {
 public:
    FakeMessaging(FaultPlan& plan, FakeFileSystem& files, FakeClock& clock)
        : state(plan, files, clock) {}

    Result<std::unique_ptr<MessagingSession>> CreateSession() override;
    Result<std::unique_ptr<Utilities>> CreateUtilities() override;

    MessagingState state;
};

}  // namespace trevix::fakes
