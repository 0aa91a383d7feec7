#include "cli/output_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace trevix::cli {
namespace {

namespace fs = std::filesystem;

TEST(SaveName, IsOneSafeComponentWhateverTheMailSays) {
    EXPECT_EQ(SaveName("report.doc"), "report.doc");
    EXPECT_EQ(SaveName("größe 2.doc"), "größe 2.doc");
    EXPECT_EQ(SaveName("../x"), "_._x");
    EXPECT_EQ(SaveName("/etc/passwd"), "_etc_passwd");
    EXPECT_EQ(SaveName("a\\b.doc"), "a_b.doc");
    EXPECT_EQ(SaveName("-rf"), "_rf");
    EXPECT_EQ(SaveName(".bashrc"), "_bashrc");
    EXPECT_EQ(SaveName("a\x1B[2J\n.doc"), "a_[2J_.doc");
    EXPECT_EQ(SaveName("a\xE2\x80\xAE"
                       "cod.exe"),
              "a_cod.exe");
    for (const char* name : {"", ".", "..", " "}) {
        EXPECT_EQ(SaveName(name), "attachment") << name;
    }
    EXPECT_EQ(SaveName(std::string("a\0b", 3)), "a_b");
}

TEST(SaveName, KeepsTheExtensionOfALongName) {
    for (const char* letter : {"n", "ö", "日"}) {
        std::string name;
        for (int i = 0; i < 300; ++i)
            name += letter;
        const std::string safe = SaveName(name + ".docx");
        EXPECT_LE(safe.size(), 255U);
        EXPECT_TRUE(safe.ends_with(".docx"));
    }
}

TEST(NumberedName, PutsTheNumberBeforeTheExtension) {
    EXPECT_EQ(NumberedName("a.doc", 2), "a (2).doc");
    EXPECT_EQ(NumberedName("a.tar.gz", 12), "a.tar (12).gz");
    EXPECT_EQ(NumberedName("README", 2), "README (2)");
    std::string longest;
    for (int i = 0; i < 125; ++i)
        longest += "ö";
    const std::string name = NumberedName(longest + ".docx", 100);
    EXPECT_LE(name.size(), 255U);
    EXPECT_TRUE(name.ends_with("ö (100).docx")) << name;
}

class OutputFileTest : public testing::Test {
 protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "output-file-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        directory_.Reset(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    void TearDown() override { fs::remove_all(folder_); }
    std::string Read(const std::string& name) const {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename());
        return names;
    }
    std::string Save(const std::string& name, const std::string& content) {
        auto file = OutputFile::Create(directory_.get());
        EXPECT_TRUE(file.ok());
        EXPECT_TRUE(file.value().Write(content.data(), content.size()).ok());
        const auto taken = file.value().Finish(name);
        return taken.ok() ? taken.value() : "failed: " + taken.error().description;
    }

    fs::path folder_;
    UniqueDescriptor directory_;
};

TEST_F(OutputFileTest, AppearsWholeUnderItsName) {
    auto file = OutputFile::Create(directory_.get());
    ASSERT_TRUE(file.ok());
    EXPECT_TRUE(file.value().Write("content", 7).ok());
    EXPECT_FALSE(fs::exists(folder_ / "a.doc"));

    ASSERT_EQ(file.value().Finish("a.doc").value(), "a.doc");

    EXPECT_EQ(Read("a.doc"), "content");
    struct stat about {};
    ASSERT_EQ(::stat((folder_ / "a.doc").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777U, 0600U);
    EXPECT_THAT(Names(), testing::ElementsAre("a.doc"));
}

TEST_F(OutputFileTest, NeverTakesTheNameOfAnother) {
    EXPECT_EQ(Save("a.doc", "1"), "a.doc");
    EXPECT_EQ(Save("a.doc", "2"), "a (2).doc");
    EXPECT_EQ(Save("a.doc", "3"), "a (3).doc");
    fs::create_directory(folder_ / "b");
    EXPECT_EQ(Save("b", "4"), "b (2)");
    fs::create_symlink("/nonexistent/target", folder_ / "c");
    EXPECT_EQ(Save("c", "5"), "c (2)");
    EXPECT_EQ(Read("a.doc"), "1");
    EXPECT_EQ(Read("a (2).doc"), "2");
    EXPECT_EQ(Read("c (2)"), "5");
}

TEST_F(OutputFileTest, LeavesNothingBehindUnlessItIsFinished) {
    {
        auto file = OutputFile::Create(directory_.get());
        ASSERT_TRUE(file.ok());
        EXPECT_TRUE(file.value().Write("half", 4).ok());
    }
    EXPECT_THAT(Names(), testing::IsEmpty());
}

}  // namespace
}  // namespace trevix::cli
