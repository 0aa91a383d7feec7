#include "platform/associated/property_codec.h"

#include <bit>
#include <cstdint>
#include <string_view>
#include <utility>

namespace trevix::associated {
namespace {

// Little-endian, whatever the machine: the file travels with the mail.
std::string Number(std::uint64_t number, std::size_t size) {
    std::string bytes;
    for (std::size_t at = 0; at < size; ++at) {
        bytes += static_cast<char>((number >> (8 * at)) & 0xFF);
    }
    return bytes;
}

std::optional<std::uint64_t> NumberFrom(std::string_view bytes, std::size_t size) {
    if (bytes.size() != size) return std::nullopt;
    std::uint64_t number = 0;
    for (std::size_t at = 0; at < size; ++at) {
        number |= std::uint64_t{static_cast<unsigned char>(bytes[at])} << (8 * at);
    }
    return number;
}

struct Encoder {
    Result<StoredValue> operator()(Empty) const { return StoredValue{}; }
    Result<StoredValue> operator()(bool value) const {
        return StoredValue{ValueType::kBool, Number(value ? 1 : 0, 1)};
    }
    Result<StoredValue> operator()(std::int16_t value) const {
        return StoredValue{ValueType::kInt16, Number(static_cast<std::uint16_t>(value), 2)};
    }
    Result<StoredValue> operator()(std::int32_t value) const {
        return StoredValue{ValueType::kInt32, Number(static_cast<std::uint32_t>(value), 4)};
    }
    Result<StoredValue> operator()(double value) const {
        return StoredValue{ValueType::kDouble, Number(std::bit_cast<std::uint64_t>(value), 8)};
    }
    Result<StoredValue> operator()(Date value) const {
        return StoredValue{ValueType::kDate, Number(std::bit_cast<std::uint64_t>(value.days), 8)};
    }
    Result<StoredValue> operator()(const std::string& value) const {
        return StoredValue{ValueType::kString, value};
    }
    Result<StoredValue> operator()(const Blob& value) const {
        auto bytes = value.ToString();
        if (!bytes.ok()) return bytes.error();
        return StoredValue{ValueType::kBytes, std::move(bytes).value()};
    }
    Result<StoredValue> operator()(const StringArray& value) const {
        StoredValue stored{ValueType::kStrings, {}};
        for (const std::string& text : value) {
            stored.bytes += Number(text.size(), 8) + text;
        }
        return stored;
    }
    Result<StoredValue> operator()(ErrorValue value) const {
        return StoredValue{ValueType::kError, Number(value.code, 4)};
    }
};

std::optional<Variant> DecodeStrings(std::string_view bytes) {
    StringArray texts;
    while (!bytes.empty()) {
        const auto size = NumberFrom(bytes.substr(0, 8), 8);
        if (!size || *size > bytes.size() - 8) return std::nullopt;
        texts.emplace_back(bytes.substr(8, static_cast<std::size_t>(*size)));
        bytes.remove_prefix(8 + static_cast<std::size_t>(*size));
    }
    return Variant(std::move(texts));
}

std::optional<Variant> DecodeNumber(ValueType type, const std::string& bytes) {
    const std::size_t size = type == ValueType::kBool                                 ? 1
                             : type == ValueType::kInt16                              ? 2
                             : type == ValueType::kInt32 || type == ValueType::kError ? 4
                                                                                      : 8;
    const auto number = NumberFrom(bytes, size);
    if (!number) return std::nullopt;
    switch (type) {
        case ValueType::kBool: return Variant(*number != 0);
        case ValueType::kInt16:
            return Variant(static_cast<std::int16_t>(static_cast<std::uint16_t>(*number)));
        case ValueType::kInt32:
            return Variant(static_cast<std::int32_t>(static_cast<std::uint32_t>(*number)));
        case ValueType::kDouble: return Variant(std::bit_cast<double>(*number));
        case ValueType::kDate: return Variant(Date{std::bit_cast<double>(*number)});
        default: return Variant(ErrorValue{static_cast<std::uint32_t>(*number)});
    }
}

}  // namespace

Result<StoredValue> EncodeValue(const Variant& value) {
    return std::visit(Encoder{}, value);
}

std::optional<Variant> DecodeValue(std::int64_t type, const std::string& bytes) {
    if (type < 0 || type > static_cast<std::int64_t>(ValueType::kError)) return std::nullopt;
    const auto known = static_cast<ValueType>(type);
    switch (known) {
        case ValueType::kEmpty: return Variant();
        case ValueType::kString: return Variant(bytes);
        case ValueType::kBytes: return Variant(Blob::FromString(bytes));
        case ValueType::kStrings: return DecodeStrings(bytes);
        default: return DecodeNumber(known, bytes);
    }
}

}  // namespace trevix::associated
