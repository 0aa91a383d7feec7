#include "platform/associated/property_codec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace trevix::associated {
namespace {

Variant Back(const Variant& value) {
    const auto stored = EncodeValue(value).value();
    const auto decoded = DecodeValue(static_cast<std::int64_t>(stored.type), stored.bytes);
    EXPECT_TRUE(decoded.has_value());
    return decoded.value_or(Variant(std::string("not decoded")));
}

TEST(PropertyCodec, KeepsEveryTypeAndValue) {
    EXPECT_TRUE(IsEmpty(Back(Variant())));
    EXPECT_EQ(std::get<bool>(Back(Variant(true))), true);
    EXPECT_EQ(std::get<bool>(Back(Variant(false))), false);
    EXPECT_EQ(std::get<std::int16_t>(Back(Variant(std::int16_t{-32768}))), -32768);
    EXPECT_EQ(std::get<std::int32_t>(Back(Variant(std::numeric_limits<std::int32_t>::min()))),
              std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(std::get<double>(Back(Variant(-0.1))), -0.1);
    EXPECT_EQ(std::get<Date>(Back(Variant(Date{45000.123456789}))), Date{45000.123456789});
    EXPECT_EQ(std::get<std::string>(Back(Variant(std::string("a\0\xFF", 3)))),
              std::string("a\0\xFF", 3));
    EXPECT_EQ(std::get<std::string>(Back(Variant(std::string()))), "");
    EXPECT_EQ(std::get<Blob>(Back(Variant(Blob::FromString("bytes")))).ToString().value(), "bytes");
    EXPECT_EQ(std::get<StringArray>(Back(Variant(StringArray{"", "b", "\n"}))),
              (StringArray{"", "b", "\n"}));
    EXPECT_EQ(std::get<StringArray>(Back(Variant(StringArray{}))), StringArray{});
    EXPECT_EQ(std::get<ErrorValue>(Back(Variant(ErrorValue{0x8004010F}))), ErrorValue{0x8004010F});
}

TEST(PropertyCodec, KeepsNumbersThatAreNone) {
    EXPECT_TRUE(
        std::isnan(std::get<double>(Back(Variant(std::numeric_limits<double>::quiet_NaN())))));
    EXPECT_TRUE(
        std::isinf(std::get<double>(Back(Variant(std::numeric_limits<double>::infinity())))));
}

TEST(PropertyCodec, RefusesBytesOfAnotherType) {
    EXPECT_FALSE(DecodeValue(3, "abc").has_value());
    EXPECT_FALSE(DecodeValue(4, "abc").has_value());
    EXPECT_FALSE(DecodeValue(1, "").has_value());
    EXPECT_FALSE(DecodeValue(8, "abc").has_value());
    EXPECT_FALSE(DecodeValue(8, std::string(8, '\xFF')).has_value());
    EXPECT_FALSE(DecodeValue(10, "").has_value());
    EXPECT_FALSE(DecodeValue(-1, "").has_value());
}

}  // namespace
}  // namespace trevix::associated
