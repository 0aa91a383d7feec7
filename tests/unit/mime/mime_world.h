// A messaging session over mail in memory, and builders of messages.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_clock.h"
#include "fakes/fake_mail_store.h"
#include "platform/mime/messaging_factory.h"
#include "platform/summary_cache/memory_summary_cache.h"

namespace trevix::mime {

// Hands out a store that the test goes on holding.
class BorrowedStore final : public MailStore {
 public:
    explicit BorrowedStore(MailStore& store) : store_(store) {}
    std::string address() const override { return store_.address(); }
    std::string display_name() const override { return store_.display_name(); }
    std::string inbox_path() const override { return store_.inbox_path(); }
    Result<std::vector<MailFolder>> Folders() override { return store_.Folders(); }
    Result<MailChange> List(const std::string& folder, const MailListing* known) override {
        return store_.List(folder, known);
    }
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override {
        return store_.Read(folder, entry);
    }
    void Expect(const std::string& folder, const std::vector<MailEntry>& entries,
                MailUse use) override {
        store_.Expect(folder, entries, use);
    }
    Result<MailOutline> Outline(const std::string& folder, const MailEntry& entry) override {
        return store_.Outline(folder, entry);
    }
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override {
        return store_.Stage(folder, entry, content);
    }
    HiddenMailStore& Hidden() override { return store_.Hidden(); }

 private:
    MailStore& store_;
};

class OneStoreProvider final : public MailStoreProvider {
 public:
    explicit OneStoreProvider(MailStore& store) : store_(store) {}
    Result<OpenedProfile> Open(const std::string& profile_name, const std::string&) override {
        if (profile_name == "nobody") return MessagingError(kLogonFailed);
        OpenedProfile profile;
        profile.user_name = "me";
        profile.stores.push_back(std::make_unique<BorrowedStore>(store_));
        return profile;
    }

 private:
    MailStore& store_;
};

struct World {
    fakes::FaultPlan plan;
    fakes::FakeMailStore mail{plan};
    OneStoreProvider provider{mail};
    summary_cache::MemorySummaryCache cache;
    fakes::FakeClock clock;
    std::unique_ptr<MessagingFactory> factory = MessagingFactoryOver(provider, cache, clock);
    std::unique_ptr<MessagingSession> session = factory->CreateSession().value();
    std::unique_ptr<Utilities> utilities = factory->CreateUtilities().value();

    World() { EXPECT_TRUE(session->Logon({"fake", ""}).ok()); }

    // Puts a message into the Inbox; its key.
    std::string Deliver(const std::string& bytes) { return mail.AddMessage("", bytes, 1); }

    std::vector<std::vector<Variant>> Rows(Messages& messages,
                                           const std::vector<PropertyTag>& tags) {
        auto table = utilities->CreateTable().value();
        EXPECT_TRUE(table->SetSource(messages).ok());
        EXPECT_TRUE(table->SetColumns(tags).ok());
        return table->GetRows(table->RowCount().value()).value();
    }

    std::string IdOf(const Variant& cell) { return utilities->EntryIdText(cell).value(); }

    // Delivers a message and opens it.
    std::unique_ptr<Message> Open(const std::string& bytes) {
        Deliver(bytes);
        return OpenLast();
    }

    std::unique_ptr<Message> OpenLast() {
        auto inbox = session->GetDefaultFolder(kInboxFolder).value();
        auto messages = inbox->MessageList().value();
        const auto rows = Rows(*messages, {kTagEntryId});
        EXPECT_FALSE(rows.empty());
        auto message = utilities->OpenMessage(IdOf(rows.back()[0]), "");
        EXPECT_TRUE(message.ok()) << message.error().description;
        return message.ok() ? std::move(message).value() : nullptr;
    }

    // The bytes of the message delivered last, as stored now.
    const std::string& Stored() { return mail.root.messages.back().content; }
};

inline std::unique_ptr<Attachment> ItemOf(Message& message, int position) {
    auto item = message.AttachmentList().value()->Item(position);
    return item.ok() ? std::move(item).value() : nullptr;
}

inline int CountOf(Message& message) {
    return message.AttachmentList().value()->Count().value();
}

inline std::string DataOf(Attachment& attachment) {
    const auto data = attachment.Field(kTagAttachmentData);
    if (!data.ok()) return "error: " + data.error().description;
    return std::get<Blob>(data.value()).ToString().value();
}

inline Variant Bytes(std::string bytes) {
    return Blob::FromString(std::move(bytes));
}

// Every "\n" as "\r\n".
inline std::string Crlf(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') result += '\r';
        result += c;
    }
    return result;
}

// "QUJD" and "REVGRw==" are ABC and DEFG.
inline std::string TwoFiles() {
    return "From: a@x.org\nTo: b@x.org\nSubject: two\nMIME-Version: 1.0\n"
           "Content-Type: multipart/mixed; boundary=b\n\n"
           "preamble\n--b\n"
           "Content-Type: text/plain\n\nthe text\n--b\n"
           "Content-Type: application/pdf; name=\"one.pdf\"\n"
           "Content-Transfer-Encoding: base64\n"
           "X-Part: kept  \n"
           "Content-Disposition: attachment; filename=\"one.pdf\"; size=3\n\nQUJD\n--b  \n"
           "Content-Type: application/msword\n"
           "Content-Disposition: attachment;\n filename=\"two.doc\"\n"
           "Content-Transfer-Encoding: base64\n\nREVG\nRw==\n\n--b--\nepilogue --b\n";
}

}  // namespace trevix::mime
