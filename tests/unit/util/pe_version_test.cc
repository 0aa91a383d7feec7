#include "util/pe_version.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/pe_image.h"

namespace trevix {
namespace {

using test::MakePeImage;
using test::PeOptions;

std::string VersionOf(const std::string& bytes) {
    return PeVersionText(Blob::FromString(bytes));
}

std::string VersionOf(const PeOptions& options) {
    return VersionOf(MakePeImage(options).bytes);
}

// A file that says how much of it was read.
class CountingSource final : public Blob::Source {
 public:
    CountingSource(std::string bytes, std::uint64_t size_bytes)
        : bytes_(std::move(bytes)), size_bytes_(size_bytes) {}
    std::uint64_t size_bytes() const override { return size_bytes_; }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        read_bytes += count;
        for (std::size_t i = 0; i < count; ++i) {
            target[i] = offset + i < bytes_.size() ? bytes_[offset + i] : '\0';
        }
        return {};
    }

    mutable std::size_t read_bytes = 0;

 private:
    std::string bytes_;
    std::uint64_t size_bytes_;
};

TEST(PeVersion, ReadsTheFourNumbersOfAProgram) {
    EXPECT_EQ(VersionOf(PeOptions{}), "5.1.2600.0");
    EXPECT_EQ(VersionOf(PeOptions{.most = 0xFFFF8000, .least = 0x0001FFFF}), "65535.32768.1.65535");
    EXPECT_EQ(VersionOf(PeOptions{.most = 0, .least = 0}), "0.0.0.0");
}

TEST(PeVersion, Reads64BitPrograms) {
    EXPECT_EQ(VersionOf(PeOptions{.wide = true}), "5.1.2600.0");
}

TEST(PeVersion, FindsTheVersionAmongOtherResources) {
    EXPECT_EQ(VersionOf(PeOptions{.named_types = 3, .other_types = 10}), "5.1.2600.0");
    EXPECT_EQ(VersionOf(PeOptions{.wide = true, .named_types = 40}), "5.1.2600.0");
}

TEST(PeVersion, IsEmptyWithoutAVersionResource) {
    EXPECT_EQ(VersionOf(PeOptions{.version_type = 24}), "");
    EXPECT_EQ(VersionOf(PeOptions{.directories = 2}), "");
}

TEST(PeVersion, IsEmptyForWhatIsNoProgram) {
    EXPECT_EQ(VersionOf(std::string()), "");
    EXPECT_EQ(VersionOf(std::string("MZ")), "");
    EXPECT_EQ(VersionOf("MZ" + std::string(62, '\xFF')), "");
    EXPECT_EQ(VersionOf(std::string(100000, 'x')), "");
}

TEST(PeVersion, IsEmptyForADirectoryOfAnotherDepth) {
    EXPECT_EQ(VersionOf(PeOptions{.language_is_directory = true}), "");
    EXPECT_EQ(VersionOf(PeOptions{.type_is_data = true}), "");
}

TEST(PeVersion, IsEmptyForADamagedVersion) {
    EXPECT_EQ(VersionOf(PeOptions{.fixed_signature = 0xFEEF04BE}), "");
    EXPECT_EQ(VersionOf(PeOptions{.fixed_bytes = 51}), "");
    EXPECT_EQ(VersionOf(PeOptions{.resource_bytes = 91}), "");
    EXPECT_EQ(VersionOf(PeOptions{.length = 91}), "");
}

TEST(PeVersion, IsEmptyForAnImageCutAnywhereBeforeTheVersionEnds) {
    for (const bool wide : {false, true}) {
        const test::PeImage image = MakePeImage({.wide = wide, .other_types = 2, .tail = "rest"});
        for (std::size_t size = 0; size <= image.bytes.size(); ++size) {
            const char* expected = size < image.version_end ? "" : "5.1.2600.0";
            ASSERT_EQ(VersionOf(image.bytes.substr(0, size)), expected) << size;
        }
    }
}

TEST(PeVersion, SurvivesEveryByteBeingAnotherOne) {
    for (const bool wide : {false, true}) {
        const std::string image = MakePeImage({.wide = wide, .named_types = 1}).bytes;
        for (std::size_t at = 0; at < image.size(); ++at) {
            for (const char other : {'\0', '\x7F', '\x80', '\xFF'}) {
                std::string damaged = image;
                damaged[at] = other;
                const std::string text = VersionOf(damaged);
                ASSERT_TRUE(text.empty() || std::count(text.begin(), text.end(), '.') == 3) << at;
            }
        }
    }
}

TEST(PeVersion, SurvivesTheLargestNumbersAnywhere) {
    const std::string image = MakePeImage({.other_types = 1}).bytes;
    for (std::size_t at = 0; at + 4 <= image.size(); ++at) {
        const std::string text = VersionOf(std::string(image).replace(at, 4, 4, '\xFF'));
        ASSERT_TRUE(text.empty() || std::count(text.begin(), text.end(), '.') == 3) << at;
    }
}

TEST(PeVersion, ReadsOnlyTheWayToTheVersion) {
    const auto source =
        std::make_shared<CountingSource>(MakePeImage().bytes, std::uint64_t{1} << 40);

    EXPECT_EQ(PeVersionText(Blob(source)), "5.1.2600.0");
    EXPECT_LT(source->read_bytes, 300U);
}

TEST(PeVersion, GivesUpOnCountsThatNoProgramHas) {
    // 65,535 sections, none of which holds the resources.
    std::string image = MakePeImage().bytes;
    image.replace(0x40 + 6, 2, 2, '\xFF');
    image.replace(0x40 + 24 + 112, 4, std::string("\x00\x00\x00\x70", 4));
    const auto sections = std::make_shared<CountingSource>(image, std::uint64_t{1} << 40);
    EXPECT_EQ(PeVersionText(Blob(sections)), "");
    EXPECT_LT(sections->read_bytes, 20000U);

    const auto types = std::make_shared<CountingSource>(MakePeImage({.other_types = 60000}).bytes,
                                                        std::uint64_t{1} << 40);
    EXPECT_EQ(PeVersionText(Blob(types)), "");
    EXPECT_LT(types->read_bytes, 20000U);
}

}  // namespace
}  // namespace trevix
