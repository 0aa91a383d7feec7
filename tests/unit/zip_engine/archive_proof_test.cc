// The proof of archives against archives that are wrong in one small way each.
#include <gtest/gtest.h>

#include "raw_zip.h"
#include "zip_world.h"

namespace trevix {
namespace {

using test::Deflated;
using test::Noise;
using test::Prose;
using test::RawEntry;
using test::RawZip;

class ArchiveProofVerify : public test::ZipWorld {
 protected:
    ErrorKind KindOf(const std::vector<std::string>& contents) {
        const Status status = Verify(contents);
        EXPECT_FALSE(status.ok());
        if (status.ok()) return ErrorKind::kOther;
        EXPECT_NE(status.error().description.find(In("a.zip")), std::string::npos);
        return status.error().kind;
    }
};

TEST_F(ArchiveProofVerify, AcceptsArchivesOfOtherPrograms) {
    Put("a.zip", RawZip({Deflated("a", Prose(10'000)), {.name = "b", .data = "stored"}}));

    EXPECT_TRUE(Verify({"stored", Prose(10'000)}).ok());
}

TEST_F(ArchiveProofVerify, AcceptsAnEmptyArchiveForNoContents) {
    Put("a.zip", RawZip({}));

    EXPECT_TRUE(Verify({}).ok());
    EXPECT_EQ(KindOf({""}), ErrorKind::kMalformed);
}

TEST_F(ArchiveProofVerify, ComparesEveryByteOfLargeContents) {
    const std::string content = Prose(12 * 1024 * 1024);
    Put("a.zip", RawZip({Deflated("a", content)}));
    EXPECT_TRUE(Verify({content}).ok());

    for (const std::size_t at : {std::size_t{0}, content.size() / 2, content.size() - 1}) {
        std::string other = content;
        other[at] = static_cast<char>(other[at] ^ 1);
        EXPECT_EQ(KindOf({other}), ErrorKind::kMalformed);
    }
}

TEST_F(ArchiveProofVerify, GivesEachOfManyEqualSizesItsOwnEntry) {
    Put("a.zip",
        RawZip({Deflated("a", "aaaa"), Deflated("b", "bbbb"), {.name = "c", .data = "aaaa"}}));

    EXPECT_TRUE(Verify({"aaaa", "aaaa", "bbbb"}).ok());
    EXPECT_EQ(KindOf({"aaaa", "bbbb", "bbbb"}), ErrorKind::kMalformed);
}

TEST_F(ArchiveProofVerify, RefusesEveryDamagedByteThatMatters) {
    const std::string content = Prose(600);
    const RawEntry entry = Deflated("name", content);
    const std::string whole = RawZip({entry});
    Put("a.zip", whole);
    ASSERT_TRUE(Verify({content}).ok());

    // What these bytes say is not about the content: versions, times, attributes, disk numbers and
    // the bits after the end of the deflate stream. All others have to be right.
    const std::size_t data = 30 + 4;
    const std::size_t record = data + entry.data.size();
    const std::size_t end = record + 46 + 4;
    const auto is_free = [&](std::size_t at) {
        if (at < 30) return (at >= 4 && at < 6) || (at >= 10 && at < 14);
        if (at == record - 1) return true;
        if (at < record || at >= end) return at >= end + 8 && at < end + 10;
        const std::size_t field = at - record;
        return (field >= 4 && field < 8) || (field >= 12 && field < 16) ||
               (field >= 34 && field < 42);
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        if (is_free(at)) continue;
        std::string broken = whole;
        broken[at] = static_cast<char>(broken[at] ^ 0x10);
        Put("a.zip", broken);
        EXPECT_FALSE(Verify({content}).ok()) << "byte " << at << " of " << whole.size();
    }
}

TEST_F(ArchiveProofVerify, RefusesEveryTruncation) {
    const std::string content = Prose(300);
    const std::string whole = RawZip({Deflated("name", content)});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Put("a.zip", whole.substr(0, size));
        EXPECT_FALSE(Verify({content}).ok()) << size;
    }
}

TEST_F(ArchiveProofVerify, RefusesAHeaderThatTellsAnotherNameThanTheDirectory) {
    RawEntry entry = Deflated("name", "content");
    entry.local_name = "evil";
    Put("a.zip", RawZip({entry}));

    EXPECT_EQ(KindOf({"content"}), ErrorKind::kMalformed);
}

TEST_F(ArchiveProofVerify, RefusesACountThatContradictsTheDirectory) {
    std::string archive = RawZip({{.name = "a", .data = "x"}});
    archive[archive.size() - 12] = 2;
    Put("a.zip", archive);

    EXPECT_EQ(KindOf({"x"}), ErrorKind::kMalformed);
}

TEST_F(ArchiveProofVerify, RefusesAnEncryptedEntry) {
    Put("a.zip", RawZip({{.name = "a", .data = "x", .flags = 1}}));

    EXPECT_EQ(KindOf({"x"}), ErrorKind::kMalformed);
}

// Bytes that cannot be read.
class BrokenSource final : public Blob::Source {
 public:
    std::uint64_t size_bytes() const override { return 7; }
    Status ReadAt(std::uint64_t, char*, std::size_t) const override {
        return RuntimeError(kFileCouldNotBeRead);
    }
};

TEST_F(ArchiveProofVerify, AContentThatCannotBeReadIsNoProof) {
    Put("a.zip", RawZip({{.name = "a", .data = "1234567"}, {.name = "b", .data = "7654321"}}));
    const Blob broken(std::make_shared<BrokenSource>());

    const Status both = factory_.Proof().Verify(In("a.zip"), {broken, broken});
    ASSERT_FALSE(both.ok());
    EXPECT_EQ(both.error().kind, ErrorKind::kIo);

    Put("a.zip", RawZip({{.name = "a", .data = "1234567"}}));
    const Status one = factory_.Proof().Verify(In("a.zip"), {broken});
    ASSERT_FALSE(one.ok());
    EXPECT_EQ(one.error().kind, ErrorKind::kIo);
}

TEST_F(ArchiveProofVerify, ProvesWhatTheEngineWroteAndNothingElse) {
    Put("f", Noise(70'000));
    ASSERT_EQ(Add("f"), 0);

    EXPECT_TRUE(Verify({Noise(70'000)}).ok());
    EXPECT_EQ(KindOf({Noise(69'999)}), ErrorKind::kMalformed);
    EXPECT_EQ(KindOf({Noise(70'000), ""}), ErrorKind::kMalformed);
    EXPECT_EQ(KindOf({}), ErrorKind::kMalformed);
}

}  // namespace
}  // namespace trevix
