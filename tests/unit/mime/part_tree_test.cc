#include "platform/mime/part_tree.h"

#include <gtest/gtest.h>

#include "platform/mime/second_opinion.h"
#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

PartTree Read(const std::string& bytes) {
    Result<PartTree> tree = ReadPartTree(Blob::FromString(bytes));
    EXPECT_TRUE(tree.ok());
    return tree.ok() ? tree.value() : PartTree{};
}

std::string ContentOf(const std::string& bytes, const PartTree& tree, std::size_t part) {
    const MimePart& p = tree.parts.at(part);
    return bytes.substr(p.content_begin, p.content_end - p.content_begin);
}

std::string Disagreement(const std::string& bytes, const PartTree& tree) {
    return DisagreementOn(Blob::FromString(bytes), tree).value();
}

std::string Multipart(const std::string& body) {
    return "Subject: x\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=\"abc\"\n\n" +
           body;
}

// Both readers must see these the same way, in any line-end style.
struct StructureCase {
    const char* name;
    std::string bytes;
    std::vector<std::string> leaves;
};

std::string CaseName(const testing::TestParamInfo<StructureCase>& row) {
    return row.param.name;
}

class PartTreeStructure : public testing::TestWithParam<StructureCase> {
 protected:
    static void ExpectLeaves(const std::string& bytes, const std::vector<std::string>& leaves) {
        const PartTree tree = Read(bytes);
        std::vector<std::string> found;
        for (std::size_t i = 0; i < tree.parts.size(); ++i) {
            const MimePart& part = tree.parts[i];
            if (!part.IsMultipart()) found.push_back(ContentOf(bytes, tree, i));
            EXPECT_EQ(bytes.substr(part.header_begin, part.header.size()), part.header);
        }
        EXPECT_EQ(found, leaves);
        EXPECT_EQ(tree.doubt, "");
        EXPECT_EQ(Disagreement(bytes, tree), "");
    }
};

TEST_P(PartTreeStructure, HasTheExactLeavesWithLineFeeds) {
    ExpectLeaves(GetParam().bytes, GetParam().leaves);
}

TEST_P(PartTreeStructure, HasTheExactLeavesWithReturnsAndLineFeeds) {
    std::vector<std::string> leaves;
    for (const std::string& leaf : GetParam().leaves)
        leaves.push_back(Crlf(leaf));
    ExpectLeaves(Crlf(GetParam().bytes), leaves);
}

INSTANTIATE_TEST_SUITE_P(
    All, PartTreeStructure,
    testing::Values(
        StructureCase{"SinglePart", "Subject: x\n\nline\nline\n", {"line\nline\n"}},
        StructureCase{"NoLineEndAtTheEnd", "Subject: x\n\nline", {"line"}},
        StructureCase{"TwoParts",
                      Multipart("--abc\nX: 1\n\none\n--abc\nX: 2\n\ntwo\n--abc--\n"),
                      {"one", "two"}},
        StructureCase{"PreambleAndEpilogue",
                      Multipart("pre\n--ab\n\n--abc\nX: 1\n\none\n\n--abc--\nepi\n--abc\nno\n"),
                      {"one\n"}},
        StructureCase{"PrefixBoundaries",
                      Multipart("--abc\nContent-Type: multipart/mixed; boundary=abcd\n\n"
                                "--abcd\nX: 1\n\none\n--abcd--\n--abc\nX: 2\n\ntwo\n--abc--\n"),
                      {"one", "two"}},
        StructureCase{"InnerNeverClosed",
                      Multipart("--abc\nContent-Type: multipart/mixed; boundary=in\n\n"
                                "--in\nX: 1\n\none\n--abc\nX: 2\n\ntwo\n--abc--\n"),
                      {"one", "two"}},
        StructureCase{
            "NeverClosed", Multipart("--abc\nX: 1\n\none\n--abc\nX: 2\n\ntwo\n"), {"one", "two\n"}},
        StructureCase{"BlanksBehindTheBoundary",
                      Multipart("--abc \t\nX: 1\n\none\n--abc--  \nepilogue"),
                      {"one"}},
        StructureCase{"DashesInContent",
                      Multipart("--abc\nX: 1\n\n--abcx\n--\n-- \n --abc\n---abc\n--abc--\n"),
                      {"--abcx\n--\n-- \n --abc\n---abc"}},
        StructureCase{"AttachedMessageIsALeaf",
                      Multipart("--abc\nContent-Type: message/rfc822\n\n"
                                "Subject: in\nContent-Type: multipart/mixed; boundary=q\n\n"
                                "--q\nX: 1\n\ninner\n--q--\n--abc--\n"),
                      {"Subject: in\nContent-Type: multipart/mixed; boundary=q\n\n"
                       "--q\nX: 1\n\ninner\n--q--"}},
        StructureCase{"EightBitHeaders", "Subject: \xE4\xF6\nX-Y: \xC3\n\nbody", {"body"}}),
    CaseName);

TEST(PartTreeRead, TakesEightBitFieldNamesForDoubtful) {
    EXPECT_NE(Read("Subject: x\nX-\xC3: y\n\nbody").doubt, "");
}

TEST(PartTreeRead, FindsTheEndOfAPartBetweenMixedLineEnds) {
    for (const char* before : {"\n", "\r\n"}) {
        for (const char* behind : {"\n", "\r\n"}) {
            const std::string bytes =
                Multipart(std::string("--abc\nX: 1\n\none") + before + "--abc" + behind +
                          "X: 2\n\ntwo" + before + "--abc--" + behind);
            const PartTree tree = Read(bytes);
            ASSERT_EQ(tree.parts.size(), 3U);
            EXPECT_EQ(ContentOf(bytes, tree, 1), "one");
            EXPECT_EQ(ContentOf(bytes, tree, 2), "two");
            EXPECT_EQ(Disagreement(bytes, tree), "");
        }
    }
}

TEST(PartTreeRead, KeepsNulsAndBareReturns) {
    const std::string content("a\0b\rc\0\n\0", 9);
    const std::string bytes = Multipart("--abc\nX: 1\n\n" + content + "\n--abc--\n");
    const PartTree tree = Read(bytes);
    ASSERT_EQ(tree.parts.size(), 2U);
    EXPECT_EQ(ContentOf(bytes, tree, 1), content);
}

TEST(PartTreeRead, ReadsALineLongerThanItsBuffer) {
    const std::string content(3'000'000, 'x');
    const std::string bytes = Multipart("--abc\nX: 1\n\n" + content + "\n--abc--\n");
    const PartTree tree = Read(bytes);
    ASSERT_EQ(tree.parts.size(), 2U);
    EXPECT_EQ(ContentOf(bytes, tree, 1), content);
    EXPECT_EQ(Disagreement(bytes, tree), "");
}

TEST(PartTreeRead, FindsBoundariesWhereverTheBufferEnds) {
    // 16 KiB and 256 KiB are the buffer's sizes; the boundary line lies across each of them once.
    for (const std::size_t size : {16'384, 262'144, 278'528}) {
        for (int shift = 0; shift <= 16; ++shift) {
            const std::string head = Multipart("--abc\nX: 1\n\n");
            const std::size_t target = size + static_cast<std::size_t>(shift) - 14;
            const std::string content(target - head.size(), 'y');
            const std::string bytes = head + content + "\n--abc\nX: 2\n\ntwo\n--abc--\n";
            const PartTree tree = Read(bytes);
            ASSERT_EQ(tree.parts.size(), 3U) << size << " " << shift;
            EXPECT_EQ(ContentOf(bytes, tree, 1), content);
            EXPECT_EQ(ContentOf(bytes, tree, 2), "two");
        }
    }
}

TEST(PartTreeRead, GivesDigestChildrenTheirDefaultType) {
    const PartTree tree = Read(
        "Content-Type: multipart/digest; boundary=d\n\n--d\n\nSubject: in\n\ntext\n--d\n"
        "Content-Type: text/plain\n\ntext\n--d--\n");
    ASSERT_EQ(tree.parts.size(), 3U);
    EXPECT_TRUE(tree.parts[1].IsType("message/rfc822"));
    EXPECT_TRUE(tree.parts[2].IsType("text/plain"));
}

TEST(PartTreeRead, ReadsAFoldedBoundary) {
    EXPECT_EQ(
        Read("Content-Type: multipart/mixed; boundary=\"a\n b\"\n\n--a b\nX: 1\n\none\n--a b--\n")
            .parts.size(),
        2U);
}

struct DoubtCase {
    const char* name;
    std::string bytes;
};

std::string DoubtName(const testing::TestParamInfo<DoubtCase>& row) {
    return row.param.name;
}

class PartTreeDoubt : public testing::TestWithParam<DoubtCase> {};

TEST_P(PartTreeDoubt, IsReadButNeverTrusted) {
    const Result<PartTree> tree = ReadPartTree(Blob::FromString(GetParam().bytes));
    ASSERT_TRUE(tree.ok());
    EXPECT_NE(tree.value().doubt, "");
    EXPECT_FALSE(tree.value().parts.empty());
}

INSTANTIATE_TEST_SUITE_P(
    All, PartTreeDoubt,
    testing::Values(
        DoubtCase{"EmptyFile", ""}, DoubtCase{"HeaderOnly", "Subject: x\n"},
        DoubtCase{"NoBoundary", "Content-Type: multipart/mixed\n\n--b\n\nx\n--b--\n"},
        DoubtCase{"LineWithoutColon", "Subject: x\nnonsense\n\nbody"},
        DoubtCase{"TwoContentTypes", "Content-Type: text/plain\nContent-Type: text/html\n\nx"},
        DoubtCase{"UnreadableType", "Content-Type: rubbish\n\nx"},
        DoubtCase{"EncodedMultipart",
                  "Content-Type: multipart/mixed; boundary=b\n"
                  "Content-Transfer-Encoding: base64\n\n--b\nX: 1\n\nx\n--b--\n"},
        DoubtCase{"BoundaryUsedTwice",
                  Multipart("--abc\nContent-Type: multipart/mixed; boundary=abc\n\n"
                            "--abc\nX: 1\n\nx\n--abc--\n")},
        DoubtCase{"EncodedBoundary",
                  "Content-Type: multipart/mixed; boundary*=utf-8''a%2Db\n\n--a-b\nX: 1\n\nx\n"},
        DoubtCase{"HeaderCutByBoundary", Multipart("--abc\nX: 1\n--abc\nX: 2\n\ntwo\n--abc--\n")}),
    DoubtName);

std::string Nested(int depth) {
    std::string bytes = "Subject: deep\n";
    for (int i = 0; i < depth; ++i) {
        bytes += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" +
                 std::to_string(i) + "\n";
    }
    return bytes + "Content-Type: text/plain\n\nat last\n";
}

TEST(PartTreeLimits, AllowsAHundredLevelsAndNoMore) {
    EXPECT_EQ(Read(Nested(100)).parts.size(), 101U);

    const Result<PartTree> deeper = ReadPartTree(Blob::FromString(Nested(101)));
    ASSERT_FALSE(deeper.ok());
    EXPECT_EQ(deeper.error().kind, ErrorKind::kMalformed);
    EXPECT_NE(deeper.error().description.find("100 levels"), std::string::npos);
}

TEST(PartTreeLimits, RefusesAHundredThousandParts) {
    std::string body;
    for (int i = 0; i < 100'000; ++i)
        body += "--abc\nX: 1\n\nx\n";
    const Result<PartTree> tree = ReadPartTree(Blob::FromString(Multipart(body)));
    ASSERT_FALSE(tree.ok());
    EXPECT_NE(tree.error().description.find("10000 parts"), std::string::npos);
}

TEST(PartTreeLimits, RefusesFiftyMebibytesOfHeaders) {
    std::string bytes = "Subject: x\n";
    const std::string line = "X-Line: " + std::string(990, 'x') + "\n";
    while (bytes.size() <= std::size_t{50} * 1024 * 1024)
        bytes += line;
    const Result<PartTree> tree = ReadPartTree(Blob::FromString(bytes + "\nbody"));
    ASSERT_FALSE(tree.ok());
    EXPECT_NE(tree.error().description.find("50 MiB"), std::string::npos);
}

TEST(PartTreeSecondOpinion, ObjectsToAnotherStructure) {
    const std::string bytes = TwoFiles();
    PartTree tree = Read(bytes);
    EXPECT_EQ(Disagreement(bytes, tree), "");
    PartTree moved = tree;
    moved.parts[2].content_begin += 2;
    EXPECT_NE(Disagreement(bytes, moved), "");
    PartTree missing = tree;
    missing.parts[0].children.pop_back();
    EXPECT_NE(Disagreement(bytes, missing), "");
}

}  // namespace
}  // namespace trevix::mime
