// Entry IDs: fixed-size bytes that name a store, a folder or a message, and their text.
//
//   store    38 bytes: flags 4, provider 16, kind 2, store digest 16
//   folder   46 bytes: flags 4, provider 16, kind 2, store digest 8, folder digest 8, zeros 8
//   message  70 bytes: flags 4, provider 16, kind 2, folder (8 + 8), zeros 8, key 16, zeros 8
//
// Names of mail files are too long for an ID, so digests stand for them (SHA-256, its beginning)
// and are resolved through a listing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace trevix::mime {

enum class EntryKind { kStore, kFolder, kMessage, kHidden };

// The first 16 bytes of the SHA-256 of `text`.
std::string Digest16(std::string_view text);

std::string StoreEntryId(std::string_view store_address);
// `folder` is the folder's path; the root of a store is not a path and has kRootFolder.
std::string FolderEntryId(std::string_view store_address, std::string_view folder);
// `key` is 16 bytes: the digest of a message's key, or a hidden message's ID.
std::string MessageEntryId(std::string_view folder_id, std::string_view key, EntryKind kind);

// Stands for the root, which no folder path can be.
inline constexpr std::string_view kRootFolder = "\x01root";

struct ParsedEntryId {
    EntryKind kind = EntryKind::kStore;
    std::string folder_id;  // of a message: the ID of its folder
    std::string key;        // of a message: 16 bytes
};

// Nothing when the bytes are no ID of ours.
std::optional<ParsedEntryId> ParseEntryId(std::string_view bytes);

std::string ToHex(std::string_view bytes);                  // upper case
std::optional<std::string> FromHex(std::string_view text);  // either case

}  // namespace trevix::mime
