#include "platform/registry/reg_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/registry/utf16.h"

namespace trevix::registry {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kHeader = "Windows Registry Editor Version 5.00\n";

RegDocument Parse(const std::string& bytes) {
    Result<RegDocument> document = RegDocument::Parse(bytes, "user.reg");
    EXPECT_TRUE(document.ok()) << (document.ok() ? "" : document.error().description);
    return document.ok() ? std::move(document).value() : RegDocument();
}

// The only value of the key HKEY_CURRENT_USER\K, whose line is `line`.
RegistryValue ParseValue(const std::string& line, const std::string& header = kHeader) {
    const auto values =
        Parse(header + "[HKEY_CURRENT_USER\\K]\n" + line).Values("HKEY_CURRENT_USER\\K");
    EXPECT_EQ(values.size(), 1U);
    return values.empty() ? RegistryValue() : values.front();
}

std::string ErrorOf(const std::string& bytes) {
    const Result<RegDocument> document = RegDocument::Parse(bytes, "user.reg");
    if (document.ok()) return "no error";
    EXPECT_EQ(document.error().kind, ErrorKind::kMalformed);
    return document.error().description;
}

TEST(RegDocumentParse, ReadsTextsWithEscapes) {
    const RegistryValue value = ParseValue(R"( "a\\b\"c" = "C:\\x \"y\"" ; why)");

    EXPECT_EQ(value.name, "a\\b\"c");
    EXPECT_EQ(value.type, kRegSz);
    EXPECT_EQ(value.data, std::string("C:\\x \"y\"\0", 9));
}

TEST(RegDocumentParse, ReadsTheDefaultValue) {
    EXPECT_EQ(ParseValue("@=\"x\"").name, "");
    EXPECT_EQ(ParseValue("\"\"=\"x\"").name, "");
}

TEST(RegDocumentParse, ReadsNumbers) {
    EXPECT_EQ(ParseValue("\"n\"=dword:0000000A").data, std::string("\x0A\0\0\0", 4));
    EXPECT_EQ(ParseValue("\"n\"=DWORD:ff ; small").data, std::string("\xFF\0\0\0", 4));
    EXPECT_EQ(ParseValue("\"n\"=dword:80000001").type, kRegDword);
}

TEST(RegDocumentParse, ReadsBytesOverSeveralLines) {
    const RegistryValue value = ParseValue("\"n\"=hex:01,0a,\\\r\n  FF,\\\n  7\n");

    EXPECT_EQ(value.type, kRegBinary);
    EXPECT_EQ(value.data, "\x01\x0A\xFF\x07");
    EXPECT_EQ(ParseValue("\"n\"=hex:").data, "");
    EXPECT_EQ(ParseValue("\"n\"=hex:01,").data, "\x01");
}

TEST(RegDocumentParse, ReadsTypedBytes) {
    EXPECT_EQ(ParseValue("\"n\"=hex(b):01,02").type, kRegQword);
    EXPECT_EQ(ParseValue("\"n\"=hex(ffff0001):01").type, 0xFFFF0001U);
    EXPECT_EQ(ParseValue("\"n\"=hex(0):").type, kRegNone);
    EXPECT_EQ(ParseValue("\"n\"=hex(4):01,02").data, "\x01\x02");
}

TEST(RegDocumentParse, ReadsWideTextsInVersion5AndBytesInVersion4) {
    EXPECT_EQ(ParseValue("\"n\"=hex(2):e9,00,00,00").data, std::string("\xC3\xA9\0", 3));
    EXPECT_EQ(ParseValue("\"n\"=hex(7):61,00,00,00,62,00,00,00,00,00").data,
              std::string("a\0b\0\0", 5));
    EXPECT_EQ(ParseValue("\"n\"=hex(7):61,00,62,00,00", "REGEDIT4\n").data,
              std::string("a\0b\0\0", 5));
}

TEST(RegDocumentParse, AppliesDeletionLines) {
    const RegDocument document = Parse(kHeader +
                                       "[HKEY_CURRENT_USER\\A]\n\"x\"=\"1\"\n\"y\"=\"2\"\n\"X\"=-\n"
                                       "[HKEY_CURRENT_USER\\A\\B\\C]\n\"z\"=\"3\"\n"
                                       "[HKEY_CURRENT_USER\\AB]\n"
                                       "[-HKEY_CURRENT_USER\\a\\b]\n\"ignored\"=\"4\"\n");

    EXPECT_EQ(document.Values("HKEY_CURRENT_USER\\A").size(), 1U);
    EXPECT_FALSE(document.HasKey("HKEY_CURRENT_USER\\A\\B"));
    EXPECT_THAT(document.SubKeys("HKEY_CURRENT_USER"), ElementsAre("A", "AB"));
}

TEST(RegDocumentParse, LetsTheLastOfTwoEqualNamesWin) {
    const RegDocument document = Parse(kHeader +
                                       "[HKEY_CURRENT_USER\\A]\n\"x\"=\"1\"\n\"y\"=\"2\"\n"
                                       "[HKEY_CURRENT_USER\\B]\n"
                                       "[hkey_current_user\\a]\n\"X\"=\"3\"\n");

    const auto values = document.Values("HKEY_CURRENT_USER\\A");
    ASSERT_EQ(values.size(), 2U);
    EXPECT_EQ(values[0].data, std::string("3\0", 2));
}

TEST(RegDocumentParse, AcceptsEveryEncoding) {
    const std::string text =
        "Windows Registry Editor Version "
        "5.00\r\n\r\n[HKEY_CURRENT_USER\\K]\r\n\"n\"=\"\u00E9\"\r\n";
    const std::string utf16 = "\xFF\xFE" + Utf16FromUtf8(text);

    for (const std::string& bytes : {text, "\xEF\xBB\xBF" + text, utf16}) {
        const RegDocument document = Parse(bytes);
        EXPECT_EQ(document.Values("HKEY_CURRENT_USER\\K").at(0).data, std::string("\u00E9\0", 3));
        EXPECT_EQ(document.Format(), bytes);
    }
}

TEST(RegDocumentParse, TakesAnEmptyFileForAnEmptyDocument) {
    EXPECT_THAT(Parse("").SubKeys("HKEY_CURRENT_USER"), IsEmpty());
    EXPECT_THAT(Parse("\n \r\n").SubKeys("HKEY_CURRENT_USER"), IsEmpty());
    EXPECT_THAT(Parse("\xFF\xFE").SubKeys("HKEY_CURRENT_USER"), IsEmpty());
}

TEST(RegDocumentParse, NamesFileLineAndReasonOfASyntaxError) {
    const std::string key = kHeader + "[HKEY_CURRENT_USER\\K]\n";

    EXPECT_EQ(ErrorOf("[HKEY_CURRENT_USER\\K]\n"),
              "user.reg:1: the first line is not \"Windows Registry Editor Version 5.00\"");
    EXPECT_EQ(ErrorOf(key + "\"a\"=\"b\"\n\"c\"=\"d\n"),
              "user.reg:4: the closing quote is missing");
    EXPECT_EQ(ErrorOf(key + "\"a\"=hex:01,\\\n  0g\n"),
              "user.reg:4: a comma is missing between two bytes");
}

TEST(RegDocumentParse, RefusesEveryOtherForm) {
    const std::string key = kHeader + "[HKEY_CURRENT_USER\\K]\n";
    for (const std::string line : {"word",
                                   "\"a\"",
                                   "\"a\" \"b\"",
                                   "\"a\"=b",
                                   "\"a\"=\"C:\\temp\"",
                                   "\"a\"=\"b\" c",
                                   "\"a\"=dword:",
                                   "\"a\"=dword:123456789",
                                   "\"a\"=dword:1 2",
                                   "\"a\"=hex:001",
                                   "\"a\"=hex:zz",
                                   "\"a\"=hex:01 02",
                                   "\"a\"=hex:,01",
                                   "\"a\"=hex(:01",
                                   "\"a\"=hex():01",
                                   "\"a\"=hex(2)01",
                                   "\"a\"=hex:01,\\",
                                   "\"a\"=hex:01,\\ x",
                                   "\"a\x01\"=\"b\"",
                                   "\"a\"=",
                                   "\"a\"=-x",
                                   "[HKEY_CURRENT_USER\\K",
                                   "[]",
                                   "[-]",
                                   "[\\]",
                                   "[HKEY_CURRENT_USER\\K] x",
                                   "[HKEY\x01]",
                                   "@",
                                   "@\"=x"}) {
        EXPECT_NE(ErrorOf(key + line), "no error") << line;
    }
    EXPECT_NE(ErrorOf(kHeader + "\"a\"=\"b\"\n"), "no error");
    EXPECT_NE(ErrorOf(key + std::string("\"a\"=\"\0\"", 7)), "no error");
    EXPECT_NE(ErrorOf("\xFE\xFF"), "no error");
    EXPECT_NE(ErrorOf("REGEDIT5\n"), "no error");
}

const std::string kByHand =
    "Windows Registry Editor Version 5.00\n"
    "\n"
    "; my settings\n"
    "\n"
    "; the first key\n"
    "[HKEY_CURRENT_USER\\First]  ; odd spacing stays\n"
    "; about x\n"
    "\"x\"=hex(2):41,00,\\\n"
    "  00,00\n"
    "\n"
    "; about y\n"
    "\"y\" = dword:5\n"
    "\n"
    "[HKEY_USERS\\S-1-5]\n"
    "\"unknown root\"=\"kept\"\n"
    "\n"
    "; the end\n";

TEST(RegDocumentFormat, KeepsWhatWasWrittenByHand) {
    EXPECT_EQ(Parse(kByHand).Format(), kByHand);
}

TEST(RegDocumentSetValue, ChangesOneLineOnly) {
    RegDocument document = Parse(kByHand);

    EXPECT_TRUE(
        document.SetValue("HKEY_CURRENT_USER\\first", {"Y", kRegSz, std::string("new\0", 4)}));

    std::string expected = kByHand;
    expected.replace(expected.find("\"y\" = dword:5"), 13, "\"y\"=\"new\"");
    EXPECT_EQ(document.Format(), expected);
}

TEST(RegDocumentSetValue, LeavesAnEqualValueAsItIsSpelled) {
    RegDocument document = Parse(kByHand);

    EXPECT_FALSE(document.SetValue("HKEY_CURRENT_USER\\First",
                                   {"y", kRegDword, std::string("\x05\0\0\0", 4)}));

    EXPECT_EQ(document.Format(), kByHand);
}

TEST(RegDocumentSetValue, AppendsToItsKey) {
    RegDocument document = Parse(kByHand);

    document.SetValue("HKEY_CURRENT_USER\\First", {"z", kRegDword, std::string("\x01\0\0\0", 4)});

    std::string expected = kByHand;
    const std::string y = "\"y\" = dword:5\n";
    expected.insert(expected.find(y) + y.size(), "\"z\"=dword:00000001\n");
    EXPECT_EQ(document.Format(), expected);
}

TEST(RegDocumentSetValue, AppendsANewKeyAfterTheEnd) {
    RegDocument document = Parse(kByHand);

    document.SetValue("HKEY_CURRENT_USER\\New", {"", kRegSz, std::string("1\0", 2)});

    EXPECT_EQ(document.Format(), kByHand + "\n[HKEY_CURRENT_USER\\New]\n@=\"1\"\n");
}

TEST(RegDocumentSetValue, WrapsLongBytes) {
    RegDocument document;

    document.SetValue("HKEY_CURRENT_USER\\K", {"n", kRegBinary, std::string(60, '\x01')});

    const std::string text = document.Format();
    EXPECT_NE(text.find(",\\\n  01"), std::string::npos);
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        EXPECT_LE(end - start, 80U);
        start = end + 1;
    }
    EXPECT_EQ(Parse(text).Values("HKEY_CURRENT_USER\\K").at(0).data, std::string(60, '\x01'));
}

TEST(RegDocumentDeleteValue, TakesTheCommentThatBelongsToTheValue) {
    RegDocument document = Parse(kByHand);

    EXPECT_TRUE(document.DeleteValue("HKEY_CURRENT_USER\\First", "Y"));

    std::string expected = kByHand;
    const std::string gone = "; about y\n\"y\" = dword:5\n";
    expected.erase(expected.find(gone), gone.size());
    EXPECT_EQ(document.Format(), expected);
}

TEST(RegDocumentDeleteTree, KeepsCommentsThatStandApart) {
    RegDocument document = Parse(kByHand);

    EXPECT_TRUE(document.DeleteTree("HKEY_CURRENT_USER\\First"));

    EXPECT_EQ(document.Format(),
              "Windows Registry Editor Version 5.00\n\n; my settings\n\n\n[HKEY_USERS\\S-1-5]\n"
              "\"unknown root\"=\"kept\"\n\n; the end\n");
    EXPECT_FALSE(document.DeleteTree("HKEY_CURRENT_USER\\First"));
}

TEST(RegDocumentDeleteTree, NeverDeletesARoot) {
    RegDocument document = Parse(kByHand);

    EXPECT_FALSE(document.DeleteTree("HKEY_CURRENT_USER"));
    EXPECT_TRUE(document.HasKey("HKEY_CURRENT_USER\\First"));
}

TEST(RegDocumentCreateKey, ComesBackAfterItsRemoval) {
    RegDocument document = Parse(kByHand);
    document.DeleteTree("HKEY_CURRENT_USER\\First");

    document.CreateKey("HKEY_CURRENT_USER\\First");

    EXPECT_TRUE(Parse(document.Format()).HasKey("HKEY_CURRENT_USER\\First"));
    EXPECT_THAT(document.Values("HKEY_CURRENT_USER\\First"), IsEmpty());
}

TEST(CleanPath, DropsEmptyComponents) {
    EXPECT_EQ(CleanPath("\\A\\\\B\\"), "A\\B");
    EXPECT_EQ(CleanPath("\\"), "");
}

TEST(IsWritablePath, RefusesWhatTheBracketsCannotHold) {
    EXPECT_TRUE(IsWritablePath("A\\B [x] y]"));
    EXPECT_FALSE(IsWritablePath("A\\B] ;x"));
    EXPECT_FALSE(IsWritablePath("A\nB"));
    for (const std::string path : {"H\\B [x] y]", "H\\]]", "H\\a;b", "H\\ ]", "H\\[-x]"}) {
        RegDocument document;
        document.CreateKey(path);
        EXPECT_TRUE(Parse(document.Format()).HasKey(path)) << path;
    }
}

}  // namespace
}  // namespace trevix::registry
