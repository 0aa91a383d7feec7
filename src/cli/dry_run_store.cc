#include "cli/dry_run_store.h"

#include "platform/errors.h"

namespace trevix::cli {

class DryRunStore::Staged final : public StagedMail {
 public:
    Staged(DryRunStore& store, std::string folder, MailEntry entry, Blob content)
        : store_(store),
          folder_(std::move(folder)),
          entry_(std::move(entry)),
          content_(std::move(content)) {}

    Blob content() const override { return content_; }
    Result<MailEntry> Commit() override {
        if (is_done_) return MessagingError(kCallFailed);
        is_done_ = true;
        return store_.Commit(folder_, entry_, content_);
    }

 private:
    DryRunStore& store_;
    std::string folder_;
    MailEntry entry_;
    Blob content_;
    bool is_done_ = false;
};

// A folder with replacements is listed anew each time: its stamp behind says nothing of ours.
Result<MailChange> DryRunStore::List(const std::string& folder, const MailListing* known) {
    const auto found = replaced_.find(folder);
    if (found == replaced_.end()) return behind_->List(folder, known);
    auto change = behind_->List(folder, nullptr);
    if (!change.ok()) return change;
    MailListing& listing = change.value().listing;
    listing.stamp.clear();
    for (MailEntry& entry : listing.entries) {
        const auto replacement = found->second.find(entry.key);
        if (replacement != found->second.end()) entry = replacement->second.current;
    }
    return change;
}

Result<Blob> DryRunStore::Read(const std::string& folder, const MailEntry& entry) {
    if (IsReplaced(folder, entry.key)) return MessagingError(kObjectDeleted);
    const Replacement* replacement = FindByCurrent(folder, entry.key);
    if (replacement == nullptr) return behind_->Read(folder, entry);
    if (!replacement->is_kept) return MessagingError(kObjectDeleted);
    return replacement->content;
}

Result<MailOutline> DryRunStore::Outline(const std::string& folder, const MailEntry& entry) {
    const bool is_ours = IsReplaced(folder, entry.key) || FindByCurrent(folder, entry.key);
    return is_ours ? MailStore::Outline(folder, entry) : behind_->Outline(folder, entry);
}

Result<std::unique_ptr<StagedMail>> DryRunStore::Stage(const std::string& folder,
                                                       const MailEntry& entry,
                                                       const Blob& content) {
    // The message must still be there, as it would have to be for a real replacement.
    if (IsReplaced(folder, entry.key)) return MessagingError(kObjectDeleted);
    if (FindByCurrent(folder, entry.key) == nullptr) {
        const auto present = behind_->Read(folder, entry);
        if (!present.ok()) return present.error();
    }
    auto kept = spool_.Keep(content);
    if (!kept.ok()) return kept.error();
    return std::unique_ptr<StagedMail>(
        std::make_unique<Staged>(*this, folder, entry, std::move(kept).value()));
}

bool DryRunStore::IsReplaced(const std::string& folder, const std::string& key) const {
    const auto found = replaced_.find(folder);
    return found != replaced_.end() && found->second.count(key) > 0;
}

DryRunStore::Replacement* DryRunStore::FindByCurrent(const std::string& folder,
                                                     const std::string& key) {
    const auto original = original_of_.find(key);
    const auto found = replaced_.find(folder);
    if (original == original_of_.end() || found == replaced_.end()) return nullptr;
    const auto replacement = found->second.find(original->second);
    return replacement == found->second.end() ? nullptr : &replacement->second;
}

Result<MailEntry> DryRunStore::Commit(const std::string& folder, const MailEntry& entry,
                                      const Blob& content) {
    if (IsReplaced(folder, entry.key)) return MessagingError(kObjectDeleted);
    MailEntry current = entry;
    current.key = "dryrun" + std::to_string(++commits_);
    current.locator = current.key;
    current.size_bytes = content.size_bytes();
    current.changed_ns = clock_.UnixNanoseconds();

    if (Replacement* earlier = FindByCurrent(folder, entry.key)) {
        if (earlier->is_kept) held_bytes_ -= earlier->content.size_bytes();
        original_of_[current.key] = earlier->original.key;
        original_of_.erase(entry.key);
        earlier->current = current;
        earlier->content = content;
        earlier->is_kept = true;
    } else {
        original_of_[current.key] = entry.key;
        replaced_[folder][entry.key] = {entry, current, content, true};
    }
    held_bytes_ += content.size_bytes();
    ages_.emplace_back(folder, current.key);
    KeepWithinBudget();
    return current;
}

void DryRunStore::KeepWithinBudget() {
    while (held_bytes_ > kept_bytes_ && ages_.size() > 1) {
        // One that was replaced again since has gone from the index of current keys.
        if (Replacement* oldest = FindByCurrent(ages_.front().first, ages_.front().second)) {
            held_bytes_ -= oldest->content.size_bytes();
            oldest->content = Blob();
            oldest->is_kept = false;
        }
        ages_.pop_front();
    }
}

}  // namespace trevix::cli
