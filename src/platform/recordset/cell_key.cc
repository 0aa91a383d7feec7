#include "platform/recordset/cell_key.h"

#include <bit>
#include <cmath>

#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

std::uint32_t Mixed(std::uint64_t bits) {
    bits *= 0x9E3779B97F4A7C15U;
    bits ^= bits >> 32;
    bits *= 0x9E3779B97F4A7C15U;
    return static_cast<std::uint32_t>(bits >> 32);
}

template <typename T>
int Order(const T& left, const T& right) {
    if (left == right) return 0;
    return left < right ? -1 : 1;
}

}  // namespace

CellKey CellKey::OfNumber(double number) {
    CellKey key;
    if (std::isnan(number)) return key;
    key.kind = Kind::kNumber;
    key.number = number == 0 ? 0 : number;  // one zero
    key.hash = Mixed(std::bit_cast<std::uint64_t>(key.number));
    return key;
}

CellKey CellKey::OfDate(double days) {
    CellKey key;
    // Far outside of all dates; also keeps the conversion below in range.
    if (!(std::fabs(days) < 1e9)) return key;
    key.kind = Kind::kSeconds;
    // Before the zero day the whole part counts back and the fraction still forward.
    const double whole = std::trunc(days);
    key.seconds =
        static_cast<std::int64_t>(whole) * 86400 + std::llround(std::fabs(days - whole) * 86400);
    key.hash = Mixed(static_cast<std::uint64_t>(key.seconds));
    return key;
}

CellKey CellKey::OfText(std::string_view text, std::uint32_t folded_hash) {
    CellKey key;
    key.kind = Kind::kText;
    key.text = text;
    key.hash = folded_hash;
    return key;
}

CellKey KeyOf(const Table& table, const std::uint8_t* image, std::size_t column) {
    const Column& described = table.columns()[column];
    if (Table::IsNull(image, column)) return {};
    switch (described.kind) {
        case CellKind::kInt16:
            return CellKey::OfNumber(Table::Load<std::int16_t>(image, described));
        case CellKind::kInt32:
            return CellKey::OfNumber(Table::Load<std::int32_t>(image, described));
        case CellKind::kBoolean:
            // True is -1, as in arithmetic.
            return CellKey::OfNumber(Table::Load<std::int16_t>(image, described) != 0 ? -1 : 0);
        case CellKind::kDouble: return CellKey::OfNumber(Table::Load<double>(image, described));
        case CellKind::kDate: return CellKey::OfDate(Table::Load<double>(image, described));
        case CellKind::kText: {
            const auto id = Table::Load<TextId>(image, described);
            return CellKey::OfText(table.pool().View(id), table.pool().Hash(id));
        }
        case CellKind::kBytes: break;
    }
    return {};
}

bool KeysEqual(const CellKey& left, const CellKey& right) {
    return left.kind == right.kind && left.kind != CellKey::Kind::kNone &&
           left.hash == right.hash && CompareKeys(left, right) == 0;
}

int CompareKeys(const CellKey& left, const CellKey& right) {
    if (left.kind == CellKey::Kind::kNumber) return Order(left.number, right.number);
    if (left.kind == CellKey::Kind::kSeconds) return Order(left.seconds, right.seconds);
    return FoldedCompare(left.text, right.text);
}

}  // namespace trevix::recordset
