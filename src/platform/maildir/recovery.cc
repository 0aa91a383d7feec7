#include "platform/maildir/recovery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "platform/maildir/file_names.h"
#include "platform/maildir/folder.h"
#include "platform/maildir/journal.h"
#include "platform/maildir/replacement.h"

namespace trevix::maildir {
namespace {

constexpr std::size_t kIdLength = 16;

bool IsJournalName(std::string_view name) {
    const std::string_view prefix = kJournalPrefix;
    if (!name.starts_with(prefix) || name.size() != prefix.size() + kIdLength) return false;
    name.remove_prefix(prefix.size());
    return name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::vector<std::string> JournalNames(int root) {
    std::vector<std::string> names;
    // What could be read before a failure is good enough: the others wait for the next opening.
    ReadDirectory(root, [&names](DirectoryEntry&& entry) {
        if (IsJournalName(entry.name)) names.push_back(std::move(entry.name));
    });
    std::sort(names.begin(), names.end());
    return names;
}

// Waits a few seconds at most: somebody who holds the directory locked for longer is not one of us.
void LockBriefly(int directory) {
    constexpr int kTurns = 500;
    constexpr timespec kTurn = {0, 10000000};
    for (int turn = 0; turn < kTurns; ++turn) {
        if (::flock(directory, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
        ::nanosleep(&kTurn, nullptr);
    }
}

// False when the record is to be tried again at the next opening.
bool Replay(int root, const JournalRecord& record) {
    const auto folder = Folder::Open(root, record.directory);
    if (!folder.ok()) {
        // A folder that was removed or renamed took its messages along.
        return folder.error().kind == ErrorKind::kNotFound;
    }
    const Folder& open = folder.value();
    const Located new_now = open.Locate(record.new_mail, Match::kWithoutTime);
    if (new_now.where == Whereabouts::kUnknown) return false;
    const bool verified =
        new_now.where == Whereabouts::kThere || new_now.where == Whereabouts::kRenamed;
    if (!verified) return true;
    // The process may have died before it synced the new file's name.
    if (::fsync(open.directory(new_now.identity.place)) != 0) return false;

    std::vector<Place> unsynced;
    const auto retired = RetireOld(open, record.old_mail, new_now.identity, {}, unsynced);
    for (const Place place : unsynced) {
        if (::fsync(open.directory(place)) != 0) return false;
    }
    if (retired.ok()) return true;
    // Gone: the dead process had removed the old message itself, or somebody else has. Changed: it
    // is not the message that was replaced. Either way there is nothing to remove.
    const ErrorKind kind = retired.error().kind;
    return kind == ErrorKind::kGone || kind == ErrorKind::kChanged;
}

void SweepTmp(int root, const std::string& directory, std::string_view id) {
    const UniqueDescriptor tmp = OpenBelow(root, directory.empty() ? "tmp" : directory + "/tmp");
    if (!tmp.valid()) return;
    std::vector<std::string> names;
    ReadDirectory(tmp.get(), [&](DirectoryEntry&& entry) {
        if (IsMadeBy(entry.name, id)) names.push_back(std::move(entry.name));
    });
    for (const std::string& name : names) {
        ::unlinkat(tmp.get(), name.c_str(), 0);
    }
}

void RecoverOne(int root, const FolderTree& tree, const std::string& name) {
    const UniqueDescriptor file(
        ::openat(root, name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat about {};
    if (!file.valid() || ::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) return;
    // A user's own journals only; the administrator may finish everybody's.
    if (about.st_uid != ::geteuid() && ::geteuid() != 0) return;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return;

    bool finished = true;
    for (const JournalRecord& record : ReadJournal(file.get())) {
        finished = Replay(root, record) && finished;
    }
    if (!finished) return;
    const std::string_view id = std::string_view(name).substr(name.size() - kIdLength);
    for (const auto& [path, directory] : tree.directories) {
        SweepTmp(root, directory, id);
    }
    ::unlinkat(root, name.c_str(), 0);
}

}  // namespace

bool HasJournals(int root) {
    return !JournalNames(root).empty();
}

void Recover(int root, const FolderTree& tree) {
    if (!HasJournals(root)) return;
    // One recovery at a time: who opens the store meanwhile waits until it is done, and so never
    // works on a message that is still there twice. Where directories cannot be locked, each
    // journal's own lock still keeps it from being replayed twice at once.
    const UniqueDescriptor lock(::openat(root, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock.valid()) LockBriefly(lock.get());
    for (const std::string& name : JournalNames(root)) {
        RecoverOne(root, tree, name);
    }
}

}  // namespace trevix::maildir
