// MailStore over a Maildir, a Maildir++ or a plain tree of Maildirs.
//
// A folder's path is its directory's, with the dots of Maildir++ turned into "/"; names are decoded
// for display only. The root, when it is a Maildir, is the Inbox.
//
// One thread uses a store. The clock and, for a replacement in flight, nothing else must outlive
// what it gave out.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/clock.h"
#include "platform/mail_store.h"
#include "platform/maildir/folder_tree.h"
#include "platform/maildir/replacement.h"

namespace trevix::maildir {

// What the opening does about replacements that dead processes left. Who only wants to look leaves
// them alone; both files of such a replacement are then there, each whole.
enum class Leftovers { kFinish, kLeave };

class MaildirStore final : public MailStore {
 public:
    // `path` is an existing Maildir. kIo (8004011D), with one sentence that says what to do, for a
    // path that holds no Maildir or cannot be read.
    static Result<std::unique_ptr<MaildirStore>> Open(const std::string& path,
                                                      std::unique_ptr<HiddenMailStore> hidden,
                                                      Clock& clock,
                                                      Leftovers leftovers = Leftovers::kFinish);

    std::string address() const override;
    std::string display_name() const override;
    std::string inbox_path() const override;
    Result<std::vector<MailFolder>> Folders() override;
    Result<MailChange> List(const std::string& folder, const MailListing* known) override;
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override;
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override;
    HiddenMailStore& Hidden() override { return *hidden_; }

    // For tests: called at every step of a replacement.
    void SetStepHook(StepHook hook) { context_->hook = std::move(hook); }

 private:
    MaildirStore(std::string path, std::unique_ptr<HiddenMailStore> hidden, Clock& clock);

    int root() const { return context_->root.get(); }
    Status ReadTree();
    Result<std::string> DirectoryOf(const std::string& folder);
    Result<std::shared_ptr<const Folder>> OpenFolder(const std::string& folder);

    std::string path_;
    std::unique_ptr<HiddenMailStore> hidden_;
    Clock& clock_;
    std::shared_ptr<ReplacementContext> context_;
    FolderTree tree_;

    // The folder used last, for a run reads and replaces one message after another in it.
    std::shared_ptr<const Folder> open_folder_;

    // Folders whose earlier listing has proved wrong without a change of their directories:
    // somebody set a message's time, say. Their next listing looks at every file.
    std::set<std::string> distrusted_;
};

// The same, as the program that builds everything wants it.
Result<std::unique_ptr<MailStore>> OpenMaildir(const std::string& path,
                                               std::unique_ptr<HiddenMailStore> hidden,
                                               Clock& clock,
                                               Leftovers leftovers = Leftovers::kFinish);

}  // namespace trevix::maildir
