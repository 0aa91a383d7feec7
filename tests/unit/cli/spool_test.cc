#include "cli/spool.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/errors.h"
#include "unit/posix/scratch.h"

namespace trevix::cli {
namespace {

std::uint64_t AllocatedBytes(const Blob& blob) {
    struct stat about {};
    if (::fstat(blob.descriptor(nullptr), &about) != 0) return 0;
    return static_cast<std::uint64_t>(about.st_blocks) * 512;
}

// A Blob that fails in the middle of being read.
class Broken final : public Blob::Source {
 public:
    std::uint64_t size_bytes() const override { return 1000000; }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        if (offset > 0) return RuntimeError(kDeviceIo);
        std::fill_n(target, count, 'x');
        return {};
    }
};

TEST(SpoolKeep, GivesBackTheBytesOfEachBlob) {
    const test::Scratch scratch;
    Spool spool(scratch.root());
    const std::string large(1000000, 'l');

    const Blob first = spool.Keep(Blob::FromString("first")).value();
    const Blob empty = spool.Keep(Blob()).value();
    const Blob second = spool.Keep(Blob::FromString(large)).value();

    EXPECT_EQ(first.ToString().value(), "first");
    EXPECT_EQ(empty.size_bytes(), 0U);
    EXPECT_EQ(second.ToString().value(), large);
    std::uint64_t offset = 0;
    ASSERT_GE(second.descriptor(&offset), 0);
    EXPECT_EQ(offset, 5U);
}

TEST(SpoolKeep, HasNoNameInTheDirectory) {
    const test::Scratch scratch;
    Spool spool(scratch.root());

    const Blob kept = spool.Keep(Blob::FromString("bytes")).value();

    EXPECT_TRUE(std::filesystem::is_empty(scratch.root()));
}

TEST(SpoolKeep, StaysReadableAfterTheSpoolHasGone) {
    const test::Scratch scratch;
    Blob kept;
    {
        Spool spool(scratch.root());
        kept = spool.Keep(Blob::FromString("bytes")).value();
    }

    EXPECT_EQ(kept.ToString().value(), "bytes");
}

TEST(SpoolKeep, GivesTheSpaceBackWithTheLastCopy) {
    const test::Scratch scratch;
    Spool spool(scratch.root());
    const Blob stays = spool.Keep(Blob::FromString("stays")).value();
    {
        Blob large = spool.Keep(Blob::FromString(std::string(8 << 20, 'l'))).value();
        const Blob copy = large;
        large = Blob();
        EXPECT_EQ(copy.ToString().value().size(), std::size_t{8} << 20);
        EXPECT_GE(AllocatedBytes(stays), std::uint64_t{8} << 20);
    }

    EXPECT_LT(AllocatedBytes(stays), std::uint64_t{1} << 20);
    EXPECT_EQ(stays.ToString().value(), "stays");
}

TEST(SpoolKeep, PassesOnAFailureAndGoesOnAfterIt) {
    const test::Scratch scratch;
    Spool spool(scratch.root());

    const auto failed = spool.Keep(Blob(std::make_shared<Broken>()));
    const Blob next = spool.Keep(Blob::FromString("next")).value();

    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error().number, kDeviceIo);
    EXPECT_EQ(next.ToString().value(), "next");
}

TEST(SpoolKeep, SaysWhereNoFileCanBeMade) {
    Spool spool("/nonexistent/place");

    const auto kept = spool.Keep(Blob::FromString("x"));

    ASSERT_FALSE(kept.ok());
    EXPECT_EQ(kept.error().kind, ErrorKind::kNotFound);
    EXPECT_THAT(kept.error().description, testing::HasSubstr("/nonexistent/place"));
}

}  // namespace
}  // namespace trevix::cli
