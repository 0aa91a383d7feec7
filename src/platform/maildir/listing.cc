#include "platform/maildir/listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/maildir/file_names.h"

namespace trevix::maildir {
namespace {

constexpr std::int64_t kSecond = 1000000000;
constexpr std::int64_t kFineMargin = kSecond / 10;
constexpr std::int64_t kCoarseMargin = kSecond / 10 * 25;

// What an earlier listing says of a file name.
struct Known {
    std::uint64_t inode = 0;
    const MailEntry* entry = nullptr;
};
using KnownNames = std::unordered_map<std::string_view, Known>;  // "c" or "n" and the name

// The place and the name stand apart in a locator; the map needs one key, and this makes it.
std::string MapKey(Place place, std::string_view name) {
    return std::string(1, static_cast<char>(place)).append(name);
}

class KnownListing {
 public:
    explicit KnownListing(const MailListing* known) {
        if (known == nullptr) return;
        keys_.reserve(known->entries.size());
        names_.reserve(known->entries.size());
        for (const MailEntry& entry : known->entries) {
            const auto identity = DecodeLocator(entry.locator);
            if (!identity) continue;
            keys_.push_back(MapKey(identity->place, identity->name));
            names_[keys_.back()] = Known{identity->inode, &entry};
        }
    }

    const MailEntry* Find(Place place, const DirectoryEntry& entry) const {
        if (names_.empty()) return nullptr;
        const auto found = names_.find(MapKey(place, entry.name));
        const bool same = found != names_.end() && found->second.inode == entry.inode;
        return same ? found->second.entry : nullptr;
    }

 private:
    std::vector<std::string> keys_;
    KnownNames names_;
};

bool ReadPlace(const Folder& folder, Place place, const KnownListing& known,
               std::vector<MailEntry>& entries) {
    const int directory = folder.directory(place);
    if (directory < 0) return true;
    int failure = 0;
    const bool read = ReadDirectory(directory, [&](DirectoryEntry&& entry) {
        if (entry.name.front() == '.') return;
        if (entry.type != DT_REG && entry.type != DT_UNKNOWN) return;
        if (const MailEntry* same = known.Find(place, entry)) {
            entries.push_back(*same);
            entries.back().key = std::string(KeyOf(entry.name));
            return;
        }
        struct stat about {};
        if (::fstatat(directory, entry.name.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) {
            // Renamed or removed since: the directory's time shows it to the next listing.
            if (errno != ENOENT && failure == 0) failure = errno;
            return;
        }
        if (!S_ISREG(about.st_mode)) return;
        entries.push_back(EntryOf(IdentityOf(place, std::move(entry.name), about)));
    });
    if (failure != 0) errno = failure;
    return read && failure == 0;
}

bool StillThere(const Folder& folder, const MailEntry& entry) {
    const auto identity = DecodeLocator(entry.locator);
    struct stat about {};
    return identity && ::fstatat(folder.directory(identity->place), identity->name.c_str(), &about,
                                 AT_SYMLINK_NOFOLLOW) == 0;
}

// Two files of one base name. A file that was renamed while the directory was read shows twice, and
// its old name is dropped. Two that really are there are both listed, the one with the lower inode
// under the plain key, so that the answer does not hang on the order of reading.
void SeparateDuplicates(const Folder& folder, std::vector<MailEntry>& entries) {
    std::unordered_set<std::string_view> keys;
    keys.reserve(entries.size());
    bool doubled = false;
    for (const MailEntry& entry : entries) {
        doubled = !keys.insert(entry.key).second || doubled;
    }
    if (!doubled) return;

    std::unordered_map<std::string_view, std::vector<std::size_t>> by_key;
    for (std::size_t at = 0; at < entries.size(); ++at) {
        by_key[entries[at].key].push_back(at);
    }

    std::vector<std::pair<std::size_t, std::string>> renamed;
    std::vector<std::size_t> stale;
    for (auto& [key, same] : by_key) {
        if (same.size() < 2) continue;
        std::erase_if(same, [&](std::size_t at) {
            const bool gone = !StillThere(folder, entries[at]);
            if (gone) stale.push_back(at);
            return gone;
        });
        const auto order = [&entries](std::size_t at) {
            const auto identity = DecodeLocator(entries[at].locator);
            return std::pair(identity ? identity->inode : 0, entries[at].locator);
        };
        std::sort(same.begin(), same.end(),
                  [&order](std::size_t a, std::size_t b) { return order(a) < order(b); });
        for (std::size_t rank = 1; rank < same.size(); ++rank) {
            // "/" is in no file name, so the longer key meets no other.
            renamed.emplace_back(same[rank], std::string(key) + "/" +
                                                 std::to_string(order(same[rank]).first) + "/" +
                                                 std::to_string(rank));
        }
    }
    for (auto& [at, key] : renamed) {
        entries[at].key = std::move(key);
    }
    std::sort(stale.rbegin(), stale.rend());
    for (const std::size_t at : stale) {
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(at));
    }
}

}  // namespace

FolderStamp StampOf(int root, const std::string& relative) {
    FolderStamp stamp;
    for (const Place place : {Place::kCur, Place::kNew}) {
        const std::string path = (relative.empty() ? "" : relative + "/") + DirectoryName(place);
        struct stat about {};
        if (::fstatat(root, path.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) {
            stamp.text += "-;";
            continue;
        }
        const std::int64_t mtime = Nanoseconds(about.st_mtim);
        stamp.text += std::to_string(about.st_ino) + ":" + std::to_string(mtime) + ";";
        if (mtime >= stamp.latest_ns) {
            stamp.latest_ns = mtime;
            stamp.fractional = mtime % kSecond != 0;
        }
    }
    return stamp;
}

bool IsSettled(const FolderStamp& stamp, std::int64_t now_ns) {
    return stamp.latest_ns < now_ns - (stamp.fractional ? kFineMargin : kCoarseMargin);
}

MailEntry EntryOf(const Identity& identity) {
    MailEntry entry;
    entry.key = std::string(KeyOf(identity.name));
    entry.locator = EncodeLocator(identity);
    entry.size_bytes = identity.size_bytes;
    entry.changed_ns = identity.ctime_ns;
    entry.received_ns = identity.mtime_ns;
    return entry;
}

// New messages first: files move from there to "cur", never back, so one that moves while we read
// is seen at least once.
Result<MailListing> ReadListing(const Folder& folder, const MailListing* known) {
    const KnownListing known_names(known);
    MailListing listing;
    for (const Place place : {Place::kNew, Place::kCur}) {
        if (!ReadPlace(folder, place, known_names, listing.entries)) {
            return StoreSystemError(errno, folder.relative() + "/" + DirectoryName(place));
        }
    }
    SeparateDuplicates(folder, listing.entries);
    return listing;
}

}  // namespace trevix::maildir
