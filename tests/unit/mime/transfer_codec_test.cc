#include "platform/mime/transfer_codec.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/mime/decoded_blob.h"
#include "platform/mime/encoded_blob.h"

namespace trevix::mime {
namespace {

// Bytes that are read on demand.
Blob OnDemand(const std::string& text) {
    return Blob::Join({Blob::FromString(text)});
}

std::string Decode(const Blob& text, TransferEncoding encoding) {
    const Result<Blob> blob = DecodeBlob(text, encoding);
    if (!blob.ok()) {
        EXPECT_EQ(blob.error().kind, ErrorKind::kMalformed);
        return "malformed";
    }
    return blob.value().ToString().value();
}

std::string Decode(const std::string& text, TransferEncoding encoding) {
    const std::string decoded = Decode(Blob::FromString(text), encoding);
    EXPECT_EQ(Decode(OnDemand(text), encoding), decoded);
    return decoded;
}

struct DecodeCase {
    const char* name;
    TransferEncoding encoding;
    std::string text;
    std::string expected;
};

std::string CaseName(const testing::TestParamInfo<DecodeCase>& row) {
    return row.param.name;
}

class DecodeBlobExactness : public testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeBlobExactness, GivesTheBytesOrRefuses) {
    EXPECT_EQ(Decode(GetParam().text, GetParam().encoding), GetParam().expected);
}

constexpr auto kBase64 = TransferEncoding::kBase64;
constexpr auto kQuoted = TransferEncoding::kQuotedPrintable;

INSTANTIATE_TEST_SUITE_P(
    Base64, DecodeBlobExactness,
    testing::Values(DecodeCase{"Empty", kBase64, "", ""},
                    DecodeCase{"Whole", kBase64, "QUJD", "ABC"},
                    DecodeCase{"OnePad", kBase64, "QUI=", "AB"},
                    DecodeCase{"TwoPads", kBase64, "QQ==", "A"},
                    DecodeCase{"Lines", kBase64, "QU\r\nJD\nRE VG\t\r\n", "ABCDEF"},
                    DecodeCase{"SpaceInPadding", kBase64, "QQ=\n=\n\n", "A"},
                    DecodeCase{"OnlySpace", kBase64, "\r\n \t", ""},
                    DecodeCase{"Junk", kBase64, "QU!JD", "malformed"},
                    DecodeCase{"JunkBetweenLines", kBase64, "QUJD\n-\nQUJD", "malformed"},
                    DecodeCase{"Nul", kBase64, std::string("QUJD\0", 5), "malformed"},
                    DecodeCase{"EightBit", kBase64, "QUJ\xC4", "malformed"},
                    DecodeCase{"MissingPadding", kBase64, "QUI", "malformed"},
                    DecodeCase{"OneChar", kBase64, "QUJDQ", "malformed"},
                    DecodeCase{"PaddingTooEarly", kBase64, "Q===", "malformed"},
                    DecodeCase{"PaddingTooLong", kBase64, "QUJD=", "malformed"},
                    DecodeCase{"DataAfterPadding", kBase64, "QQ==QUJD", "malformed"},
                    DecodeCase{"DataInsidePadding", kBase64, "QQ=Q", "malformed"},
                    DecodeCase{"FooterAfterPadding", kBase64, "QQ==\n____\nlist", "malformed"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    QuotedPrintable, DecodeBlobExactness,
    testing::Values(DecodeCase{"Plain", kQuoted, "a b\nc", "a b\nc"},
                    DecodeCase{"Escapes", kQuoted, "=41=c3=A4=3D", "A\xC3\xA4="},
                    DecodeCase{"SoftBreaks", kQuoted, "a=\nb=\r\nc", "abc"},
                    DecodeCase{"SoftBreakAtTheEnd", kQuoted, "abc=", "abc"},
                    DecodeCase{"CrlfStays", kQuoted, "a\r\nb\r\n", "a\r\nb\r\n"},
                    DecodeCase{"BadDigit", kQuoted, "a=4G", "malformed"},
                    DecodeCase{"OneDigit", kQuoted, "a=4", "malformed"},
                    DecodeCase{"BlankBeforeBreak", kQuoted, "a= \nb", "malformed"},
                    DecodeCase{"LoneReturn", kQuoted, "a=\rb", "malformed"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    Others, DecodeBlobExactness,
    testing::Values(DecodeCase{"Identity", TransferEncoding::kIdentity, "=41\r\n", "=41\r\n"},
                    DecodeCase{"Unknown", TransferEncoding::kUnknown, "x", "malformed"}),
    CaseName);

TEST(TransferEncodingOf, KnowsTheEncodingsAndNoOthers) {
    EXPECT_EQ(TransferEncodingOf(""), TransferEncoding::kIdentity);
    EXPECT_EQ(TransferEncodingOf(" 8BIT\r\n"), TransferEncoding::kIdentity);
    EXPECT_EQ(TransferEncodingOf("binary"), TransferEncoding::kIdentity);
    EXPECT_EQ(TransferEncodingOf("Base64 ;"), TransferEncoding::kBase64);
    EXPECT_EQ(TransferEncodingOf("quoted-printable"), TransferEncoding::kQuotedPrintable);
    EXPECT_EQ(TransferEncodingOf("x-uuencode"), TransferEncoding::kUnknown);
    EXPECT_EQ(TransferEncodingOf("base 64"), TransferEncoding::kUnknown);
}

std::string RandomBytes(std::mt19937& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

TEST(EncodeBlob, DecodesToTheSameBytesForEverySize) {
    std::mt19937 random(1);
    for (std::size_t size : {0, 1, 2, 3, 56, 57, 58, 113, 114, 115, 1000, 65536, 300001}) {
        const std::string plain = RandomBytes(random, size);
        for (const char* newline : {"\n", "\r\n"}) {
            const std::string text =
                EncodeBlob(Blob::FromString(plain), newline).ToString().value();
            EXPECT_EQ(Decode(text, kBase64), plain);
            EXPECT_FALSE(text.ends_with("\n"));
            for (std::size_t at = 0, line = 0; at < text.size(); ++at) {
                line = text[at] == '\n' ? 0 : line + 1;
                ASSERT_LE(line, 77U);
            }
        }
    }
}

TEST(EncodeBlob, ReadsTheSameAtAnyOffset) {
    std::mt19937 random(2);
    const Blob blob = EncodeBlob(Blob::FromString(RandomBytes(random, 5000)), "\r\n");
    const std::string whole = blob.ToString().value();
    for (int i = 0; i < 500; ++i) {
        const std::size_t offset = random() % whole.size();
        const std::size_t count = random() % (whole.size() - offset + 1);
        EXPECT_EQ(blob.Slice(offset, count).ToString().value(), whole.substr(offset, count));
    }
}

TEST(DecodeBlob, ReadsTheSameAtAnyOffset) {
    std::mt19937 random(3);
    const std::string plain = RandomBytes(random, 400'000);
    const Blob text = EncodeBlob(Blob::FromString(plain), "\n");
    const Blob blob = DecodeBlob(text, kBase64).value();
    ASSERT_EQ(blob.size_bytes(), plain.size());
    for (int i = 0; i < 300; ++i) {
        const std::size_t offset = random() % plain.size();
        const std::size_t count = random() % (plain.size() - offset + 1);
        EXPECT_EQ(blob.Slice(offset, count).ToString().value(), plain.substr(offset, count));
    }
}

TEST(DecodeBlob, KeepsEscapesWholeAcrossPieces) {
    // Pieces of the index are 64 KiB; escapes of three bytes lie across every piece's end.
    std::string text;
    std::string plain;
    for (int i = 0; i < 100'000; ++i) {
        text += i % 19 == 0 ? "=4" + std::string(1, "0123456789ABCDEF"[i % 16]) : "x";
        plain += i % 19 == 0 ? static_cast<char>(0x40 + i % 16) : 'x';
    }
    EXPECT_EQ(Decode(text, kQuoted), plain);
}

TEST(DecodeBlob, RefusesADamagedEndOfALongText) {
    std::string text;
    for (int i = 0; i < 20'000; ++i)
        text += "QUJDREVGR0hJ\n";
    EXPECT_EQ(Decode(text + "=", kBase64), "malformed");
    EXPECT_EQ(Decode(text + "Q", kBase64), "malformed");
    EXPECT_EQ(Decode(text, kBase64).size(), 20'000U * 9);
}

TEST(DecodeBlob, ToleratesALongStretchOfWhiteSpace) {
    const std::string space(300'000, ' ');
    EXPECT_EQ(Decode("QUJD" + space + "REVG" + space, kBase64), "ABCDEF");
}

}  // namespace
}  // namespace trevix::mime
