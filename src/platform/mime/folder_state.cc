#include "platform/mime/folder_state.h"

#include <utility>

#include "platform/mime/entry_id.h"

namespace trevix::mime {

void FolderState::LoadFromCache() {
    if (loaded_) return;
    loaded_ = true;
    Result<FolderSummary> cached = cache_.Load(store_.address(), path_);
    // Without the cache everything is read again, that is all.
    if (!cached.ok()) return;
    was_cached_ = !cached.value().stamp.empty() || !cached.value().messages.empty();
    listed_ = std::make_shared<FolderSummary>(std::move(cached).value());
}

MailListing FolderState::TakeKnownListing() {
    MailListing known;
    known.stamp = listed_->stamp;
    known.entries.reserve(listed_->messages.size());
    for (const MessageSummary& message : listed_->messages) {
        if (!failed_keys_.contains(message.entry.key)) known.entries.push_back(message.entry);
    }
    return known;
}

Result<std::shared_ptr<const FolderSummary>> FolderState::Refresh() {
    LoadFromCache();
    Flush();
    const bool has_known = was_cached_ || listed_once_;
    const MailListing known = TakeKnownListing();
    // After a failure the stamp is empty, so the store lists anew, with what is known as its base.
    Result<MailChange> change = store_.List(path_, has_known ? &known : nullptr);
    if (!change.ok()) return change.error();
    if (change.value().changed) TakeListing(std::move(change).value().listing);
    listed_once_ = true;
    return listed_;
}

void FolderState::TakeListing(MailListing listing) {
    std::unordered_map<std::string_view, const MessageSummary*> known;
    for (const MessageSummary& message : listed_->messages) {
        if (!failed_keys_.contains(message.entry.key)) known[message.entry.key] = &message;
    }
    // What comes to a known folder is seen now for the first time; the same goes for what comes
    // with a new folder into a store that is known.
    const bool all_old = first_contact_ && !was_cached_ && !listed_once_;
    const std::int64_t seen_ns = all_old ? 0 : clock_.UnixNanoseconds();

    auto now = std::make_shared<FolderSummary>();
    now->stamp = std::move(listing.stamp);
    now->messages.reserve(listing.entries.size());
    std::vector<SummaryTask> tasks;
    std::vector<std::size_t> task_positions;
    for (MailEntry& entry : listing.entries) {
        const auto found = known.find(entry.key);
        const bool usable =
            found != known.end() && found->second->entry.size_bytes == entry.size_bytes;
        MessageSummary summary = usable ? *found->second : MessageSummary{};
        if (found == known.end()) summary.first_seen_ns = seen_ns;
        summary.entry = std::move(entry);
        if (!usable) {
            task_positions.push_back(now->messages.size());
            tasks.emplace_back().summary = summary;
        }
        now->messages.push_back(std::move(summary));
    }
    Summarize(store_, path_, &tasks);

    failed_keys_.clear();
    std::vector<bool> gone(now->messages.size(), false);
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        gone[task_positions[i]] = tasks[i].gone;
        if (tasks[i].failed) failed_keys_.insert(tasks[i].summary.entry.key);
        now->messages[task_positions[i]] = std::move(tasks[i].summary);
    }
    std::size_t position = 0;
    const auto any_gone =
        std::erase_if(now->messages, [&](const MessageSummary&) { return gone[position++]; });
    // A listing with holes must not be taken for the folder next time.
    if (any_gone > 0 || !failed_keys_.empty()) now->stamp.clear();

    const std::shared_ptr<const FolderSummary> before = std::exchange(listed_, now);
    indexed_ = false;
    SaveToCache(*before);
}

void FolderState::SaveToCache(const FolderSummary& before) {
    if (failed_keys_.empty()) {
        // A cache that cannot be written costs the next run some reading.
        Drop(cache_.Save(store_.address(), path_, before, *listed_));
        return;
    }
    FolderSummary readable = *listed_;
    std::erase_if(readable.messages, [this](const MessageSummary& message) {
        return failed_keys_.contains(message.entry.key);
    });
    // As above.
    Drop(cache_.Save(store_.address(), path_, before, readable));
}

void FolderState::Replaced(const std::string& old_key, const MessageSummary& now) {
    // A message that is replaced twice still stands where the first one stood.
    std::string first_key = old_key;
    const auto earlier = first_key_of_.find(old_key);
    if (earlier != first_key_of_.end()) {
        first_key = earlier->second;
        first_key_of_.erase(earlier);
        written_index_.erase(Digest16(old_key));
    }
    written_[first_key] = now;
    first_key_of_[now.entry.key] = first_key;
    written_index_[Digest16(now.entry.key)] = first_key;
}

void FolderState::Distrust(const std::string& key) {
    Flush();
    const std::shared_ptr<const FolderSummary> before = listed_;
    auto now = std::make_shared<FolderSummary>(*before);
    now->stamp.clear();
    listed_ = now;
    failed_keys_.insert(key);
    SaveToCache(*before);
}

void FolderState::Flush() {
    if (written_.empty()) return;
    const std::shared_ptr<const FolderSummary> before = listed_;
    auto now = std::make_shared<FolderSummary>(*before);
    for (MessageSummary& message : now->messages) {
        const auto found = written_.find(message.entry.key);
        if (found != written_.end()) message = found->second;
    }
    listed_ = now;
    written_.clear();
    first_key_of_.clear();
    written_index_.clear();
    indexed_ = false;
    SaveToCache(*before);
}

void FolderState::Settle() {
    // A folder that cannot be listed now is listed by the next session.
    if (!written_.empty()) Drop(Refresh());
}

void FolderState::BuildIndex() {
    if (indexed_) return;
    index_.clear();
    index_.reserve(listed_->messages.size());
    for (std::size_t i = 0; i < listed_->messages.size(); ++i) {
        index_[Digest16(listed_->messages[i].entry.key)] = i;
    }
    indexed_ = true;
}

Result<std::optional<MessageSummary>> FolderState::Find(const std::string& key_digest) {
    if (!listed_once_) {
        const auto listed = Refresh();
        if (!listed.ok()) return listed.error();
    }
    const auto own = written_index_.find(key_digest);
    if (own != written_index_.end()) return std::optional(written_.at(own->second));
    BuildIndex();
    const auto found = index_.find(key_digest);
    if (found == index_.end()) return std::optional<MessageSummary>();
    const MessageSummary& message = listed_->messages[found->second];
    // The one that stood here was replaced: its ID is stale.
    if (written_.contains(message.entry.key)) return std::optional<MessageSummary>();
    return std::optional(message);
}

}  // namespace trevix::mime
