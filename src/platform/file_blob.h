// A Blob over a file: the bytes are read on demand, and stay readable after the file was deleted.
//
// This is a helper that adapters share, not a port: it needs POSIX. Adapters
// (src/platform/<folder>) and only adapters may include it; the core receives the Blobs.
//
// Files of up to 64 KiB are read into memory at once, so that a thousand small Blobs do not hold a
// thousand descriptors. Larger ones keep the descriptor and give it out (Blob::descriptor).
#pragma once

#include <cstdint>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix {

enum class FollowLinks { kNo, kYes };

// The bytes of the regular file `path`, as long as it is now. Errors are SystemError's; what is
// not a regular file is 75, and opening it never blocks.
Result<Blob> OpenFileBlob(const std::string& path, FollowLinks follow);

// The same for `name` in the open directory `directory`.
Result<Blob> OpenFileBlob(int directory, const std::string& name, FollowLinks follow);

// The first `size_bytes` bytes of an open file. A file that turns out to be shorter is kChanged,
// here or when the missing bytes are read.
Result<Blob> BlobFromDescriptor(UniqueDescriptor descriptor, std::uint64_t size_bytes);

// The same without reading anything yet, whatever the size; it cannot fail. With an invalid
// descriptor every read fails.
Blob BlobOverDescriptor(UniqueDescriptor descriptor, std::uint64_t size_bytes);

// Exactly `count` bytes from `offset`; kChanged when the file ends before them.
Status ReadFully(int descriptor, std::uint64_t offset, char* target, std::size_t count);

}  // namespace trevix
