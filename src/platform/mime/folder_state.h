// What this session knows of one folder: its listing with a summary for each message, and where
// each message is found by the digest of its key.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/clock.h"
#include "platform/mail_store.h"
#include "platform/mime/summarize.h"
#include "platform/summary_cache.h"

namespace trevix::mime {

class FolderState {
 public:
    // With `first_contact` the store was never listed before, so nothing in it is newly seen.
    FolderState(MailStore& store, SummaryCache& cache, Clock& clock, std::string path,
                bool first_contact)
        : store_(store),
          cache_(cache),
          clock_(clock),
          path_(std::move(path)),
          first_contact_(first_contact) {}
    ~FolderState() { Settle(); }
    FolderState(const FolderState&) = delete;
    FolderState& operator=(const FolderState&) = delete;

    const std::string& path() const { return path_; }

    // Asks the store what is new, reads what was never read, and keeps the outcome. The messages
    // as they are now; later changes do not reach a list that was handed out.
    Result<std::shared_ptr<const FolderSummary>> Refresh();

    // The message whose key has this digest; nothing when it is not in the folder. Lists the
    // folder when that was not done yet.
    Result<std::optional<MessageSummary>> Find(const std::string& key_digest);

    // Takes note of a message that this session replaced.
    void Replaced(const std::string& old_key, const MessageSummary& now);

    // The message was not found as it was listed: whoever lists next looks at its file anew.
    void Distrust(const std::string& key);

    // A folder that this session wrote to is listed once more, so that the next session finds it as
    // it left it and need not.
    void Settle();

 private:
    void LoadFromCache();
    // Writes what Replaced() noted to the cache. A failing cache costs the next run some reading.
    void Flush();
    MailListing TakeKnownListing();
    void TakeListing(MailListing listing);
    void SaveToCache(const FolderSummary& before);
    void BuildIndex();

    MailStore& store_;
    SummaryCache& cache_;
    Clock& clock_;
    std::string path_;
    bool first_contact_;
    bool loaded_ = false;      // from the cache
    bool was_cached_ = false;  // the cache knew the folder
    bool listed_once_ = false;
    std::shared_ptr<const FolderSummary> listed_ = std::make_shared<FolderSummary>();

    // Messages that could not be read; they are read again at the next listing and never cached.
    std::set<std::string> failed_keys_;

    // Own replacements since the listing, by the key of the message that stood there then.
    std::unordered_map<std::string, MessageSummary> written_;
    std::unordered_map<std::string, std::string> first_key_of_;   // by the key it has now
    std::unordered_map<std::string, std::string> written_index_;  // the same by the key's digest

    std::unordered_map<std::string, std::size_t> index_;  // key digest to position in listed_
    bool indexed_ = false;
};

}  // namespace trevix::mime
