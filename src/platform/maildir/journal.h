// The journal: what makes a replacement that a dead process left half done finishable.
//
// One file "trevix-journal.<id>" a process and store, in the root of the Maildir, mode 0600, locked
// (flock) while its process lives. It has two slots of fixed size, each with one checksummed record
// of a replacement; the slots take turns. replacement.h tells why that is enough.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/maildir/identity.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::maildir {

struct JournalRecord {
    std::uint64_t sequence = 0;
    std::string directory;  // the folder's, below the root
    Identity old_mail;
    Identity new_mail;
};

// The name of a journal file begins with this.
inline constexpr char kJournalPrefix[] = "trevix-journal.";

class Journal {
 public:
    // Makes the file and makes its existence durable. kDenied where the store cannot be written.
    static Result<std::shared_ptr<Journal>> Create(int root);

    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Makes the removals durable that its records speak of, then removes the file. After a failure
    // the file stays, for the next opening of the store.
    ~Journal();

    const std::string& id() const { return id_; }

    // Writes a record durably. When the slot's earlier replacement is not durable yet, its
    // directories are synced first. A failure here, or Break(), ends all replacing.
    Status Begin(const JournalRecord& record);

    // The directory has been synced: what earlier replacements did in it is durable.
    void Synced(int directory);

    // The replacement begun last has removed or renamed something in `directory`, not yet durably.
    void Pending(int directory);

    // Something went wrong that only the next opening can put right.
    void Break() { broken_ = true; }
    bool broken() const { return broken_; }

 private:
    struct Unsynced {
        UniqueDescriptor directory;
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
    };
    using Slot = std::vector<Unsynced>;

    Journal() = default;
    Status SyncSlot(Slot& slot);

    std::string id_;
    std::string name_;
    UniqueDescriptor root_;
    UniqueDescriptor file_;
    std::array<Slot, 2> slots_;
    std::uint64_t sequence_ = 0;
    bool broken_ = false;
};

// The valid records of a journal file, oldest first. A slot that is empty, torn or damaged is none.
std::vector<JournalRecord> ReadJournal(int file);

// A record as it is written; empty when it does not fit.
std::string EncodeRecord(const JournalRecord& record);
std::optional<JournalRecord> DecodeRecord(std::string_view bytes);

}  // namespace trevix::maildir
