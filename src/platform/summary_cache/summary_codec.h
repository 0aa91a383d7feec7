// Summaries as bytes, in pieces that stay the same when messages around them come and go.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/summary_cache.h"

namespace trevix::summary_cache {

// Some consecutive messages of a folder. Where a piece ends depends on the keys of its messages
// alone, so a message more or less changes one piece and leaves the others as they are.
struct SummaryPiece {
    std::string bytes;
    std::uint64_t hash = 0;
};

std::vector<SummaryPiece> EncodeSummaries(const std::vector<MessageSummary>& messages);

// Appends the messages of a piece; false when the bytes are damaged.
bool DecodeSummaries(std::string_view bytes, std::vector<MessageSummary>* messages);

// 64 bits of `bytes`; not meant to withstand an enemy.
std::uint64_t HashBytes(std::string_view bytes);

}  // namespace trevix::summary_cache
