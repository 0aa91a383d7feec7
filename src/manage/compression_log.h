// The HTML compression log: one row a folder, a total row and the time of completion.
//
// The pieces are texts of the stored document and stand exactly as clients know them, with their
// quotes, blanks and spelling. Folder names are inserted without escaping, deliberately.
#pragma once

#include <cstdint>
#include <string>

#include "platform/variant.h"

namespace trevix {

std::string CompressionLogHeader(Date now);
std::string CompressionLogRow(const std::string& folder_path, std::int32_t count,
                              std::int32_t original_bytes, std::int32_t compressed_bytes,
                              std::int32_t percentage);
std::string CompressionLogTotal(std::int32_t count, std::int32_t original_bytes,
                                std::int32_t compressed_bytes, std::int32_t percentage);
std::string CompressionLogClosing(Date now);

// Share of the bytes that compression saved, cut to a whole number; never negative, 0 of nothing.
std::int32_t SavedPercentage(std::int32_t original_bytes, std::int32_t compressed_bytes);

}  // namespace trevix
