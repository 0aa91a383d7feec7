// A part's content that is fetched from the server when it is read first, and then kept.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix::imap {

// Fetches the whole content. May be called by any thread, and must keep alive what it needs.
using ContentFetcher = std::function<Result<Blob>()>;

// `beginning` is what is known already. Reading fails with the fetcher's error, and with kMalformed
// (8004011B) when the content has not the size that the structure says.
Blob MakePartContent(std::uint64_t size_bytes, std::optional<Blob> beginning,
                     ContentFetcher fetcher);

}  // namespace trevix::imap
