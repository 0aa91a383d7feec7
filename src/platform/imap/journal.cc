#include "platform/imap/journal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/digest.h"
#include "platform/imap/text_escape.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kBegin = "begin";
constexpr std::string_view kNote = "note";
constexpr std::string_view kEnd = "end";
constexpr int kMakeAttempts = 16;
constexpr std::size_t kIdBytes = 8;
constexpr std::uint64_t kMostBytes = std::uint64_t{16} * 1024 * 1024;

std::uint64_t Checksum(std::string_view bytes) {
    std::uint64_t sum = 0xCBF29CE484222325U;
    for (const char c : bytes) {
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    }
    return sum;
}

// The line with its checksum and line end.
std::string Sealed(std::string line) {
    line += " ";
    const std::uint64_t sum = Checksum(line);
    return line + std::to_string(sum) + "\n";
}

// The words of a line whose checksum is right; none for any other.
class Words {
 public:
    explicit Words(std::string_view line) {
        const std::size_t blank = line.rfind(' ');
        if (blank == std::string_view::npos) return;
        const std::string_view text = line.substr(0, blank + 1);
        if (line.substr(blank + 1) == std::to_string(Checksum(text))) rest_ = text;
    }

    bool empty() const { return rest_.empty(); }

    bool Is(std::string_view word) { return Take() == word; }

    template <typename Number>
    bool Read(Number& number) {
        const std::string_view word = Take();
        const auto [stop, failure] =
            std::from_chars(word.data(), word.data() + word.size(), number);
        return failure == std::errc() && !word.empty() && stop == word.data() + word.size();
    }

    bool Text(std::string& text) {
        auto unescaped = UnescapeText(Take());
        if (unescaped) text = *std::move(unescaped);
        return unescaped.has_value();
    }

 private:
    std::string_view Take() {
        const std::size_t blank = rest_.find(' ');
        if (blank == std::string_view::npos) return {};
        const std::string_view word = rest_.substr(0, blank);
        rest_.remove_prefix(blank + 1);
        return word;
    }

    std::string_view rest_;
};

std::string EncodeNote(std::uint64_t number, std::uint32_t new_uid) {
    return Sealed(std::string(kNote) + " " + std::to_string(number) + " " +
                  std::to_string(new_uid));
}

std::string EncodeEnd(std::uint64_t number) {
    return Sealed(std::string(kEnd) + " " + std::to_string(number));
}

// Everything that a journal tells, the open ones only.
std::vector<JournalRecord> OpenRecords(std::string_view text) {
    std::vector<JournalRecord> open;
    const auto find = [&open](std::uint64_t number) {
        return std::find_if(open.begin(), open.end(),
                            [number](const auto& one) { return one.number == number; });
    };
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        if (newline == std::string_view::npos) break;  // torn
        const std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline + 1);
        if (auto record = DecodeRecord(line)) {
            open.push_back(*std::move(record));
            continue;
        }
        std::uint64_t number = 0;
        std::uint32_t uid = 0;
        Words note(line);
        if (note.Is(kNote) && note.Read(number) && note.Read(uid)) {
            if (const auto found = find(number); found != open.end()) found->new_uid = uid;
        }
        Words end(line);
        if (end.Is(kEnd) && end.Read(number)) {
            if (const auto found = find(number); found != open.end()) open.erase(found);
        }
    }
    return open;
}

std::string PrefixFor(const std::string& store_address) {
    Digest digest;
    digest.Add(store_address.data(), store_address.size());
    return "journal-" + digest.Finish().substr(0, 16) + ".";
}

void MakeDirectories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        // What cannot be made is found out when the file is opened.
        static_cast<void>(::mkdir(path.substr(0, slash).c_str(), 0700));
    }
    static_cast<void>(::mkdir(path.c_str(), 0700));
}

Error CannotMake(const std::string& path) {
    return StoreSystemError(errno, path + ": the journal of replacements cannot be written");
}

bool SyncDirectory(const std::string& directory) {
    const UniqueDescriptor open(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return open.valid() && ::fsync(open.get()) == 0;
}

bool WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t wrote = ::write(file, bytes.data(), bytes.size());
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(wrote));
    }
    return true;
}

// Locked, and still under its name: who finishes dead journals may have removed it just before.
bool TakeLock(int file) {
    struct stat about {};
    return ::flock(file, LOCK_EX | LOCK_NB) == 0 && ::fstat(file, &about) == 0 &&
           about.st_nlink > 0;
}

std::optional<std::string> ReadText(int file) {
    struct stat about {};
    if (::fstat(file, &about) != 0 || !S_ISREG(about.st_mode)) return std::nullopt;
    if (static_cast<std::uint64_t>(about.st_size) > kMostBytes) return std::nullopt;
    std::string text(static_cast<std::size_t>(about.st_size), '\0');
    std::size_t have = 0;
    while (have < text.size()) {
        const ssize_t got =
            ::pread(file, text.data() + have, text.size() - have, static_cast<off_t>(have));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return std::nullopt;
        have += static_cast<std::size_t>(got);
    }
    return text;
}

}  // namespace

std::string EncodeRecord(const JournalRecord& record) {
    std::string line(kBegin);
    for (const std::uint64_t number :
         {record.number, std::uint64_t{record.uid_validity}, std::uint64_t{record.old_uid},
          std::uint64_t{record.least_new_uid}, std::uint64_t{record.new_uid}, record.size_bytes}) {
        line += " " + std::to_string(number);
    }
    line += " " + std::to_string(record.begun_ns) + " " + EscapeText(record.digest) + " " +
            EscapeText(record.mailbox) + " " + std::to_string(record.old_flags.size());
    for (const std::string& flag : record.old_flags)
        line += " " + EscapeText(flag);
    return Sealed(std::move(line));
}

std::optional<JournalRecord> DecodeRecord(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    Words words(line);
    JournalRecord record;
    std::size_t flags = 0;
    if (!words.Is(kBegin) || !words.Read(record.number) || !words.Read(record.uid_validity) ||
        !words.Read(record.old_uid) || !words.Read(record.least_new_uid) ||
        !words.Read(record.new_uid) || !words.Read(record.size_bytes) ||
        !words.Read(record.begun_ns) || !words.Text(record.digest) || !words.Text(record.mailbox) ||
        !words.Read(flags)) {
        return std::nullopt;
    }
    for (std::size_t at = 0; at < flags; ++at) {
        std::string flag;
        if (!words.Text(flag)) return std::nullopt;
        record.old_flags.push_back(std::move(flag));
    }
    return record;
}

Result<std::unique_ptr<Journal>> Journal::Create(const std::string& directory,
                                                 const std::string& store_address) {
    if (directory.empty()) {
        return MessagingError(kNoAccess, "there is no directory for the journal of replacements");
    }
    MakeDirectories(directory);
    std::unique_ptr<Journal> journal(new Journal);
    for (int attempt = 0; attempt < kMakeAttempts; ++attempt) {
        const std::string id = RandomHex(kIdBytes);
        if (id.empty()) return CannotMake(directory);
        journal->path_ = directory + "/" + PrefixFor(store_address) + id;
        UniqueDescriptor file(::open(journal->path_.c_str(),
                                     O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                                     0600));
        if (!file.valid() && errno != EEXIST) return CannotMake(journal->path_);
        if (!file.valid() || !TakeLock(file.get())) continue;
        journal->file_ = std::move(file);
        if (!SyncDirectory(directory)) return CannotMake(journal->path_);
        return journal;
    }
    return MessagingError(kStoreBusy, directory);
}

Journal::~Journal() {
    if (file_.valid() && open_.empty()) ::unlink(path_.c_str());
}

Status Journal::Begin(JournalRecord& record) {
    if (broken_) return MessagingError(kDiskError, "the journal of replacements failed before;");
    // With nothing open, what the file holds is history.
    if (open_.empty() && ::ftruncate(file_.get(), 0) != 0) {
        broken_ = true;
        return CannotMake(path_);
    }
    record.number = ++last_number_;
    open_.push_back(record.number);
    return Write(EncodeRecord(record), true);
}

void Journal::Note(std::uint64_t number, std::uint32_t new_uid) {
    // As said in the header.
    Drop(Write(EncodeNote(number, new_uid), false));
}

void Journal::End(std::uint64_t number) {
    std::erase(open_, number);
    // As said in the header.
    Drop(Write(EncodeEnd(number), false));
}

// After a failure nobody knows what is in the file.
Status Journal::Write(std::string_view line, bool durably) {
    if (!WriteAll(file_.get(), line) || (durably && ::fdatasync(file_.get()) != 0)) {
        const Error error = CannotMake(path_);
        broken_ = true;
        return error;
    }
    return {};
}

std::vector<LeftJournal> LeftJournals(const std::string& directory,
                                      const std::string& store_address) {
    const std::string prefix = PrefixFor(store_address);
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(directory.c_str()), &::closedir);
    while (open != nullptr) {
        const dirent* entry = ::readdir(open.get());
        if (entry == nullptr) break;
        if (std::string_view(entry->d_name).starts_with(prefix)) names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());

    std::vector<LeftJournal> journals;
    for (const std::string& name : names) {
        LeftJournal journal;
        journal.path = directory + "/" + name;
        journal.file.Reset(
            ::open(journal.path.c_str(), O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat about {};
        if (!journal.file.valid() || ::fstat(journal.file.get(), &about) != 0 ||
            about.st_uid != ::geteuid() || !TakeLock(journal.file.get())) {
            continue;
        }
        const auto text = ReadText(journal.file.get());
        if (!text) continue;
        journal.open = OpenRecords(*text);
        journals.push_back(std::move(journal));
    }
    return journals;
}

void Settle(LeftJournal& journal, const std::vector<JournalRecord>& left) {
    if (left.empty()) {
        ::unlink(journal.path.c_str());
        return;
    }
    // What was finished is told behind what was begun, so a death meanwhile loses nothing.
    for (const JournalRecord& record : journal.open) {
        const bool stays = std::any_of(left.begin(), left.end(), [&record](const auto& one) {
            return one.number == record.number;
        });
        if (!stays && !WriteAll(journal.file.get(), EncodeEnd(record.number))) return;
    }
}

}  // namespace trevix::imap
