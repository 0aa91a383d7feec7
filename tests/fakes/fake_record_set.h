// FakeRecordSet: a record set in memory whose files lie in a FakeFileSystem.
//
// Knows the criterion FIELD=VALUE only, with the value plain or in single quotes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fakes/fake_file_system.h"
#include "fakes/fault_plan.h"
#include "platform/record_set.h"
#include "util/convert.h"

namespace trevix::fakes {

class FakeRecordSet final : public RecordSet {
 public:
    FakeRecordSet(FaultPlan& plan, FakeFileSystem& files) : plan_(plan), files_(files) {}

    Status Append(const std::string& name, FieldType type, int /*defined_size*/,
                  int /*attributes*/) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Append"));
        if (open_) return RuntimeError(kObjectOpen);
        fields_.push_back({name, type});
        return {};
    }
    Status Open() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Open"));
        open_ = true;
        return {};
    }
    Status OpenFile(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.OpenFile"));
        const auto file = files_.files.find(path);
        if (file == files_.files.end()) return RuntimeError(kFileCouldNotBeOpened, path);
        if (!Parse(file->second)) return RuntimeError(kFileCouldNotBeRead, path);
        open_ = true;
        at_ = 0;
        return {};
    }
    Status Close() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Close"));
        open_ = false;
        return {};
    }
    int State() const override { return open_ ? kStateOpen : kStateClosed; }
    int FieldCount() const override { return static_cast<int>(fields_.size()); }
    std::string FieldName(int index) const override {
        return fields_.at(static_cast<std::size_t>(index)).name;
    }
    FieldType FieldTypeAt(int index) const override {
        return fields_.at(static_cast<std::size_t>(index)).type;
    }
    std::int64_t RecordCount() const override { return static_cast<std::int64_t>(rows.size()); }

    Status MoveFirst() override { return MoveTo("recordset.MoveFirst", 0); }
    Status MoveNext() override { return MoveTo("recordset.MoveNext", at_ + 1); }
    Status MoveLast() override {
        return MoveTo("recordset.MoveLast", rows.empty() ? 0 : rows.size() - 1);
    }
    bool Eof() const override { return at_ >= rows.size(); }

    Status Find(const std::string& criterion) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Find"));
        const std::size_t equals = criterion.find('=');
        const std::string field = criterion.substr(0, equals);
        std::string value = criterion.substr(equals + 1);
        if (value.starts_with('\'')) value = value.substr(1, value.size() - 2);
        for (; at_ < rows.size(); ++at_) {
            auto text = ToText(rows[at_][IndexOf(field)]);
            if (text.ok() && text.value() == value) break;
        }
        return {};
    }
    Status SetFilter(const std::string& /*criterion*/) override {
        return RuntimeError(kNotAllowedInContext);
    }
    Status AddNew() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.AddNew"));
        pending_.clear();
        for (const Field& field : fields_)
            pending_.push_back(DefaultOf(field.type));
        adding_ = true;
        return {};
    }
    Status Update() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Update"));
        if (adding_) {
            rows.push_back(pending_);
            at_ = rows.size() - 1;
        }
        adding_ = false;
        return {};
    }
    Status CancelUpdate() override {
        adding_ = false;
        return {};
    }
    Status Delete() override { return RuntimeError(kNotAllowedInContext); }

    Result<Variant> Get(const std::string& field) const override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Get"));
        if (IndexOf(field) >= fields_.size()) return RuntimeError(kItemNotFound);
        if (Eof()) return RuntimeError(kNoCurrentRecord);
        return rows[at_][IndexOf(field)];
    }
    Status Set(const std::string& field, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Set"));
        if (IndexOf(field) >= fields_.size()) return RuntimeError(kItemNotFound);
        if (adding_) {
            pending_[IndexOf(field)] = value;
        } else if (!Eof()) {
            rows[at_][IndexOf(field)] = value;
        } else {
            return RuntimeError(kNoCurrentRecord);
        }
        return {};
    }
    std::string_view TextAt(int index) const override {
        const Variant* value = CellAt(index);
        const auto* text = value == nullptr ? nullptr : std::get_if<std::string>(value);
        return text == nullptr ? std::string_view() : *text;
    }
    std::optional<double> NumberAt(int index) const override {
        const Variant* value = CellAt(index);
        if (value == nullptr || IsEmpty(*value) || std::holds_alternative<std::string>(*value)) {
            return std::nullopt;
        }
        if (const auto* date = std::get_if<Date>(value)) return date->days;
        const auto number = ToDouble(*value);
        return number.ok() ? std::optional<double>(number.value()) : std::nullopt;
    }
    Status Save(const std::string& path, int /*format*/) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Save"));
        if (!open_) return RuntimeError(kObjectClosed);
        if (files_.files.contains(path)) return RuntimeError(kFileExists, path);
        files_.Put(path, Format());
        return {};
    }

    // The file form: a line of fields, then a line a row; for tests to write by hand as well.
    std::string Format() const {
        std::string text = "RST";
        for (const Field& field : fields_) {
            text += "|" + field.name + ":" + std::to_string(static_cast<int>(field.type));
        }
        for (const auto& row : rows) {
            text += "\n";
            for (const Variant& value : row)
                text += CellText(value) + "|";
        }
        return text;
    }

    std::vector<std::vector<Variant>> rows;

 private:
    struct Field {
        std::string name;
        FieldType type;
    };

    const Variant* CellAt(int index) const {
        if (!open_ || Eof() || index < 0 || index >= FieldCount()) return nullptr;
        const auto field = static_cast<std::size_t>(index);
        return adding_ ? &pending_[field] : &rows[at_][field];
    }
    static Variant DefaultOf(FieldType type) {
        switch (type) {
            case FieldType::kBstr: return std::string();
            case FieldType::kDate: return Date{};
            default: return std::int32_t{0};
        }
    }
    static std::string CellText(const Variant& value) {
        if (const Date* date = std::get_if<Date>(&value)) return std::to_string(date->days);
        if (const auto* text = std::get_if<std::string>(&value)) return *text;
        if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
        return {};
    }
    static Variant CellValue(FieldType type, const std::string& text) {
        if (type == FieldType::kBstr) return text;
        if (type == FieldType::kDate) return Date{std::stod(text)};
        return static_cast<std::int32_t>(std::stol(text));
    }
    bool Parse(const std::string& text) {
        if (!text.starts_with("RST")) return false;
        fields_.clear();
        rows.clear();
        std::size_t start = 0;
        bool first = true;
        while (start <= text.size()) {
            const std::size_t end = std::min(text.find('\n', start), text.size());
            const std::string line = text.substr(start, end - start);
            first ? ParseFields(line) : ParseRow(line);
            first = false;
            start = end + 1;
        }
        return true;
    }
    void ParseFields(const std::string& line) {
        std::size_t at = line.find('|');
        while (at != std::string::npos) {
            const std::size_t end = line.find('|', at + 1);
            const std::string part = line.substr(at + 1, end - at - 1);
            const std::size_t colon = part.find(':');
            fields_.push_back(
                {part.substr(0, colon), static_cast<FieldType>(std::stoi(part.substr(colon + 1)))});
            at = end;
        }
    }
    void ParseRow(const std::string& line) {
        std::vector<Variant> row;
        std::size_t start = 0;
        for (const Field& field : fields_) {
            const std::size_t end = line.find('|', start);
            row.push_back(CellValue(field.type, line.substr(start, end - start)));
            start = end + 1;
        }
        rows.push_back(std::move(row));
    }
    std::size_t IndexOf(const std::string& field) const {
        std::size_t index = 0;
        while (index < fields_.size() && fields_[index].name != field)
            ++index;
        return index;
    }
    Status MoveTo(const char* call, std::size_t at) {
        TREVIX_RETURN_IF_ERROR(plan_.Enter(call));
        if (!open_) return RuntimeError(kObjectClosed);
        if (rows.empty()) return RuntimeError(kNoCurrentRecord);
        at_ = at;
        return {};
    }

    FaultPlan& plan_;
    FakeFileSystem& files_;
    std::vector<Field> fields_;
    std::vector<Variant> pending_;
    bool open_ = false;
    bool adding_ = false;
    std::size_t at_ = 0;
};

class FakeRecordSetFactory final : public RecordSetFactory {
 public:
    FakeRecordSetFactory(FaultPlan& plan, FakeFileSystem& files) : plan_(plan), files_(files) {}
    Result<std::unique_ptr<RecordSet>> CreateRecordSet() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.CreateRecordSet"));
        return std::unique_ptr<RecordSet>(std::make_unique<FakeRecordSet>(plan_, files_));
    }

 private:
    FaultPlan& plan_;
    FakeFileSystem& files_;
};

}  // namespace trevix::fakes
