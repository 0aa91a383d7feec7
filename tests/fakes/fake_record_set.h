// FakeRecordSet: a record set in memory whose files lie in a FakeFileSystem.
//
// Knows the criterion FIELD=VALUE only, with the value plain or in single quotes.
#pragma once

#include <array>
#include <cstdio>
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
#include "util/text.h"

namespace trevix::fakes {

class FakeRecordSet final : public RecordSet {
 public:
    FakeRecordSet(FaultPlan& plan, FakeFileSystem& files) : plan_(plan), files_(files) {}

    Status Append(const std::string& name, FieldType type, int defined_size,
                  int attributes) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Append"));
        if (open_) return RuntimeError(kObjectOpen);
        if (list_ended_) fields_.clear();
        list_ended_ = false;
        const bool nullable = attributes != kFieldUnspecified &&
                              (attributes & (kFieldMayBeNull | kFieldIsNullable)) != 0;
        fields_.push_back({name, type, defined_size, nullable});
        return {};
    }
    Status Open() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Open"));
        if (open_) return RuntimeError(kObjectOpen);
        Start();
        rows.clear();
        return {};
    }
    Status OpenFile(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.OpenFile"));
        if (open_) return RuntimeError(kObjectOpen);
        list_ended_ = true;
        const auto file = files_.files.find(path);
        if (file == files_.files.end()) return RuntimeError(kFileCouldNotBeOpened, path);
        if (!Parse(file->second)) return RuntimeError(kFileCouldNotBeRead, path);
        Start();
        return {};
    }
    Status OpenBlob(const Blob& content) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.OpenBlob"));
        const auto text = content.ToString();
        if (!text.ok()) return text.error();
        if (!Parse(text.value())) return RuntimeError(kFileCouldNotBeRead);
        open_ = true;
        at_ = 0;
        return {};
    }
    Status Close() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Close"));
        if (!open_) return RuntimeError(kObjectClosed);
        open_ = false;
        list_ended_ = true;
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
    std::int64_t RecordCount() const override {
        std::int64_t count = 0;
        for (std::size_t at = 0; open_ && at < rows.size(); ++at)
            count += Shows(at) ? 1 : 0;
        return count;
    }

    Status MoveFirst() override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.MoveFirst"));
        GoTo(0);
        if (Eof()) return RuntimeError(kNoCurrentRecord);
        return {};
    }
    Status MoveNext() override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.MoveNext"));
        if (at_ >= rows.size() && !on_deleted_) return RuntimeError(kNoCurrentRecord);
        GoTo(on_deleted_ ? at_ : at_ + 1);
        return {};
    }
    Status MoveLast() override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.MoveLast"));
        on_deleted_ = false;
        at_ = rows.size();
        for (std::size_t at = rows.size(); at > 0 && at_ == rows.size(); --at) {
            if (Shows(at - 1)) at_ = at - 1;
        }
        if (Eof()) return RuntimeError(kNoCurrentRecord);
        return {};
    }
    bool Eof() const override { return !open_ || (at_ >= rows.size() && !adding_ && !on_deleted_); }

    Status Find(const std::string& criterion) override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.Find"));
        if (Eof()) return RuntimeError(kNoCurrentRecord);
        const Criterion wanted = Split(criterion);
        std::size_t at = at_;
        while (at < rows.size() && !(Shows(at) && Meets(at, wanted)))
            ++at;
        at_ = at;
        return {};
    }
    Status SetFilter(const std::string& criterion) override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.SetFilter"));
        filter_.reset();
        if (!criterion.empty()) filter_ = Split(criterion);
        GoTo(0);
        return {};
    }
    Status AddNew() override {
        TREVIX_RETURN_IF_ERROR(BeginMove("recordset.AddNew"));
        pending_.clear();
        for (const Field& field : fields_)
            pending_.push_back(DefaultOf(field));
        adding_ = true;
        on_deleted_ = false;
        refused_ = false;
        return {};
    }
    Status Update() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Update"));
        if (!open_) return RuntimeError(kObjectClosed);
        const bool refused = std::exchange(refused_, false);
        if (adding_ && !refused) {
            rows.push_back(pending_);
            at_ = rows.size() - 1;
        }
        adding_ = false;
        return refused ? Status(RuntimeError(kMultipleStep)) : Status();
    }
    Status CancelUpdate() override {
        adding_ = false;
        refused_ = false;
        return {};
    }
    Status Delete() override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Delete"));
        if (!open_) return RuntimeError(kObjectClosed);
        if (at_ >= rows.size() || on_deleted_) return RuntimeError(kNoCurrentRecord);
        rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(at_));
        on_deleted_ = true;
        return {};
    }

    Result<Variant> Get(const std::string& field) const override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Get"));
        if (IndexOf(field) >= fields_.size()) return RuntimeError(kItemNotFound);
        const Variant* value = CellAt(static_cast<int>(IndexOf(field)));
        if (value == nullptr) return RuntimeError(kNoCurrentRecord);
        return *value;
    }
    Status Set(const std::string& field, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("recordset.Set"));
        const std::size_t index = IndexOf(field);
        if (index >= fields_.size()) return RuntimeError(kItemNotFound);
        if (!adding_ && (at_ >= rows.size() || on_deleted_)) return RuntimeError(kNoCurrentRecord);
        auto cell = CellFor(fields_[index], value);
        if (!cell.ok()) {
            refused_ = refused_ || cell.error().number == kMultipleStep;
            return cell.error();
        }
        (adding_ ? pending_ : rows[at_])[index] = std::move(cell).value();
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
        for (std::size_t at = 0; at < rows.size(); ++at) {
            if (!Shows(at)) continue;
            text += "\n";
            for (const Variant& value : rows[at])
                text += CellText(value) + "|";
        }
        return text;
    }

    std::vector<std::vector<Variant>> rows;

 private:
    struct Field {
        std::string name;
        FieldType type;
        int defined_size = 0;
        bool nullable = false;
    };
    using Criterion = std::pair<std::string, std::string>;  // field and value

    void Start() {
        open_ = true;
        filter_.reset();
        adding_ = refused_ = on_deleted_ = false;
        at_ = 0;
    }
    static Criterion Split(const std::string& criterion) {
        const std::size_t equals = criterion.find('=');
        std::string value = criterion.substr(equals + 1);
        if (value.starts_with('\'')) value = value.substr(1, value.size() - 2);
        return {criterion.substr(0, equals), value};
    }
    bool Meets(std::size_t at, const Criterion& criterion) const {
        const std::size_t index = IndexOf(criterion.first);
        if (index >= fields_.size()) return false;
        const auto text = ToText(rows[at][index]);
        return text.ok() && EqualsNoCase(text.value(), criterion.second);
    }
    bool Shows(std::size_t at) const { return !filter_ || Meets(at, *filter_); }
    void GoTo(std::size_t at) {
        on_deleted_ = false;
        while (at < rows.size() && !Shows(at))
            ++at;
        at_ = at;
    }
    // What is being added is kept first; when that fails, nothing moves.
    Status BeginMove(const char* call) {
        TREVIX_RETURN_IF_ERROR(plan_.Enter(call));
        if (!open_) return RuntimeError(kObjectClosed);
        if (adding_ || refused_) return Update();
        return {};
    }
    const Variant* CellAt(int index) const {
        if (!open_ || index < 0 || index >= FieldCount()) return nullptr;
        const auto field = static_cast<std::size_t>(index);
        if (adding_) return &pending_[field];
        return at_ >= rows.size() || on_deleted_ ? nullptr : &rows[at_][field];
    }
    static Variant DefaultOf(const Field& field) {
        if (field.nullable) return Empty();
        switch (field.type) {
            case FieldType::kBstr: return std::string();
            case FieldType::kDate: return Date{};
            default: return std::int32_t{0};
        }
    }
    static Result<Variant> CellFor(const Field& field, const Variant& value) {
        if (IsEmpty(value)) {
            if (!field.nullable) return RuntimeError(kMultipleStep, field.name);
            return value;
        }
        if (field.type == FieldType::kBstr) {
            auto text = ToText(value);
            if (!text.ok()) return RuntimeError(kWrongType, field.name);
            const auto limit = static_cast<std::size_t>(field.defined_size);
            if (limit > 0 && Utf16Length(text.value()) > limit) {
                return RuntimeError(kMultipleStep, field.name);
            }
            return Variant(std::move(text).value());
        }
        if (field.type == FieldType::kDate) {
            auto date = ToDate(value);
            if (!date.ok()) return RuntimeError(kWrongType, field.name);
            return Variant(date.value());
        }
        const auto number = ToLong(value);
        if (!number.ok()) return RuntimeError(kWrongType, field.name);
        if (field.type == FieldType::kSmallInt &&
            (number.value() < -32768 || number.value() > 32767)) {
            return RuntimeError(kMultipleStep, field.name);
        }
        return Variant(number.value());
    }
    static std::string CellText(const Variant& value) {
        if (const Date* date = std::get_if<Date>(&value)) {
            std::array<char, 40> text{};
            std::snprintf(text.data(), text.size(), "%.17g", date->days);
            return text.data();
        }
        if (const auto* text = std::get_if<std::string>(&value)) return *text;
        if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
        return {};
    }
    static Variant CellValue(FieldType type, const std::string& text) {
        if (type == FieldType::kBstr) return text;
        if (text.empty()) return Empty();
        if (type == FieldType::kDate) return Date{std::stod(text)};
        return static_cast<std::int32_t>(std::stol(text));
    }
    bool Parse(const std::string& text) {
        if (!text.starts_with("RST")) return false;
        const std::vector<Field> appended = std::exchange(fields_, {});
        rows.clear();
        std::size_t start = 0;
        bool first = true;
        while (start <= text.size()) {
            const std::size_t end = std::min(text.find('\n', start), text.size());
            const std::string line = text.substr(start, end - start);
            first ? ParseFields(line, appended) : ParseRow(line);
            first = false;
            start = end + 1;
        }
        return true;
    }
    void ParseFields(const std::string& line, const std::vector<Field>& appended) {
        std::size_t at = line.find('|');
        while (at != std::string::npos) {
            const std::size_t end = line.find('|', at + 1);
            const std::string part = line.substr(at + 1, end - at - 1);
            const std::size_t colon = part.find(':');
            const std::string name = part.substr(0, colon);
            Field field{name, static_cast<FieldType>(std::stoi(part.substr(colon + 1)))};
            for (const Field& known : appended) {
                if (known.name == name)
                    field = {name, field.type, known.defined_size, known.nullable};
            }
            fields_.push_back(field);
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

    FaultPlan& plan_;
    FakeFileSystem& files_;
    std::vector<Field> fields_;
    std::vector<Variant> pending_;
    std::optional<Criterion> filter_;
    bool open_ = false;
    bool list_ended_ = false;
    bool adding_ = false;
    bool refused_ = false;
    bool on_deleted_ = false;  // the current record was deleted; `at_` is the one after it
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
