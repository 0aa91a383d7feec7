// DryRunStore: a message store that answers like the one behind it and keeps every write to itself.
//
// A committed replacement shows up in listings and can be read, so that a whole run works on it as
// on the real thing; the store behind sees only reads. The bytes of replacements lie in a nameless
// temporary file. Only the youngest are kept once they exceed a budget: a run has no more use for a
// message that it has left, and a dry run over a large store must not fill the disk.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/dry_run_hidden.h"
#include "cli/spool.h"
#include "platform/clock.h"
#include "platform/mail_store.h"

namespace trevix::cli {

class DryRunStore final : public MailStore {
 public:
    static constexpr std::uint64_t kKeptBytes = std::uint64_t{256} * 1024 * 1024;

    // `directory` takes the temporary file. `kept_bytes` is the budget; the last replacement is
    // kept whatever its size.
    DryRunStore(std::unique_ptr<MailStore> behind, Clock& clock, const std::string& directory,
                HeldLock lock, std::uint64_t kept_bytes = kKeptBytes)
        : behind_(std::move(behind)),
          clock_(clock),
          spool_(directory),
          kept_bytes_(kept_bytes),
          hidden_(behind_->Hidden(), clock, lock) {}

    std::string address() const override { return behind_->address(); }
    std::string display_name() const override { return behind_->display_name(); }
    std::string inbox_path() const override { return behind_->inbox_path(); }
    Result<std::vector<MailFolder>> Folders() override { return behind_->Folders(); }
    Result<MailChange> List(const std::string& folder, const MailListing* known) override;

    // kGone also for a replacement whose bytes were given up for younger ones.
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override;
    void Expect(const std::string& folder, const std::vector<MailEntry>& entries,
                MailUse use) override {
        behind_->Expect(folder, entries, use);
    }
    Result<MailOutline> Outline(const std::string& folder, const MailEntry& entry) override;
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override;
    HiddenMailStore& Hidden() override { return hidden_; }

 private:
    class Staged;
    struct Replacement {
        MailEntry original;
        MailEntry current;
        Blob content;
        bool is_kept = true;
    };
    using Replaced = std::map<std::string, Replacement>;  // by the original's key

    bool IsReplaced(const std::string& folder, const std::string& key) const;
    Replacement* FindByCurrent(const std::string& folder, const std::string& key);
    Result<MailEntry> Commit(const std::string& folder, const MailEntry& entry,
                             const Blob& content);
    void KeepWithinBudget();

    std::unique_ptr<MailStore> behind_;
    Clock& clock_;
    Spool spool_;
    std::uint64_t kept_bytes_;
    DryRunHidden hidden_;
    std::map<std::string, Replaced> replaced_;              // by folder
    std::map<std::string, std::string> original_of_;        // current key to original key
    std::deque<std::pair<std::string, std::string>> ages_;  // folder and current key, oldest first
    std::uint64_t held_bytes_ = 0;
    int commits_ = 0;
};

}  // namespace trevix::cli
