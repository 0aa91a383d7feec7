// The journal: what makes a replacement that a dead process or a cut connection left half done
// finishable.
//
// One file "journal-<store>.<id>" a process and store, on this machine, mode 0600, locked (flock)
// while its process lives. It holds a checksummed line for each replacement that is begun and one
// for each that is finished; as soon as none is open it is emptied. replacement.h tells why that is
// enough.
//
// A file and not a database: what has to be told is whether the writer of a record lives, which is
// a lock on the record's file, and a record costs one sync.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imap/message_identity.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::imap {

struct JournalRecord {
    std::uint64_t number = 0;
    std::string mailbox;  // wire name
    std::uint32_t uid_validity = 0;
    std::uint32_t old_uid = 0;
    Flags old_flags;
    std::uint32_t least_new_uid = 0;  // the new message has this UID or a higher one
    std::uint32_t new_uid = 0;        // 0: not known
    std::uint64_t size_bytes = 0;     // of the new message
    std::string digest;
    std::int64_t begun_ns = 0;
};

class Journal {
 public:
    // Makes the file in `directory`, which is made as well. kDenied or kNoSpace, with the path.
    static Result<std::unique_ptr<Journal>> Create(const std::string& directory,
                                                   const std::string& store_address);

    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Removes the file, unless a replacement is open still.
    ~Journal();

    // Durable when it returns. Sets the record's number. A failure ends all replacing.
    Status Begin(JournalRecord& record);

    // Tells the new message's UID. Not synced: it helps, but nothing rests on it.
    void Note(std::uint64_t number, std::uint32_t new_uid);

    // Not synced either: a finished replacement that is found open gives its finder nothing to do.
    void End(std::uint64_t number);

 private:
    Journal() = default;
    Status Write(std::string_view line, bool durably);

    std::string path_;
    UniqueDescriptor file_;
    std::vector<std::uint64_t> open_;
    std::uint64_t last_number_ = 0;
    bool broken_ = false;
};

// A journal file of a process that is dead, locked by us meanwhile.
struct LeftJournal {
    std::string path;
    UniqueDescriptor file;
    std::vector<JournalRecord> open;  // in the order of their beginning
};

// All of them that belong to the store. Those whose process lives, or which are not ours, are left
// alone.
std::vector<LeftJournal> LeftJournals(const std::string& directory,
                                      const std::string& store_address);

// Removes the file when nothing is left of it, else writes what is left.
void Settle(LeftJournal& journal, const std::vector<JournalRecord>& left);

// A record as its line and back. A torn or damaged line is none.
std::string EncodeRecord(const JournalRecord& record);
std::optional<JournalRecord> DecodeRecord(std::string_view line);

}  // namespace trevix::imap
