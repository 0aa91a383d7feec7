#include "platform/mime/entry_id.h"

#include <glib.h>

#include <array>

namespace trevix::mime {
namespace {

constexpr std::string_view kFlags("\0\0\0\0", 4);
constexpr std::string_view kProvider(
    "\x3C\x8F\x51\xA2\x77\x0E\x4D\x19\xB6\x42\x9D\x65\x1F\xC8\xE3\x70", 16);
constexpr std::size_t kPrefixBytes = 20;
constexpr std::size_t kStoreBytes = 38;
constexpr std::size_t kFolderBytes = 46;
constexpr std::size_t kMessageBytes = 70;

char KindByte(EntryKind kind) {
    switch (kind) {
        case EntryKind::kStore: return 1;
        case EntryKind::kFolder: return 3;
        case EntryKind::kMessage: return 7;
        case EntryKind::kHidden: return 9;
    }
    return 0;
}

std::string Prefix(EntryKind kind) {
    std::string bytes(kFlags);
    bytes += kProvider;
    bytes += KindByte(kind);
    bytes += '\0';
    return bytes;
}

}  // namespace

std::string Digest16(std::string_view text) {
    GChecksum* checksum = g_checksum_new(G_CHECKSUM_SHA256);
    g_checksum_update(checksum, reinterpret_cast<const guchar*>(text.data()),
                      static_cast<gssize>(text.size()));
    std::array<guint8, 32> digest{};
    gsize size = digest.size();
    g_checksum_get_digest(checksum, digest.data(), &size);
    g_checksum_free(checksum);
    return {reinterpret_cast<const char*>(digest.data()), 16};
}

std::string StoreEntryId(std::string_view store_address) {
    return Prefix(EntryKind::kStore) + Digest16(store_address);
}

std::string FolderEntryId(std::string_view store_address, std::string_view folder) {
    return Prefix(EntryKind::kFolder) + Digest16(store_address).substr(0, 8) +
           Digest16(folder).substr(0, 8) + std::string(8, '\0');
}

std::string MessageEntryId(std::string_view folder_id, std::string_view key, EntryKind kind) {
    return Prefix(kind) + std::string(folder_id.substr(kPrefixBytes + 2)) + std::string(key) +
           std::string(8, '\0');
}

std::optional<ParsedEntryId> ParseEntryId(std::string_view bytes) {
    if (bytes.size() < kPrefixBytes + 2 || bytes.substr(4, 16) != kProvider) return std::nullopt;
    for (const EntryKind kind :
         {EntryKind::kStore, EntryKind::kFolder, EntryKind::kMessage, EntryKind::kHidden}) {
        if (bytes[kPrefixBytes] != KindByte(kind)) continue;
        ParsedEntryId id;
        id.kind = kind;
        if (kind == EntryKind::kStore) {
            if (bytes.size() != kStoreBytes) return std::nullopt;
            return id;
        }
        if (bytes.size() != (kind == EntryKind::kFolder ? kFolderBytes : kMessageBytes)) {
            return std::nullopt;
        }
        id.folder_id = Prefix(EntryKind::kFolder) +
                       std::string(bytes.substr(kPrefixBytes + 2, kFolderBytes - kPrefixBytes - 2));
        if (kind != EntryKind::kFolder) id.key = bytes.substr(kFolderBytes, 16);
        return id;
    }
    return std::nullopt;
}

std::string ToHex(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

std::optional<std::string> FromHex(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int value = 0;
        for (const char c : text.substr(i, 2)) {
            const gint digit = g_ascii_xdigit_value(c);
            if (digit < 0) return std::nullopt;
            value = value * 16 + digit;
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

}  // namespace trevix::mime
