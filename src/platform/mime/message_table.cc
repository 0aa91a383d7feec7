#include "platform/mime/message_table.h"

#include <algorithm>

#include "platform/mime/row_set.h"

namespace trevix::mime {
namespace {

class TableOverRows final : public MessageTable {
 public:
    Status SetSource(Messages& messages) override {
        auto* source = dynamic_cast<RowSource*>(&messages);
        if (source == nullptr) return MessagingError(kInvalidParameter);
        std::vector<std::uint32_t> order;
        auto rows = source->Rows(&order);
        if (!rows.ok()) return rows.error();
        rows_ = std::move(rows).value();
        order_ = std::move(order);
        next_ = 0;
        return {};
    }

    Status SetColumns(const std::vector<PropertyTag>& tags) override {
        columns_ = tags;
        return {};
    }

    Status Restrict(PropertyTag tag, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(CheckFilterTag(tag));
        if (rows_ == nullptr) return MessagingError(kNotInitialized);
        KeepMatching(*rows_, {tag, value}, &order_);
        next_ = 0;
        return {};
    }

    Status Sort(int order, PropertyTag tag) override {
        TREVIX_RETURN_IF_ERROR(CheckFilterTag(tag));
        if (rows_ == nullptr) return MessagingError(kNotInitialized);
        SortRows(*rows_, order, tag, &order_);
        next_ = 0;
        return {};
    }

    Result<std::int32_t> RowCount() override {
        if (rows_ == nullptr) return MessagingError(kNotInitialized);
        return static_cast<std::int32_t>(order_.size());
    }

    Result<std::vector<std::vector<Variant>>> GetRows(std::int32_t count) override {
        if (rows_ == nullptr) return MessagingError(kNotInitialized);
        std::vector<std::vector<Variant>> result;
        const std::size_t wanted = count < 0 ? 0 : static_cast<std::size_t>(count);
        const std::size_t end = std::min(order_.size(), next_ + wanted);
        if (next_ == 0 && end == order_.size()) rows_->Taken(order_);
        result.reserve(end - next_);
        for (; next_ < end; ++next_) {
            std::vector<Variant>& row = result.emplace_back();
            row.reserve(columns_.size());
            for (const PropertyTag tag : columns_)
                row.push_back(rows_->Cell(order_[next_], tag));
        }
        return result;
    }

 private:
    std::shared_ptr<const RowSet> rows_;
    std::vector<std::uint32_t> order_;
    std::vector<PropertyTag> columns_;
    std::size_t next_ = 0;
};

}  // namespace

std::unique_ptr<MessageTable> MakeMessageTable() {
    return std::make_unique<TableOverRows>();
}

}  // namespace trevix::mime
