// The rows of a message collection, as tables and filters see them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/messaging.h"
#include "platform/variant.h"

namespace trevix::mime {

// Types 0x001E and 0x001F name the same property; the tags of this program have the first.
inline PropertyTag CanonicalTag(PropertyTag tag) {
    return (tag & 0xFFFFU) == 0x001FU ? tag - 1 : tag;
}

class RowSet {
 public:
    virtual ~RowSet() = default;
    virtual std::size_t size() const = 0;
    // The property of a row (by its original position); an ErrorValue when the row lacks it.
    virtual Variant Cell(std::size_t row, PropertyTag tag) const = 0;
    // Somebody took all rows of a table in this order, and will probably open them so.
    virtual void Taken(const std::vector<std::uint32_t>& /*order*/) const {}
};

// Implemented by every message collection of this adapter.
class RowSource {
 public:
    virtual ~RowSource() = default;
    // The rows and the order and choice of them that filter and sort make.
    virtual Result<std::shared_ptr<const RowSet>> Rows(std::vector<std::uint32_t>* order) = 0;
};

// A choice of rows by one property.
struct RowFilter {
    PropertyTag tag = 0;
    Variant value;
};

// kTooComplex for a property that has no rule.
Status CheckFilterTag(PropertyTag tag);
void KeepMatching(const RowSet& rows, const RowFilter& filter, std::vector<std::uint32_t>* order);
void SortRows(const RowSet& rows, int sort_order, PropertyTag tag,
              std::vector<std::uint32_t>* order);

// A message collection whose rows are filtered and sorted here; what the rows are is for the
// derived class to say.
class RowMessages : public Messages, public RowSource {
 public:
    Status AddFilter(PropertyTag tag, const Variant& value) override;
    Status ClearFilter() override;
    Status Sort(int order, PropertyTag tag) override;
    Result<std::int32_t> Count() override;
    Result<std::shared_ptr<const RowSet>> Rows(std::vector<std::uint32_t>* order) override;

 protected:
    // All rows of the collection, as they are now.
    virtual Result<std::shared_ptr<const RowSet>> AllRows() = 0;

 private:
    Result<std::shared_ptr<const RowSet>> Filtered(std::vector<std::uint32_t>* order);

    std::vector<RowFilter> filters_;
    int sort_order_ = kSortNone;
    PropertyTag sort_tag_ = kTagLastModification;
};

}  // namespace trevix::mime
