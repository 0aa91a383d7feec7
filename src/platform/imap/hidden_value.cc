// The values of properties as words.
#include <bit>
#include <charconv>
#include <cstdio>
#include <utility>
#include <vector>

#include "platform/imap/hidden_codec.h"
#include "platform/imap/text_escape.h"

namespace trevix::imap {
namespace {

std::string Hex(std::uint64_t number) {
    std::string text(16, '0');
    const auto [end, failure] = std::to_chars(text.data(), text.data() + text.size(), number, 16);
    static_cast<void>(failure);  // sixteen digits are enough for any
    text.resize(static_cast<std::size_t>(end - text.data()));
    return text;
}

std::optional<std::uint64_t> NumberFrom(std::string_view word) {
    std::uint64_t number = 0;
    const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), number, 16);
    if (failure != std::errc() || word.empty() || end != word.data() + word.size()) {
        return std::nullopt;
    }
    return number;
}

struct Writer {
    Result<std::string> operator()(Empty) const { return std::string("empty"); }
    Result<std::string> operator()(bool value) const {
        return std::string(value ? "bool 1" : "bool 0");
    }
    Result<std::string> operator()(std::int16_t value) const {
        return "int16 " + Hex(static_cast<std::uint16_t>(value));
    }
    Result<std::string> operator()(std::int32_t value) const {
        return "int32 " + Hex(static_cast<std::uint32_t>(value));
    }
    Result<std::string> operator()(double value) const {
        return "double " + Hex(std::bit_cast<std::uint64_t>(value));
    }
    Result<std::string> operator()(Date value) const {
        return "date " + Hex(std::bit_cast<std::uint64_t>(value.days));
    }
    Result<std::string> operator()(const std::string& value) const {
        return "text " + EscapeText(value);
    }
    Result<std::string> operator()(const Blob& value) const {
        const Result<std::string> bytes = value.ToString();
        if (!bytes.ok()) return bytes.error();
        return "bytes " + EscapeText(bytes.value());
    }
    Result<std::string> operator()(const StringArray& value) const {
        std::string text = "texts";
        for (const std::string& one : value)
            text += " " + EscapeText(one);
        return text;
    }
    Result<std::string> operator()(ErrorValue value) const { return "error " + Hex(value.code); }
};

std::vector<std::string_view> WordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const std::size_t blank = text.find(' ');
        words.push_back(text.substr(0, blank));
        text.remove_prefix(blank == std::string_view::npos ? text.size() : blank + 1);
    }
    return words;
}

std::optional<Variant> TextsFrom(const std::vector<std::string_view>& words) {
    StringArray texts;
    for (std::size_t at = 1; at < words.size(); ++at) {
        auto text = UnescapeText(words[at]);
        if (!text) return std::nullopt;
        texts.push_back(*std::move(text));
    }
    return Variant(std::move(texts));
}

std::optional<Variant> ValueOf(std::string_view type, std::uint64_t number) {
    if (type == "bool" && number <= 1) return Variant(number != 0);
    if (type == "int16" && number <= 0xFFFFU) {
        return Variant(static_cast<std::int16_t>(static_cast<std::uint16_t>(number)));
    }
    if (type == "int32" && number <= 0xFFFFFFFFU) {
        return Variant(static_cast<std::int32_t>(static_cast<std::uint32_t>(number)));
    }
    if (type == "double") return Variant(std::bit_cast<double>(number));
    if (type == "date") return Variant(Date{std::bit_cast<double>(number)});
    if (type == "error" && number <= 0xFFFFFFFFU) {
        return Variant(ErrorValue{static_cast<std::uint32_t>(number)});
    }
    return std::nullopt;
}

}  // namespace

Result<std::string> WriteValue(const Variant& value) {
    return std::visit(Writer{}, value);
}

std::optional<Variant> ReadValue(std::string_view text) {
    const std::vector<std::string_view> words = WordsOf(text);
    if (words.empty()) return std::nullopt;
    const std::string_view type = words.front();
    if (type == "empty" && words.size() == 1) return Variant();
    if (type == "texts") return TextsFrom(words);
    if (words.size() != 2) return std::nullopt;
    if (type == "text" || type == "bytes") {
        auto unescaped = UnescapeText(words[1]);
        if (!unescaped) return std::nullopt;
        if (type == "text") return Variant(*std::move(unescaped));
        return Variant(Blob::FromString(*std::move(unescaped)));
    }
    const auto number = NumberFrom(words[1]);
    return number ? ValueOf(type, *number) : std::nullopt;
}

}  // namespace trevix::imap
