#include "platform/file_blob.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "unit/posix/scratch.h"

namespace trevix {
namespace {

using test::Put;
using test::Scratch;

TEST(OpenFileBlob, ReadsASmallFileIntoMemory) {
    const Scratch scratch;
    Put(scratch / "f", "abc");

    const Blob blob = OpenFileBlob(scratch / "f", FollowLinks::kNo).value();
    Put(scratch / "f", "xyz");

    std::uint64_t offset = 7;
    EXPECT_EQ(blob.descriptor(&offset), -1);
    EXPECT_EQ(blob.ToString().value(), "abc");
}

TEST(OpenFileBlob, GivesTheDescriptorOfALargeFile) {
    const Scratch scratch;
    const std::string text(70000, 'q');
    Put(scratch / "f", text);

    const Blob blob = OpenFileBlob(scratch / "f", FollowLinks::kNo).value();
    ASSERT_EQ(::unlink((scratch / "f").c_str()), 0);

    std::uint64_t offset = 7;
    EXPECT_GE(blob.descriptor(&offset), 0);
    EXPECT_EQ(offset, 0U);
    EXPECT_EQ(blob.ToString().value(), text);
    EXPECT_GE(blob.Slice(5, 10).descriptor(&offset), 0);
    EXPECT_EQ(offset, 5U);
}

TEST(OpenFileBlob, FollowsALinkOnlyWhenAsked) {
    const Scratch scratch;
    Put(scratch / "f", "abc");
    ASSERT_EQ(::symlink("f", (scratch / "link").c_str()), 0);

    EXPECT_TRUE(OpenFileBlob(scratch / "link", FollowLinks::kYes).ok());
    EXPECT_EQ(OpenFileBlob(scratch / "link", FollowLinks::kNo).error().kind, ErrorKind::kDenied);
}

TEST(OpenFileBlob, RefusesWhatIsNoRegularFileWithoutWaiting) {
    const Scratch scratch;
    ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);

    EXPECT_EQ(OpenFileBlob(scratch / "fifo", FollowLinks::kYes).error().number, kPathFileAccess);
    EXPECT_EQ(OpenFileBlob(scratch.root(), FollowLinks::kYes).error().number, kPathFileAccess);
    EXPECT_EQ(OpenFileBlob(scratch / "none", FollowLinks::kYes).error().number, kFileNotFound);
}

TEST(BlobFromDescriptor, SaysThatALargeFileHasBecomeShorter) {
    const Scratch scratch;
    Put(scratch / "f", std::string(100000, 'q'));
    const Blob blob = OpenFileBlob(scratch / "f", FollowLinks::kNo).value();

    ASSERT_EQ(::truncate((scratch / "f").c_str(), 99999), 0);

    char byte = 0;
    EXPECT_TRUE(blob.ReadAt(99998, &byte, 1).ok());
    EXPECT_EQ(blob.ReadAt(99999, &byte, 1).error().kind, ErrorKind::kChanged);
    EXPECT_EQ(blob.ToString().error().kind, ErrorKind::kChanged);
}

TEST(BlobFromDescriptor, SaysThatASmallFileIsShorterThanTold) {
    const Scratch scratch;
    Put(scratch / "f", "abc");
    UniqueDescriptor file(::open((scratch / "f").c_str(), O_RDONLY | O_CLOEXEC));

    EXPECT_EQ(BlobFromDescriptor(std::move(file), 4).error().kind, ErrorKind::kChanged);
}

}  // namespace
}  // namespace trevix
