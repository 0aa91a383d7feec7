#include "platform/maildir/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/errors.h"

namespace trevix::maildir {
namespace {

constexpr std::size_t kSlotSize = 8192;
constexpr std::string_view kMagic = "TREVIXJ1";
constexpr int kMakeAttempts = 16;
constexpr std::size_t kNumberSize = 8;

std::uint64_t Checksum(std::string_view bytes) {
    std::uint64_t sum = 0xCBF29CE484222325U;
    for (const char c : bytes) {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    }
    return sum;
}

void PutNumber(std::string& bytes, std::uint64_t number) {
    for (std::size_t at = 0; at < kNumberSize; ++at) {
        bytes += static_cast<char>((number >> (8 * at)) & 0xFF);
    }
}

void PutText(std::string& bytes, const std::string& text) {
    PutNumber(bytes, text.size());
    bytes += text;
}

void PutIdentity(std::string& bytes, const Identity& identity) {
    PutText(bytes, EncodeLocator(identity));
}

bool TakeNumber(std::string_view& bytes, std::uint64_t& number) {
    if (bytes.size() < kNumberSize) return false;
    number = 0;
    for (std::size_t at = 0; at < kNumberSize; ++at) {
        number |= std::uint64_t{static_cast<unsigned char>(bytes[at])} << (8 * at);
    }
    bytes.remove_prefix(kNumberSize);
    return true;
}

bool TakeText(std::string_view& bytes, std::string& text) {
    std::uint64_t size = 0;
    if (!TakeNumber(bytes, size) || size > bytes.size()) return false;
    text = std::string(bytes.substr(0, static_cast<std::size_t>(size)));
    bytes.remove_prefix(static_cast<std::size_t>(size));
    return true;
}

bool TakeIdentity(std::string_view& bytes, Identity& identity) {
    std::string text;
    if (!TakeText(bytes, text)) return false;
    auto decoded = DecodeLocator(text);
    if (!decoded) return false;
    identity = *std::move(decoded);
    return true;
}

std::string RandomId() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) != sizeof number) return {};
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
    return text.data();
}

Status WriteAt(int file, std::string_view bytes, std::size_t offset) {
    while (!bytes.empty()) {
        const ssize_t wrote =
            ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return StoreSystemError(errno, "the journal of the mail store");
        offset += static_cast<std::size_t>(wrote);
        bytes.remove_prefix(static_cast<std::size_t>(wrote));
    }
    return {};
}

Error CannotMake() {
    return StoreSystemError(errno, "a journal cannot be made in the mail store");
}

// Locked, and still under its name: an opening of the store that saw the file before it was locked
// takes it for one of a dead process and removes it.
bool TakeLock(int file) {
    struct stat about {};
    return ::flock(file, LOCK_EX | LOCK_NB) == 0 && ::fstat(file, &about) == 0 &&
           about.st_nlink > 0;
}

}  // namespace

std::string EncodeRecord(const JournalRecord& record) {
    std::string bytes(kMagic);
    PutNumber(bytes, record.sequence);
    PutText(bytes, record.directory);
    PutIdentity(bytes, record.old_mail);
    PutIdentity(bytes, record.new_mail);
    if (bytes.size() > kSlotSize - kNumberSize) return {};
    bytes.resize(kSlotSize - kNumberSize);
    PutNumber(bytes, Checksum(bytes));
    return bytes;
}

std::optional<JournalRecord> DecodeRecord(std::string_view bytes) {
    if (bytes.size() != kSlotSize || !bytes.starts_with(kMagic)) return std::nullopt;
    std::string_view sum_bytes = bytes.substr(kSlotSize - kNumberSize);
    std::uint64_t sum = 0;
    if (!TakeNumber(sum_bytes, sum)) return std::nullopt;
    if (sum != Checksum(bytes.substr(0, kSlotSize - kNumberSize))) return std::nullopt;
    bytes.remove_prefix(kMagic.size());
    JournalRecord record;
    if (!TakeNumber(bytes, record.sequence) || !TakeText(bytes, record.directory) ||
        !TakeIdentity(bytes, record.old_mail) || !TakeIdentity(bytes, record.new_mail)) {
        return std::nullopt;
    }
    return record;
}

std::vector<JournalRecord> ReadJournal(int file) {
    std::vector<JournalRecord> records;
    for (std::size_t slot = 0; slot < 2; ++slot) {
        std::string bytes(kSlotSize, '\0');
        const ssize_t got =
            ::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(slot * kSlotSize));
        if (got != static_cast<ssize_t>(kSlotSize)) continue;
        if (auto record = DecodeRecord(bytes)) records.push_back(*std::move(record));
    }
    std::sort(records.begin(), records.end(), [](const JournalRecord& a, const JournalRecord& b) {
        return a.sequence < b.sequence;
    });
    return records;
}

// The slots are filled with zeros at once, so that writing a record later allocates nothing: it
// cannot meet a full disk, and syncing it moves one page.
Result<std::shared_ptr<Journal>> Journal::Create(int root) {
    std::shared_ptr<Journal> journal(new Journal);
    journal->root_.Reset(::openat(root, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!journal->root_.valid()) return CannotMake();
    for (int attempt = 0; attempt < kMakeAttempts; ++attempt) {
        const std::string id = RandomId();
        if (id.empty()) return CannotMake();
        const std::string name = kJournalPrefix + id;
        UniqueDescriptor file(
            ::openat(root, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file.valid() && errno != EEXIST) return CannotMake();
        if (!file.valid() || !TakeLock(file.get())) continue;
        journal->id_ = id;
        journal->name_ = name;
        journal->file_ = std::move(file);
        TREVIX_RETURN_IF_ERROR(WriteAt(journal->file_.get(), std::string(2 * kSlotSize, '\0'), 0));
        if (::fsync(journal->file_.get()) != 0 || ::fsync(journal->root_.get()) != 0) {
            return CannotMake();
        }
        return journal;
    }
    return MessagingError(kStoreBusy, "a journal cannot be made in the mail store");
}

Journal::~Journal() {
    if (!file_.valid() || broken_) return;
    for (Slot& slot : slots_) {
        if (!SyncSlot(slot).ok()) return;
    }
    ::unlinkat(root_.get(), name_.c_str(), 0);
}

Status Journal::SyncSlot(Slot& slot) {
    for (const Unsynced& unsynced : slot) {
        if (::fsync(unsynced.directory.get()) != 0) {
            Break();
            return StoreSystemError(errno, "a folder of the mail store");
        }
    }
    slot.clear();
    return {};
}

Status Journal::Begin(const JournalRecord& record) {
    if (broken_) return MessagingError(kDiskError, "the mail store has failed before;");
    const std::uint64_t next = sequence_ + 1;
    Slot& slot = slots_[next % slots_.size()];
    TREVIX_RETURN_IF_ERROR(SyncSlot(slot));
    JournalRecord numbered = record;
    numbered.sequence = next;
    const std::string bytes = EncodeRecord(numbered);
    if (bytes.empty())
        return MessagingError(kNoAccess, record.directory + ": the path is too long");
    const Status written = WriteAt(file_.get(), bytes, (next % slots_.size()) * kSlotSize);
    if (!written.ok() || ::fdatasync(file_.get()) != 0) {
        // What is in the slot now is not known.
        const Error error = written.ok() ? StoreSystemError(errno, "the journal of the mail store")
                                         : written.error();
        Break();
        return error;
    }
    sequence_ = next;
    return {};
}

void Journal::Synced(int directory) {
    struct stat about {};
    if (::fstat(directory, &about) != 0) return;
    for (Slot& slot : slots_) {
        std::erase_if(slot, [&about](const Unsynced& unsynced) {
            return unsynced.device == about.st_dev && unsynced.inode == about.st_ino;
        });
    }
}

void Journal::Pending(int directory) {
    struct stat about {};
    Unsynced unsynced;
    unsynced.directory.Reset(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
    if (!unsynced.directory.valid() || ::fstat(directory, &about) != 0) {
        Break();
        return;
    }
    unsynced.device = about.st_dev;
    unsynced.inode = about.st_ino;
    slots_[sequence_ % slots_.size()].push_back(std::move(unsynced));
}

}  // namespace trevix::maildir
