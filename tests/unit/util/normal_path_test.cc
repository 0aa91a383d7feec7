#include "util/normal_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "platform/errors.h"
#include "util/text.h"

namespace trevix {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A file system where case means nothing, and which knows how its names are spelled.
struct Disk {
    Result<FileDetails> Find(const std::string& path) {
        looks.push_back(path);
        const auto entry = entries.find(ToLower(path));
        if (entry == entries.end()) return RuntimeError(kFileNotFound, path);
        return entry->second;
    }

    void Add(const std::string& path, bool directory = true) {
        FileDetails details;
        details.name = path.substr(path.find_last_of("\\/") + 1);
        details.attributes = directory ? kAttributeDirectory : kAttributeArchive;
        entries[ToLower(path)] = details;
    }

    std::string Normal(const std::string& path, char separator = '\\') {
        return NormalizePath(path, separator, [this](const std::string& p) { return Find(p); });
    }

    std::map<std::string, FileDetails> entries;
    std::vector<std::string> looks;
};

TEST(NormalizePath, KeepsADriveRootInUpperCase) {
    Disk disk;
    EXPECT_EQ(disk.Normal("c:\\"), "C:\\");
    EXPECT_THAT(disk.looks, IsEmpty());
}

TEST(NormalizePath, DropsAnyOtherFinalSeparator) {
    Disk disk;
    disk.Add("C:\\Windows");
    EXPECT_EQ(disk.Normal("C:\\Windows\\"), "C:\\Windows");
}

TEST(NormalizePath, SpellsEachFolderAsTheFileSystemDoes) {
    Disk disk;
    disk.Add("C:\\Program Files");
    disk.Add("C:\\Program Files\\Quellmar");
    EXPECT_EQ(disk.Normal("c:\\PROGRAM files\\quellMAR\\"), "C:\\Program Files\\Quellmar");
    EXPECT_THAT(disk.looks, ElementsAre("C:\\PROGRAM files", "C:\\Program Files\\quellMAR"));
}

TEST(NormalizePath, EndsAtTheFirstFolderThatIsMissing) {
    Disk disk;
    disk.Add("C:\\Windows");
    EXPECT_EQ(disk.Normal("c:\\windows\\none\\windows"), "C:\\Windows");
    EXPECT_THAT(disk.looks, ElementsAre("C:\\windows", "C:\\Windows\\none"));
}

TEST(NormalizePath, EndsAtTheFirstNameThatIsNoFolder) {
    Disk disk;
    disk.Add("C:\\Windows");
    disk.Add("C:\\Windows\\win.ini", false);
    EXPECT_EQ(disk.Normal("c:\\windows\\WIN.INI\\x"), "C:\\Windows");
}

TEST(NormalizePath, KeepsAServerAndItsShareUntouched) {
    Disk disk;
    disk.Add("\\\\srv\\Share\\Data");
    EXPECT_EQ(disk.Normal("\\\\srv\\Share\\DATA\\"), "\\\\srv\\Share\\Data");
    EXPECT_EQ(disk.Normal("\\\\srv\\Share"), "\\\\srv\\Share");
    EXPECT_EQ(disk.Normal("\\\\srv\\Share\\"), "\\\\srv\\Share");
    EXPECT_EQ(disk.Normal("\\\\srv"), "\\\\srv");
    EXPECT_THAT(disk.looks, ElementsAre("\\\\srv\\Share\\DATA"));
}

TEST(NormalizePath, GivesAPathOfOneComponentInUpperCase) {
    Disk disk;
    EXPECT_EQ(disk.Normal("docs"), "DOCS");
    EXPECT_EQ(disk.Normal("docs\\"), "DOCS");
    EXPECT_EQ(disk.Normal("c:"), "C:");
    EXPECT_EQ(disk.Normal(""), "");
    EXPECT_THAT(disk.looks, IsEmpty());
}

TEST(NormalizePath, TakesADoubledSeparatorForOne) {
    Disk disk;
    disk.Add("C:\\a");
    disk.Add("C:\\a\\b");
    EXPECT_EQ(disk.Normal("c:\\a\\\\b"), "C:\\a\\b");
}

TEST(NormalizePath, WalksFromTheCurrentFolderToo) {
    Disk disk;
    disk.Add("Docs");
    disk.Add("Docs\\New");
    EXPECT_EQ(disk.Normal("docs\\new"), "Docs\\New");
}

TEST(NormalizePath, WalksPathsWithSlashesAlike) {
    Disk disk;
    disk.Add("/home");
    disk.Add("/home/Ann");
    EXPECT_EQ(disk.Normal("/home/Ann/", '/'), "/home/Ann");
    EXPECT_EQ(disk.Normal("/home/none/", '/'), "/home");
    EXPECT_EQ(disk.Normal("/", '/'), "");
}

TEST(NormalizePath, LeavesCaseAloneWhereItTellsNamesApart) {
    Disk disk;
    disk.Add("docs");
    EXPECT_EQ(disk.Normal("docs/", '/'), "docs");
}

}  // namespace
}  // namespace trevix
