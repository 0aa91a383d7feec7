#include "util/reg_op.h"

#include "util/convert.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr auto kDefaultRoot = static_cast<std::int32_t>(kCurrentUser);
constexpr auto kFirstRoot = static_cast<std::int32_t>(kClassesRoot);
constexpr auto kLastRoot = static_cast<std::int32_t>(kLocalMachine);
constexpr std::int32_t kAllOptions = 15;
constexpr int kEnvironmentEntries = 100;
constexpr std::size_t kExpansionBytes = 1024;
constexpr const char* kUnsupportedFormat = "(unsupported data format)";

std::string TrimAtNull(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

std::string TrimAtDoubleNull(const std::string& text) {
    return text.substr(0, text.find(std::string(2, '\0')));
}

// The text of multi-text data. A buffer has one byte more than the longest data, so that data with
// only one NUL at its end is complete as well.
std::string MultiText(const std::string& data) {
    const std::string text = TrimAtDoubleNull(data + '\0');
    return text.size() > data.size() ? data : text;
}

std::string Joined(const StringArray& items) {
    std::string text;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) text += '\0';
        text += items[i];
    }
    return text;
}

std::string DwordData(std::int32_t number) {
    auto bits = static_cast<std::uint32_t>(number);
    std::string data;
    for (int i = 0; i < 4; ++i, bits >>= 8U)
        data += static_cast<char>(bits & 0xFFU);
    return data;
}

bool IsWholeNumber(const Variant& value) {
    return std::holds_alternative<std::int16_t>(value) ||
           std::holds_alternative<std::int32_t>(value);
}

bool IsNumeric(const Variant& value) {
    return IsWholeNumber(value) || std::holds_alternative<double>(value) ||
           std::holds_alternative<bool>(value);
}

// False, with `value` as it was, when it has no text form.
bool MakeText(Variant& value) {
    Result<std::string> text = ToText(value);
    if (!text.ok()) return false;
    value = std::move(text).value();
    return true;
}

bool MakeLong(Variant& value) {
    const Result<std::int32_t> number = ToLong(value);
    if (!number.ok()) return false;
    value = number.value();
    return true;
}

}  // namespace

RegOp::RegOp(Registry& registry, Environment& environment, ShowError show_error)
    : registry_(registry),
      environment_(environment),
      show_error_(std::move(show_error)),
      root_(kDefaultRoot) {}

void RegOp::Root(std::int32_t root) {
    // Deliberate: a root outside the three is not refused, the default only stands in for it while
    // the two are compared.
    if (root < kFirstRoot || root > kLastRoot) root_ = kDefaultRoot;
    if (root != root_) {
        root_ = root;
        if (!key_name_.empty()) OpenKey(root_, key_name_);
    }
    root_ = root;
}

void RegOp::Key(const std::string& key) {
    if (key.empty()) return;
    if (key_name_.empty()) {
        key_name_ = key;
    } else if (!EqualsNoCase(key, key_name_)) {
        key_name_ = key;
        OpenKey(root_, key_name_);
    }
}

void RegOp::Options(std::int32_t options) {
    if (options >= 0 && options <= kAllOptions) options_ = options;
}

void RegOp::OpenKey(std::int32_t root, const std::string& key) {
    CloseKey();
    // Also when the opening fails: values of the key that was open before are not this key's.
    cache_.clear();
    if (root == 0) root = kDefaultRoot;
    auto opened = registry_.CreateKey(static_cast<std::uint32_t>(root), key, requested_access_);
    if (!opened.ok()) return;
    key_ = std::move(opened).value();
    info_ = {};
    QueryInfo();
    open_access_ = requested_access_;
}

bool RegOp::EnsureKeyOpen() {
    if (key_name_.empty()) {
        ReportError("No Key name specified!");
        return false;
    }
    if (key_ != nullptr && open_access_ != requested_access_) CloseKey();
    if (key_ == nullptr) OpenKey(root_, key_name_);
    if (key_ != nullptr) return true;
    ReportError("Could not open Registry Key!");
    return false;
}

void RegOp::CloseKey() {
    key_.reset();
    open_access_ = 0;
}

// A query that fails leaves the last figures.
void RegOp::QueryInfo() {
    const Result<RegistryKeyInfo> info = key_->QueryInfo();
    if (info.ok()) info_ = info.value();
}

void RegOp::LoadValues() {
    if (key_name_.empty()) {
        ReportError("No Key name specified!");
        return;
    }
    RequestAccess(kKeyRead);
    if (!EnsureKeyOpen() || info_.values <= 0) return;
    cache_.clear();
    for (std::int32_t index = 0; index < info_.values; ++index)
        LoadValue(index);
}

// The buffers are as large as the longest name and data when the key was opened; what has become
// longer since is not read.
bool RegOp::FitsBuffers(const RegistryValue& value) const {
    return value.name.size() <= static_cast<std::size_t>(info_.longest_value_name) &&
           value.data.size() <= static_cast<std::size_t>(info_.longest_value_data) + 1;
}

void RegOp::LoadValue(std::int32_t index) {
    const Result<RegistryValue> read = key_->EnumValue(index);
    if (!read.ok() || !FitsBuffers(read.value())) return;
    const std::string name = TrimAtNull(read.value().name);
    const std::string& data = read.value().data;
    switch (read.value().type) {
        case kRegSz: Keep(name, TrimAtNull(data)); break;
        case kRegExpandSz:
            Keep(name, (options_ & kExpandEnvironment) != 0 ? ExpandEnvironment(TrimAtNull(data))
                                                            : TrimAtNull(data));
            break;
        case kRegDword: Keep(name, DwordAt(index)); break;
        case kRegMultiSz:
            if ((options_ & kMultiTextAsArray) != 0) {
                Keep(name, Split(MultiText(data), std::string(1, '\0')));
            } else {
                Keep(name, MultiText(data));
            }
            break;
        default: Keep(name, std::string(kUnsupportedFormat)); break;
    }
}

// A number is read once more, into four bytes; Empty when that fails.
Variant RegOp::DwordAt(std::int32_t index) {
    const Result<RegistryValue> again = key_->EnumValue(index);
    if (!again.ok() || again.value().data.size() > 4) return {};
    std::uint32_t bits = 0;
    for (std::size_t i = again.value().data.size(); i-- > 0;) {
        bits = bits << 8U | static_cast<unsigned char>(again.value().data[i]);
    }
    return static_cast<std::int32_t>(bits);
}

void RegOp::Keep(const std::string& name, Variant value) {
    if (IsEmpty(value)) return;
    for (auto& [known, item] : cache_) {
        if (EqualsNoCase(known, name)) {
            item = std::move(value);
            return;
        }
    }
    cache_.emplace_back(name, std::move(value));
}

const Variant* RegOp::Cached(const std::string& name) const {
    for (const auto& [known, item] : cache_) {
        if (EqualsNoCase(known, name)) return &item;
    }
    return nullptr;
}

Variant RegOp::Value(const std::string& value_name) {
    if (cache_.empty()) LoadValues();
    const Variant* value = Cached(value_name);
    return value == nullptr ? Variant() : *value;
}

void RegOp::Value(const std::string& value_name, const Variant& value) {
    if (IsEmpty(value)) return;
    RequestAccess(kKeyReadWrite);
    if (!EnsureKeyOpen()) return;
    Variant written = value;
    if (!ConvertToExisting(value_name, written)) return;
    const bool as_text = (options_ & kNumbersAsText) != 0 && IsNumeric(written);
    if ((as_text || value_name.empty()) && !MakeText(written)) return;
    Write(value_name, written);
    QueryInfo();
    cache_.clear();
}

// False when the value must not be written.
bool RegOp::ConvertToExisting(const std::string& value_name, Variant& value) {
    const Result<RegistryValue> existing = key_->QueryValue(value_name);
    // What cannot be read may be of a type that must not be overwritten.
    if (!existing.ok()) return existing.error().kind == ErrorKind::kNotFound;
    switch (existing.value().type) {
        case kRegSz:
        case kRegExpandSz: return MakeText(value);
        case kRegDword: return MakeLong(value);
        case kRegMultiSz: return true;
        default:
            ReportError("Existing value has unsupported data type and will not be overwritten");
            return false;
    }
}

void RegOp::Write(const std::string& value_name, const Variant& value) {
    std::uint32_t type = kRegSz;
    std::string data;
    if (const auto* items = std::get_if<StringArray>(&value)) {
        type = kRegMultiSz;
        data = Joined(*items) + std::string(2, '\0');
    } else if (IsWholeNumber(value)) {
        type = kRegDword;
        data = DwordData(ToLong(value).value());
    } else {
        const Result<std::string> text = ToText(value);
        if (!text.ok()) return;
        const bool is_text = std::holds_alternative<std::string>(value);
        if (is_text && HasEnvironmentReference(text.value())) type = kRegExpandSz;
        data = text.value() + '\0';
    }
    // Nobody waits for the outcome of a write; the next read shows what the registry holds.
    Drop(key_->SetValue(value_name, type, data));
}

std::string RegOp::ExpandEnvironment(const std::string& text) {
    const std::string expanded = environment_.Expand(text);
    if (expanded.size() <= kExpansionBytes) return expanded;
    std::size_t end = kExpansionBytes;
    while (end > 0 && (static_cast<unsigned char>(expanded[end]) & 0xC0U) == 0x80U)
        --end;
    return expanded.substr(0, end);
}

bool RegOp::HasEnvironmentReference(const std::string& text) {
    if (text.find('%') == text.rfind('%')) return false;
    for (int position = 1; position <= kEnvironmentEntries; ++position) {
        const std::string entry = environment_.Entry(position);
        if (entry.empty()) return false;
        const std::string name = entry.substr(0, entry.find('='));
        if (ContainsNoCase(text, "%" + name + "%")) return true;
    }
    return false;
}

std::vector<std::pair<std::string, Variant>> RegOp::AllValues() {
    RequestAccess(kKeyRead);
    if (!EnsureKeyOpen() || info_.values <= 0) return {};
    if (cache_.empty()) LoadValues();
    return cache_;
}

std::vector<Variant> RegOp::AllKeys() {
    RequestAccess(kKeyRead);
    if (!EnsureKeyOpen() || info_.sub_keys <= 0) return {};
    std::vector<Variant> names;
    for (std::int32_t index = 0; index < info_.sub_keys; ++index) {
        Result<std::string> name = key_->EnumKey(index);
        const bool fits =
            name.ok() && name.value().size() <= static_cast<std::size_t>(info_.longest_sub_key);
        names.push_back(fits ? Variant(TrimAtNull(name.value())) : Variant());
    }
    return names;
}

bool RegOp::DeleteValue(const std::string& value_name) {
    RequestAccess(kKeyAllAccess);
    if (!EnsureKeyOpen() || !key_->DeleteValue(value_name).ok()) return false;
    QueryInfo();
    cache_.clear();
    return true;
}

bool RegOp::DeleteKey() {
    if (key_name_.empty()) {
        ReportError("No Key name specified!");
        return false;
    }
    const std::size_t separator = key_name_.rfind('\\');
    if (separator == std::string::npos || separator + 1 == key_name_.size()) return false;
    const std::string sub_key = key_name_.substr(separator + 1);
    key_name_.resize(separator);
    RequestAccess(kKeyAllAccess);
    OpenKey(root_, key_name_);
    if (key_ == nullptr) return false;
    const Status deleted = HasShellDelete() ? key_->DeleteTree(sub_key) : key_->DeleteKey(sub_key);
    if (!deleted.ok()) return false;
    QueryInfo();
    cache_.clear();
    return true;
}

std::int32_t RegOp::ValueCount() {
    return EnsureKeyOpen() ? info_.values : 0;
}

std::int32_t RegOp::KeyCount() {
    return EnsureKeyOpen() ? info_.sub_keys : 0;
}

void RegOp::ReportError(const std::string& message) {
    if ((options_ & kShowErrors) != 0 && show_error_) show_error_(message);
}

}  // namespace trevix
