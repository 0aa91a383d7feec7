#include "platform/mime/row_set.h"

#include <algorithm>
#include <numeric>
#include <string>

#include "platform/mime/ascii.h"

namespace trevix::mime {
namespace {

bool Matches(const Variant& cell, const Variant& value) {
    const auto* cell_text = std::get_if<std::string>(&cell);
    const auto* value_text = std::get_if<std::string>(&value);
    if (cell_text != nullptr && value_text != nullptr) {
        return EqualsIgnoringCase(*cell_text, *value_text);
    }
    if (const auto* cell_flag = std::get_if<bool>(&cell)) {
        // Automation callers hand a Boolean over as a number now and then.
        if (const auto* number = std::get_if<std::int16_t>(&value))
            return *cell_flag == (*number != 0);
        if (const auto* number = std::get_if<std::int32_t>(&value))
            return *cell_flag == (*number != 0);
        const auto* flag = std::get_if<bool>(&value);
        return flag != nullptr && *flag == *cell_flag;
    }
    if (const auto* cell_date = std::get_if<Date>(&cell)) {
        const auto* date = std::get_if<Date>(&value);
        return date != nullptr && *date == *cell_date;
    }
    if (const auto* cell_number = std::get_if<std::int32_t>(&cell)) {
        const auto* number = std::get_if<std::int32_t>(&value);
        return number != nullptr && *number == *cell_number;
    }
    return false;
}

struct SortKey {
    double number = 0;
    std::string text;
    std::uint32_t row = 0;
};

SortKey KeyOf(const Variant& cell, std::uint32_t row) {
    SortKey key;
    key.row = row;
    if (const auto* date = std::get_if<Date>(&cell)) key.number = date->days;
    if (const auto* number = std::get_if<std::int32_t>(&cell)) key.number = *number;
    if (const auto* flag = std::get_if<bool>(&cell)) key.number = *flag ? 1 : 0;
    if (const auto* text = std::get_if<std::string>(&cell)) key.text = AsciiLower(*text);
    return key;
}

bool Before(const SortKey& a, const SortKey& b) {
    if (a.number != b.number) return a.number < b.number;
    return a.text < b.text;
}

}  // namespace

Status CheckFilterTag(PropertyTag tag) {
    switch (CanonicalTag(tag)) {
        case kTagHasAttachments:
        case kTagMessageClass:
        case kTagSubject:
        case kTagLastModification:
        case kTagDeliveryTime:
        case kTagArticleNumber: return {};
        default: return MessagingError(kTooComplex);
    }
}

void KeepMatching(const RowSet& rows, const RowFilter& filter, std::vector<std::uint32_t>* order) {
    const PropertyTag tag = CanonicalTag(filter.tag);
    std::erase_if(*order,
                  [&](std::uint32_t row) { return !Matches(rows.Cell(row, tag), filter.value); });
}

void SortRows(const RowSet& rows, int sort_order, PropertyTag tag,
              std::vector<std::uint32_t>* order) {
    if (sort_order != kSortAscending && sort_order != kSortDescending) return;
    std::vector<SortKey> keys;
    keys.reserve(order->size());
    for (const std::uint32_t row : *order)
        keys.push_back(KeyOf(rows.Cell(row, CanonicalTag(tag)), row));
    if (sort_order == kSortAscending) {
        std::stable_sort(keys.begin(), keys.end(), Before);
    } else {
        std::stable_sort(keys.begin(), keys.end(),
                         [](const SortKey& a, const SortKey& b) { return Before(b, a); });
    }
    for (std::size_t i = 0; i < keys.size(); ++i)
        (*order)[i] = keys[i].row;
}

Status RowMessages::AddFilter(PropertyTag tag, const Variant& value) {
    TREVIX_RETURN_IF_ERROR(CheckFilterTag(tag));
    filters_.push_back({tag, value});
    return {};
}

Status RowMessages::ClearFilter() {
    filters_.clear();
    return {};
}

Status RowMessages::Sort(int order, PropertyTag tag) {
    TREVIX_RETURN_IF_ERROR(CheckFilterTag(tag));
    sort_order_ = order;
    sort_tag_ = tag;
    return {};
}

// A count needs no order.
Result<std::int32_t> RowMessages::Count() {
    std::vector<std::uint32_t> order;
    const auto rows = Filtered(&order);
    if (!rows.ok()) return rows.error();
    return static_cast<std::int32_t>(order.size());
}

Result<std::shared_ptr<const RowSet>> RowMessages::Rows(std::vector<std::uint32_t>* order) {
    auto rows = Filtered(order);
    if (rows.ok()) SortRows(*rows.value(), sort_order_, sort_tag_, order);
    return rows;
}

Result<std::shared_ptr<const RowSet>> RowMessages::Filtered(std::vector<std::uint32_t>* order) {
    auto rows = AllRows();
    if (!rows.ok()) return rows;
    order->resize(rows.value()->size());
    std::iota(order->begin(), order->end(), std::uint32_t{0});
    for (const RowFilter& filter : filters_)
        KeepMatching(*rows.value(), filter, order);
    return rows;
}

}  // namespace trevix::mime
