// MailStore over a mailbox user's mailboxes on an IMAP server.
//
// A folder's path is described in folder_names.h, a message's key in message_identity.h, when a
// folder counts as changed in listing.h, what an outline is in outline.h, and how a message is
// replaced, which IMAP makes hard to do safely, in replacement.h.
//
// Special uses (\Sent, \Trash) change nothing: a folder is a folder. The mailbox of the hidden
// messages is none.
//
// One thread uses a store; what it gave out may be read by others, also when the store is closed.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/imap/folder_names.h"
#include "platform/imap/hidden_mailbox.h"
#include "platform/imap/link.h"
#include "platform/imap/read_ahead.h"
#include "platform/imap/replacement.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// What the opening does about replacements that dead processes and cut connections left. Who only
// wants to look leaves them alone; both messages of such a replacement are then there, each whole.
enum class Leftovers { kFinish, kLeave };

struct StorePlan {
    std::string address;            // identifies the store: "imaps://ann@imap.example.org"
    std::string display_name;       // for people
    std::string hidden_mailbox;     // empty: the usual name
    std::string journal_directory;  // empty: nothing is replaced
    std::string spool_directory;    // for large content; empty: $TMPDIR or /tmp
    Leftovers leftovers = Leftovers::kFinish;

    // Gets what the opening has to tell a person of unfinished replacements, a sentence each;
    // empty: nobody does.
    std::function<void(const std::string& sentence)> tell;
};

class ImapStore final : public MailStore {
 public:
    // Connects. The errors are the connection's, as kFailOneProvider where they have no number of
    // their own.
    static Result<std::unique_ptr<ImapStore>> Open(StorePlan plan, Connector connect, Pause pause,
                                                   Clock& clock);

    std::string address() const override { return plan_.address; }
    std::string display_name() const override { return plan_.display_name; }
    std::string inbox_path() const override { return kInboxPath; }
    Result<std::vector<MailFolder>> Folders() override;
    Result<MailChange> List(const std::string& folder, const MailListing* known) override;
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override;
    void Expect(const std::string& folder, const std::vector<MailEntry>& entries,
                MailUse use) override;
    Result<MailOutline> Outline(const std::string& folder, const MailEntry& entry) override;
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override;
    HiddenMailStore& Hidden() override { return hidden_; }

    // For tests: called at every step of a replacement.
    void SetStepHook(StepHook hook) { context_->hook = std::move(hook); }

 private:
    // The status of a mailbox that was asked ahead, with others in one go. It is used once, and
    // only soon after: what comes later shows in the next listing.
    struct AskedAhead {
        MailboxStatus status;
        std::int32_t tick = 0;
    };

    ImapStore(StorePlan plan, Connector connect, Pause pause, Clock& clock);
    Status ReadTree();
    Result<std::string> MailboxOf(const std::string& folder);
    bool IsContainer(const std::string& folder) const;
    Result<MailboxStatus> StatusOf(const std::string& folder, const std::string& mailbox);
    std::vector<std::string> AskTogether(const std::string& folder, const std::string& mailbox);
    void Distrust(const std::string& mailbox, const Error& error);

    StorePlan plan_;
    Clock& clock_;
    std::shared_ptr<Link> link_;
    HiddenMailbox hidden_;
    ReadAhead read_ahead_;
    std::shared_ptr<ReplacementContext> context_;
    ServerFolders tree_;
    std::map<std::string, AskedAhead> asked_ahead_;  // by mailbox
};

// The same, as the program that builds everything wants it.
Result<std::unique_ptr<MailStore>> OpenImapStore(StorePlan plan, Connector connect, Pause pause,
                                                 Clock& clock);

}  // namespace trevix::imap
