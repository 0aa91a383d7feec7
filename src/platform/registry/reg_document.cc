#include "platform/registry/reg_document.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <unordered_set>

#include "platform/registry/reg_parser.h"
#include "platform/registry/utf16.h"

namespace trevix::registry {
namespace {

constexpr std::size_t kLineColumns = 78;  // before the backslash of a line that goes on

// The lines up to the last blank one: a comment that stands apart does not belong to what follows
// and survives its removal.
std::string ApartFromNext(const std::string& before) {
    std::size_t keep = 0;
    for (std::size_t start = 0; start < before.size();) {
        const std::size_t end = before.find('\n', start);
        const bool blank = before.find_first_not_of(" \t", start) == end;
        start = end + 1;
        if (blank) keep = start;
    }
    return before.substr(0, keep);
}

std::string Quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + "\"";
}

bool IsTextType(std::uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

// Whether a REG_SZ can stand in quotes: one NUL, at the end, and nothing that an editor or the
// conversion to UTF-16 could not keep.
bool FitsQuotes(const std::string& data) {
    if (data.empty() || data.back() != '\0') return false;
    const std::string text = data.substr(0, data.size() - 1);
    return IsWritableName(text) && text.find('\x7F') == std::string::npos;
}

std::string HexText(const std::string& start, const std::string& data) {
    std::string result;
    std::string line = start;
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::array<char, 4> byte{};
        std::snprintf(byte.data(), byte.size(), "%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(data[i])));
        line += byte.data();
        if (i + 1 == data.size()) break;
        line += ',';
        if (line.size() >= kLineColumns - 2) {
            result += line + "\\\n";
            line = "  ";
        }
    }
    return result + line;
}

std::string DwordText(const std::string& data) {
    std::array<char, 16> text{};
    unsigned number = 0;
    for (std::size_t i = 4; i-- > 0;) {
        number = number << 8U | static_cast<unsigned char>(data[i]);
    }
    std::snprintf(text.data(), text.size(), "dword:%08x", number);
    return text.data();
}

std::string ValueText(const RegistryValue& value, bool single_byte) {
    const std::string start = (value.name.empty() ? "@" : Quoted(value.name)) + "=";
    if (value.type == kRegSz && FitsQuotes(value.data)) {
        return start + Quoted(std::string_view(value.data).substr(0, value.data.size() - 1));
    }
    if (value.type == kRegDword && value.data.size() == 4) return start + DwordText(value.data);
    if (value.type == kRegBinary) return HexText(start + "hex:", value.data);
    std::array<char, 16> type{};
    std::snprintf(type.data(), type.size(), "hex(%x):", static_cast<unsigned>(value.type));
    const bool wide = IsTextType(value.type) && !single_byte;
    return HexText(start + type.data(), wide ? Utf16FromUtf8(value.data) : value.data);
}

std::string WithCarriageReturns(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') result += '\r';
        result += c;
    }
    return result;
}

bool IsRoot(const std::string& path) {
    return path.find('\\') == std::string::npos;
}

}  // namespace

std::string Fold(const std::string& text) {
    std::string result = text;
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

bool IsWritableName(const std::string& name) {
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x20 || c == '\t'; });
}

bool IsWritablePath(const std::string& path) {
    for (std::size_t at = path.find(']'); at != std::string::npos; at = path.find(']', at + 1)) {
        const std::size_t next = path.find_first_not_of(" \t", at + 1);
        if (next != std::string::npos && path[next] == ';') return false;
    }
    return IsWritableName(path);
}

std::string CleanPath(const std::string& path) {
    std::string result;
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('\\', start), path.size());
        if (end > start) {
            if (!result.empty()) result += '\\';
            result += path.substr(start, end - start);
        }
        start = end + 1;
    }
    return result;
}

Result<RegDocument> RegDocument::Parse(const std::string& bytes, const std::string& file) {
    return RegParser(bytes, file).Parse();
}

std::string RegDocument::Format() const {
    std::string text = single_byte_ ? "REGEDIT4\n" : "Windows Registry Editor Version 5.00\n";
    for (const Section& section : sections_) {
        text += section.before;
        if (section.removed) continue;
        text += section.text.empty() ? "[" + section.path + "]" : section.text;
        text += '\n';
        for (const Entry& entry : section.entries) {
            text += entry.before;
            text += entry.text.empty() ? ValueText(entry.value, single_byte_) : entry.text;
            text += '\n';
        }
        text += section.after;
    }
    text += tail_;
    if (carriage_returns_) text = WithCarriageReturns(text);
    if (utf16_) return "\xFF\xFE" + Utf16FromUtf8(text);
    return byte_order_mark_ ? "\xEF\xBB\xBF" + text : text;
}

const RegDocument::Section* RegDocument::Find(const std::string& path) const {
    const auto found = index_.find(Fold(path));
    return found == index_.end() ? nullptr : &sections_[found->second];
}

// The section of a key, appended with `before` in front when there is none.
RegDocument::Section& RegDocument::SectionOf(const std::string& path, const std::string& before) {
    const auto [found, is_new] = index_.try_emplace(Fold(path), sections_.size());
    if (is_new) sections_.push_back({path, found->first, before, {}, {}, {}});
    return sections_[found->second];
}

bool RegDocument::HasKey(const std::string& path) const {
    if (IsRoot(path) || Find(path) != nullptr) return true;
    const std::string below = Fold(path) + "\\";
    return std::any_of(sections_.begin(), sections_.end(), [&](const Section& section) {
        return !section.removed && section.folded.starts_with(below);
    });
}

std::vector<std::string> RegDocument::SubKeys(const std::string& path) const {
    const std::string below = Fold(path) + "\\";
    std::vector<std::string> names;
    std::unordered_set<std::string> known;
    for (const Section& section : sections_) {
        if (section.removed || !section.folded.starts_with(below)) continue;
        const std::string rest = section.path.substr(below.size());
        const std::string name = rest.substr(0, rest.find('\\'));
        if (known.insert(Fold(name)).second) names.push_back(name);
    }
    return names;
}

std::vector<RegistryValue> RegDocument::Values(const std::string& path) const {
    std::vector<RegistryValue> values;
    if (const Section* section = Find(path)) {
        for (const Entry& entry : section->entries)
            values.push_back(entry.value);
    }
    return values;
}

void RegDocument::CreateKey(const std::string& path) {
    if (Find(path) != nullptr) return;
    std::string before = std::move(tail_);
    tail_.clear();
    if (ApartFromNext(before) != before || before.empty()) before += '\n';
    SectionOf(path, before);
}

bool RegDocument::SetValue(const std::string& path, const RegistryValue& value) {
    CreateKey(path);
    Section& section = SectionOf(path, {});
    const std::string folded = Fold(value.name);
    for (Entry& entry : section.entries) {
        if (Fold(entry.value.name) != folded) continue;
        if (entry.value.type == value.type && entry.value.data == value.data) return false;
        entry.value.type = value.type;
        entry.value.data = value.data;
        entry.text.clear();
        return true;
    }
    section.entries.push_back({value, std::move(section.after), {}});
    section.after.clear();
    return true;
}

bool RegDocument::DeleteValue(const std::string& path, const std::string& name) {
    const auto found = index_.find(Fold(path));
    if (found == index_.end()) return false;
    Section& section = sections_[found->second];
    const std::string folded = Fold(name);
    const auto entry =
        std::find_if(section.entries.begin(), section.entries.end(),
                     [&](const Entry& candidate) { return Fold(candidate.value.name) == folded; });
    if (entry == section.entries.end()) return false;
    const std::string kept = ApartFromNext(entry->before);
    const auto next = section.entries.erase(entry);
    std::string& target = next == section.entries.end() ? section.after : next->before;
    target = kept + target;
    return true;
}

void RegDocument::RemoveTree(const std::string& folded) {
    for (Section& section : sections_) {
        const bool inside = section.folded == folded || section.folded.starts_with(folded + "\\");
        if (section.removed || !inside) continue;
        index_.erase(section.folded);
        section.before = ApartFromNext(section.before);
        section.entries.clear();
        section.after.clear();
        section.removed = true;
    }
}

bool RegDocument::DeleteTree(const std::string& path) {
    if (IsRoot(path) || !HasKey(path)) return false;
    RemoveTree(Fold(path));
    const std::string parent = path.substr(0, path.rfind('\\'));
    if (!HasKey(parent)) CreateKey(parent);
    return true;
}

}  // namespace trevix::registry
