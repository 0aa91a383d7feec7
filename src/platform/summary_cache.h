// What is known of each message without opening it, kept between runs.
//
// Only a cache: it may be deleted at any time, and a failing one costs time, nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/mail_store.h"
#include "platform/result.h"

namespace trevix {

struct MessageSummary {
    MailEntry entry;
    std::int64_t first_seen_ns = 0;  // 0: seen at first contact with the store
    std::int64_t own_write_ns = 0;   // changed_ns of the entry as we wrote it; 0: others wrote it
    bool has_attachments = false;
    std::string subject;
    std::string message_class;
};

struct FolderSummary {
    std::string stamp;  // of the listing that it was made from
    std::vector<MessageSummary> messages;
};

class SummaryCache {
 public:
    virtual ~SummaryCache() = default;

    // Whether anything is kept of this store.
    virtual Result<bool> KnowsStore(const std::string& store_address) = 0;

    // Empty when nothing is kept of this folder.
    virtual Result<FolderSummary> Load(const std::string& store_address,
                                       const std::string& folder) = 0;

    // Replaces what is kept of a folder; writes only the differences to `before`.
    virtual Status Save(const std::string& store_address, const std::string& folder,
                        const FolderSummary& before, const FolderSummary& now) = 0;
};

}  // namespace trevix
