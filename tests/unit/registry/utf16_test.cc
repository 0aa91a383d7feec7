#include "platform/registry/utf16.h"

#include <gtest/gtest.h>

namespace trevix::registry {
namespace {

TEST(Utf16FromUtf8, WritesUnitsWithTheLowByteFirst) {
    EXPECT_EQ(Utf16FromUtf8("a\u20AC"), std::string("a\0\xAC\x20", 4));
    EXPECT_EQ(Utf16FromUtf8("\U0001F600"), std::string("\x3D\xD8\x00\xDE", 4));
}

TEST(Utf16FromUtf8, KeepsEveryPairOfBytes) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string bytes = {'a', static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(Utf8FromUtf16(Utf16FromUtf8(bytes)), bytes);
        }
    }
}

TEST(Utf16FromUtf8, KeepsEncodedSurrogatesAndOverlongForms) {
    for (const char* bytes : {"\xED\xA0\x80", "\xED\xA0\x80\xED\xB0\x80", "\xE0\x80\x80",
                              "\xF4\x90\x80\x80", "\xF0\x9F\x98", "\xED\xB2\x80"}) {
        EXPECT_EQ(Utf8FromUtf16(Utf16FromUtf8(bytes)), bytes);
    }
}

TEST(Utf8FromUtf16, ReadsLoneSurrogatesAndAnOddByte) {
    EXPECT_EQ(Utf8FromUtf16(std::string("\x00\xD8"
                                        "a\0",
                                        4)),
              "\xED\xA0\x80"
              "a");
    EXPECT_EQ(Utf8FromUtf16(std::string("a\0b", 3)), "ab");
}

}  // namespace
}  // namespace trevix::registry
