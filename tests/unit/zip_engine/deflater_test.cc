#include "platform/zip/deflater.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>

#include "platform/zip/stream_join.h"

namespace trevix::zip_engine {
namespace {

// By zlib, which is not what deflated it. The stream has to end exactly with its bytes.
std::string Inflated(const std::string& packed, std::size_t expected) {
    std::string plain(expected + 1, '\0');
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, -MAX_WBITS), Z_OK);
    std::string input = packed;
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(plain.data());
    stream.avail_out = static_cast<uInt>(plain.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
    EXPECT_EQ(stream.avail_in, 0U);
    plain.resize(stream.total_out);
    inflateEnd(&stream);
    return plain;
}

// Words in an order that does not repeat: shrinks to about a third.
std::string Prose(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < count) {
        text += "word" + std::to_string(random() % 5000) + (random() % 9 == 0 ? ".\n" : " ");
    }
    text.resize(count);
    return text;
}

std::string Noise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::string noise(count, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    return noise;
}

std::string Deflated(Deflater& deflater, std::int16_t level, const std::string& plain) {
    std::string packed(plain.size(), '\0');
    packed.resize(
        deflater.Deflate(level, plain.data(), plain.size(), packed.data(), packed.size()));
    return packed;
}

TEST(DeflaterDeflate, WhatIsDeflatedInHalvesInflatesToItself) {
    Deflater deflater;
    // The streams of the first halves end at every bit of a byte sooner or later.
    for (unsigned seed = 0; seed < 40; ++seed) {
        const std::string plain = Prose(131072 + seed * 977, seed);
        const std::string packed = Deflated(deflater, 5, plain);
        ASSERT_FALSE(packed.empty());
        ASSERT_EQ(Inflated(packed, plain.size()), plain) << seed;
    }
}

TEST(DeflaterDeflate, EveryLevelJoinsItsHalves) {
    Deflater deflater;
    const std::string plain = Prose(400'000, 1) + Noise(300'000, 2) + std::string(300'000, 'x');
    for (std::int16_t level = 1; level <= 9; ++level) {
        EXPECT_EQ(Inflated(Deflated(deflater, level, plain), plain.size()), plain) << level;
    }
}

TEST(DeflaterDeflate, TheSameContentIsDeflatedToTheSameBytes) {
    const std::string plain = Prose(500'000, 3);
    Deflater one;
    Deflater other;
    EXPECT_EQ(Deflated(one, 5, plain), Deflated(other, 5, plain));
}

TEST(DeflaterDeflate, WhatDoesNotShrinkDoesNotFit) {
    Deflater deflater;
    EXPECT_EQ(Deflated(deflater, 5, Noise(200'000, 4)), "");
}

TEST(OpenStream, LeavesAtMostFiveBytesMore) {
    Deflater deflater;
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::string packed = Deflated(deflater, 5, Prose(3000 + seed * 131, seed));
        const std::size_t before = packed.size();
        packed.resize(before + kJoinBytes);
        const std::size_t after = OpenStream(packed.data(), before);
        ASSERT_GE(after, before);
        ASSERT_LE(after, before + kJoinBytes);
    }
}

TEST(OpenStream, RefusesWhatIsNoStream) {
    Deflater deflater;
    const std::string whole = Deflated(deflater, 5, Prose(3000, 1));
    std::string cut = whole.substr(0, whole.size() / 2);
    const std::size_t count = cut.size();
    cut.resize(count + kJoinBytes);
    EXPECT_EQ(OpenStream(cut.data(), count), 0U);

    std::string wrong(200, '\xFF');
    EXPECT_EQ(OpenStream(wrong.data(), wrong.size() - kJoinBytes), 0U);

    std::string nothing(kJoinBytes, '\0');
    EXPECT_EQ(OpenStream(nothing.data(), 0), 0U);
}

}  // namespace
}  // namespace trevix::zip_engine
