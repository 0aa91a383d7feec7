// Which file a message is, so exactly that any change of it by anybody shows.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace trevix::maildir {

// The two places of delivered messages in a folder.
enum class Place : char { kNew = 'n', kCur = 'c' };

inline const char* DirectoryName(Place place) {
    return place == Place::kNew ? "new" : "cur";
}

struct Identity {
    Place place = Place::kCur;
    std::string name;
    std::uint64_t inode = 0;
    std::uint64_t size_bytes = 0;
    std::int64_t mtime_ns = 0;
    std::int64_t ctime_ns = 0;
};

Identity IdentityOf(Place place, std::string name, const struct stat& about);

std::int64_t Nanoseconds(const timespec& time);

// The locator of a listing's entry is an identity as text: numbers, blanks, and the name last,
// since it may hold any byte.
std::string EncodeLocator(const Identity& identity);
std::optional<Identity> DecodeLocator(std::string_view locator);

}  // namespace trevix::maildir
