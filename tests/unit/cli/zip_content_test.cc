#include "cli/zip_content.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "platform/zip/factory.h"

namespace trevix::cli {
namespace {

namespace fs = std::filesystem;

// An archive of two files that the engine made.
class OpenZipContentTest : public testing::Test {
 protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "zip-content-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        for (int i = 0; i < 60000; ++i)
            text_ += std::to_string(i * 7919) + (i % 9 == 0 ? "\n" : " ");
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string Archive(std::int16_t level) {
        std::ofstream(folder_ / "first.txt", std::ios::binary) << "first";
        std::ofstream(folder_ / "index.adtg", std::ios::binary) << text_;
        zip_engine::Factory factory;
        const auto engine = factory.CreateZipEngine();
        engine.value()->compression_level = level;
        engine.value()->zip_file = folder_ / "archive.zip";
        engine.value()->item_list = "\"" + (folder_ / "first.txt").string() + "\" \"" +
                                    (folder_ / "index.adtg").string() + "\"";
        engine.value()->Action(kZipAddFiles);
        EXPECT_EQ(engine.value()->error_code, 0);
        std::ifstream file(folder_ / "archive.zip", std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(file), {}};
        file.close();
        fs::remove(folder_ / "archive.zip");
        return bytes;
    }
    // The content, or why it cannot be had.
    static std::string Read(const std::string& archive, const std::string& name) {
        const auto content = OpenZipContent(Blob::FromString(archive), name);
        if (!content.ok()) return "no: " + content.error().description;
        const auto text = content.value().ToString();
        EXPECT_TRUE(text.ok() || text.error().kind == ErrorKind::kMalformed);
        return text.ok() ? text.value() : "damaged";
    }

    fs::path folder_;
    std::string text_;
};

TEST_F(OpenZipContentTest, GivesTheBytesOfTheEntry) {
    for (const std::int16_t level : {std::int16_t{0}, std::int16_t{5}}) {
        const std::string archive = Archive(level);
        EXPECT_EQ(Read(archive, "index.adtg"), text_);
        EXPECT_EQ(Read(archive, "first.txt"), "first");
        EXPECT_EQ(Read(archive, "other"), "no: it holds no other");
    }
}

TEST_F(OpenZipContentTest, CanBeReadInPiecesAndAgain) {
    for (const std::int16_t level : {std::int16_t{0}, std::int16_t{5}}) {
        const auto content = OpenZipContent(Blob::FromString(Archive(level)), "index.adtg");
        ASSERT_TRUE(content.ok());
        ASSERT_EQ(content.value().size_bytes(), text_.size());
        for (const std::size_t offset : {std::size_t{100000}, std::size_t{5}, text_.size() - 10}) {
            std::string piece(10, '\0');
            ASSERT_TRUE(content.value().ReadAt(offset, piece.data(), piece.size()).ok());
            EXPECT_EQ(piece, text_.substr(offset, 10));
        }
        std::string whole;
        for (std::size_t at = 0; at < text_.size(); at += 4099) {
            std::string piece(std::min<std::size_t>(4099, text_.size() - at), '\0');
            ASSERT_TRUE(content.value().ReadAt(at, piece.data(), piece.size()).ok());
            whole += piece;
        }
        EXPECT_EQ(whole, text_);
    }
}

TEST_F(OpenZipContentTest, NoticesEveryDamage) {
    for (const std::int16_t level : {std::int16_t{0}, std::int16_t{5}}) {
        const std::string archive = Archive(level);
        EXPECT_TRUE(Read("", "index.adtg").starts_with("no: "));
        EXPECT_TRUE(Read("no archive at all", "index.adtg").starts_with("no: "));
        EXPECT_TRUE(Read(archive.substr(0, archive.size() / 2), "index.adtg").starts_with("no: "));
        for (std::size_t at = 200; at < archive.size() - 300; at += archive.size() / 50) {
            std::string damaged = archive;
            damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
            EXPECT_EQ(Read(damaged, "index.adtg"), "damaged") << at;
        }
    }
}

}  // namespace
}  // namespace trevix::cli
