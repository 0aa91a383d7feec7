#include "platform/summary_cache/sqlite_summary_cache.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace trevix::summary_cache {
namespace {

constexpr const char* kStore = "maildir:/home/me/Mail";

class SqliteSummaryCacheFile : public testing::Test {
 protected:
    SqliteSummaryCacheFile() {
        std::string pattern = testing::TempDir() + "trevix-cache-XXXXXX";
        directory_ = mkdtemp(pattern.data());
    }
    ~SqliteSummaryCacheFile() override {
        std::filesystem::permissions(directory_, std::filesystem::perms::owner_all);
        std::filesystem::remove_all(directory_);
    }

    static FolderSummary MakeFolder(int count) {
        FolderSummary folder;
        folder.stamp = "stamp" + std::to_string(count);
        for (int i = 0; i < count; ++i) {
            MessageSummary message;
            message.entry.key = "1700000000.M" + std::to_string(i) + "P1.host";
            message.entry.locator = message.entry.key + ":2,S";
            message.subject = "A subject of ordinary length " + std::to_string(i);
            message.message_class = "IPM.Note";
            folder.messages.push_back(message);
        }
        return folder;
    }

    void Overwrite(const std::string& path, std::size_t offset, const std::string& bytes) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset));
        file << bytes;
    }

    std::string directory_;
};

TEST_F(SqliteSummaryCacheFile, KeepsSummariesBetweenRuns) {
    ASSERT_TRUE(SqliteSummaryCache(directory_).Save(kStore, "INBOX", {}, MakeFolder(300)).ok());

    SqliteSummaryCache later(directory_);

    EXPECT_TRUE(later.KnowsStore(kStore).value());
    EXPECT_EQ(later.Load(kStore, "INBOX").value().messages.size(), 300U);
}

TEST_F(SqliteSummaryCacheFile, IsPrivate) {
    const std::string below = directory_ + "/a/b";
    SqliteSummaryCache cache(below);
    ASSERT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(3)).ok());

    struct stat status {};
    ASSERT_EQ(::stat(cache.PathOf(kStore).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(below.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(SqliteSummaryCacheFile, StartsAnewWhenTheFileIsNoDatabase) {
    const std::string path = SqliteSummaryCache(directory_).PathOf(kStore);
    std::ofstream(path) << "this is no database, but it is longer than one header of them is";

    SqliteSummaryCache cache(directory_);

    EXPECT_FALSE(cache.KnowsStore(kStore).value());
    ASSERT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(5)).ok());
    EXPECT_EQ(cache.Load(kStore, "INBOX").value().messages.size(), 5U);
}

TEST_F(SqliteSummaryCacheFile, NeverGivesDamagedSummaries) {
    std::string path;
    {
        SqliteSummaryCache cache(directory_);
        path = cache.PathOf(kStore);
        ASSERT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(2000)).ok());
    }
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(path));
    for (std::size_t page = 1; page * 4096 < size; page += 7) {
        Overwrite(path, page * 4096 + 100, std::string(2000, '\x5A'));
    }

    SqliteSummaryCache cache(directory_);
    const FolderSummary loaded = cache.Load(kStore, "INBOX").value();
    EXPECT_TRUE(loaded.messages.empty());

    ASSERT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(10)).ok());
    EXPECT_EQ(cache.Load(kStore, "INBOX").value().messages.size(), 10U);
}

TEST_F(SqliteSummaryCacheFile, ThrowsAwayAFileOfAnotherVersion) {
    std::string path;
    {
        SqliteSummaryCache cache(directory_);
        path = cache.PathOf(kStore);
        ASSERT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(10)).ok());
    }
    Overwrite(path, 60, std::string("\0\0\0\x63", 4));  // the version number in the file's header

    SqliteSummaryCache cache(directory_);

    EXPECT_FALSE(cache.KnowsStore(kStore).value());
}

TEST_F(SqliteSummaryCacheFile, WorksWithoutAPlaceToWrite) {
    for (const std::string& place : {std::string("/proc/nowhere"), std::string("/dev/null/x")}) {
        SqliteSummaryCache cache(place);

        EXPECT_FALSE(cache.KnowsStore(kStore).value());
        EXPECT_TRUE(cache.Save(kStore, "INBOX", {}, MakeFolder(5)).ok());
        EXPECT_TRUE(cache.Load(kStore, "INBOX").value().messages.empty());
    }
}

TEST_F(SqliteSummaryCacheFile, SurvivesAKillInTheMiddleOfSaving) {
    const FolderSummary first = MakeFolder(1000);
    ASSERT_TRUE(SqliteSummaryCache(directory_).Save(kStore, "INBOX", {}, first).ok());
    for (int round = 0; round < 10; ++round) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            SqliteSummaryCache cache(directory_);
            for (int i = 1;; ++i) {
                FolderSummary other = MakeFolder(1000 + i);
                other.messages[static_cast<std::size_t>(i) % 1000].subject = "changed";
                static_cast<void>(cache.Save(kStore, "INBOX", {}, other).ok());
                if (i == 1 + round && ::write(ready[1], "x", 1) != 1) ::_exit(1);
            }
        }
        char byte = 0;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(ready[0]);
        ::close(ready[1]);

        const FolderSummary loaded = SqliteSummaryCache(directory_).Load(kStore, "INBOX").value();
        ASSERT_GE(loaded.messages.size(), 1000U);
        EXPECT_EQ(loaded.stamp, "stamp" + std::to_string(loaded.messages.size()));
    }
}

TEST_F(SqliteSummaryCacheFile, TellsStoresOfLongNamesApart) {
    const SqliteSummaryCache cache(directory_);
    const std::string name(300, 'x');

    EXPECT_NE(cache.PathOf("maildir:/1" + name), cache.PathOf("maildir:/2" + name));
    EXPECT_LT(cache.PathOf("maildir:/1" + name).size() - directory_.size(), 120U);
}

}  // namespace
}  // namespace trevix::summary_cache
