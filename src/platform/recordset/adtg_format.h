// The constants of ADTG files: tokens, type numbers, column flags.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trevix::recordset {

inline constexpr std::uint8_t kTokenHeader = 0x01;
inline constexpr std::uint8_t kTokenHandlerOptions = 0x02;
inline constexpr std::uint8_t kTokenResultDescriptor = 0x03;
inline constexpr std::uint8_t kTokenTable = 0x05;
inline constexpr std::uint8_t kTokenColumn = 0x06;
inline constexpr std::uint8_t kTokenRow = 0x07;
inline constexpr std::uint8_t kTokenChange = 0x0A;
inline constexpr std::uint8_t kTokenDelete = 0x0C;
inline constexpr std::uint8_t kTokenInsert = 0x0D;
inline constexpr std::uint8_t kTokenDone = 0x0F;
inline constexpr std::uint8_t kTokenContext = 0x10;
inline constexpr std::uint8_t kTokenChildBit = 0x80;

inline constexpr std::uint16_t kDbI2 = 0x02;
inline constexpr std::uint16_t kDbI4 = 0x03;
inline constexpr std::uint16_t kDbR8 = 0x05;
inline constexpr std::uint16_t kDbDate = 0x07;
inline constexpr std::uint16_t kDbBstr = 0x08;
inline constexpr std::uint16_t kDbBool = 0x0B;
inline constexpr std::uint16_t kDbBytes = 0x80;
inline constexpr std::uint16_t kDbStr = 0x81;
inline constexpr std::uint16_t kDbWstr = 0x82;
inline constexpr std::uint16_t kDbChapter = 0x88;
inline constexpr std::uint16_t kDbVarNumeric = 0x8B;

inline constexpr std::uint32_t kFlagWrite = 0x04;
inline constexpr std::uint32_t kFlagFixed = 0x10;
inline constexpr std::uint32_t kFlagLong = 0x80;
inline constexpr std::uint32_t kFlagChapter = 0x2000;

inline constexpr std::uint32_t kNoMaxLength = 0xFFFFFFFF;

// Bounds against files that are made to exhaust memory.
inline constexpr std::size_t kMaxColumns = 4096;
inline constexpr std::size_t kMaxFixedCellBytes = 65535;
inline constexpr std::size_t kMaxCellBytes = std::size_t{256} << 20;

// Bit maps: item 0 is the most significant bit of the first byte.
inline std::size_t MapBytes(std::size_t items) {
    return (items + 7) / 8;
}
inline bool MapBit(const std::uint8_t* map, std::size_t item) {
    return (map[item / 8] & (0x80U >> (item % 8))) != 0;
}
inline void SetMapBit(std::uint8_t* map, std::size_t item) {
    map[item / 8] = static_cast<std::uint8_t>(map[item / 8] | (0x80U >> (item % 8)));
}
inline void ClearMapBit(std::uint8_t* map, std::size_t item) {
    map[item / 8] = static_cast<std::uint8_t>(map[item / 8] & ~(0x80U >> (item % 8)));
}

}  // namespace trevix::recordset
