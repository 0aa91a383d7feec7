// A Maildir of one test, with a clock of its own, and what other mail programs do in it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/maildir/maildir_store.h"

namespace trevix::maildir {

inline constexpr std::int64_t kSecondNs = 1000000000;
inline constexpr std::int64_t kReceived = 1600000000 * kSecondNs + 123456789;

// Far in the future by default, so that listings are settled.
class TestClock final : public Clock {
 public:
    Date NowLocal() override { return {}; }
    Date NowUtc() override { return {}; }
    std::int64_t UnixNanoseconds() override { return now_ns; }
    std::int32_t TickCount() override { return 0; }

    std::int64_t now_ns = 4000000000 * kSecondNs;
};

class MaildirWorld {
 public:
    MaildirWorld() : root_(testing::TempDir() + "maildir-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
        MakeMaildir("");
    }
    MaildirWorld(const MaildirWorld&) = delete;
    MaildirWorld& operator=(const MaildirWorld&) = delete;
    ~MaildirWorld() {
        store.reset();
        std::error_code ignored;
        if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
    }

    std::string operator/(const std::string& name) const { return root_ + "/" + name; }
    const std::string& root() const { return root_; }

    void MakeMaildir(const std::string& directory) const {
        for (const char* name : {"/cur", "/new", "/tmp"}) {
            std::filesystem::create_directories(root_ + "/" + directory + name);
        }
    }

    // `path` is below the root, "cur/1.host:2,S".
    void Put(const std::string& path, const std::string& content,
             std::int64_t mtime_ns = kReceived) const {
        const std::string full = *this / path;
        std::ofstream(full, std::ios::binary) << content;
        SetTime(path, mtime_ns);
    }
    void SetTime(const std::string& path, std::int64_t mtime_ns) const {
        const timespec time{mtime_ns / kSecondNs, mtime_ns % kSecondNs};
        const std::array<timespec, 2> times = {time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, (*this / path).c_str(), times.data(), 0), 0);
    }
    void Rename(const std::string& from, const std::string& to) const {
        std::filesystem::rename(*this / from, *this / to);
    }
    void Remove(const std::string& path) const { std::filesystem::remove(*this / path); }
    bool Has(const std::string& path) const {
        struct stat about {};
        return ::lstat((*this / path).c_str(), &about) == 0;
    }
    struct stat About(const std::string& path) const {
        struct stat about {};
        EXPECT_EQ(::lstat((*this / path).c_str(), &about), 0) << path;
        return about;
    }
    std::string Get(const std::string& path) const {
        std::ifstream file(*this / path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    // File names in a directory, sorted.
    std::vector<std::string> Names(const std::string& directory) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(*this / directory)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    // Contents of all delivered messages of a folder, sorted; read without the store.
    std::vector<std::string> Mail(const std::string& directory = {}) const {
        std::vector<std::string> contents;
        for (const char* place : {"cur", "new"}) {
            const std::string path = (directory.empty() ? "" : directory + "/") + place;
            for (const std::string& name : Names(path)) {
                contents.push_back(Get(path + "/" + name));
            }
        }
        std::sort(contents.begin(), contents.end());
        return contents;
    }
    std::vector<std::string> Journals() const {
        std::vector<std::string> names;
        for (const std::string& name : Names("")) {
            if (name.starts_with("trevix-journal.")) names.push_back(name);
        }
        return names;
    }

    MaildirStore& Open() {
        store.reset();
        auto opened = MaildirStore::Open(root_, nullptr, clock);
        EXPECT_TRUE(opened.ok()) << opened.error().description;
        store = std::move(opened).value();
        return *store;
    }
    MailListing List(const std::string& folder = {}) const {
        auto change = store->List(folder, nullptr);
        EXPECT_TRUE(change.ok());
        return change.ok() ? std::move(change).value().listing : MailListing{};
    }
    MailEntry Entry(const std::string& key, const std::string& folder = {}) const {
        const MailListing listing = List(folder);
        for (const MailEntry& entry : listing.entries) {
            if (entry.key == key) return entry;
        }
        ADD_FAILURE() << "no message " << key;
        return {};
    }
    Result<MailEntry> Replace(const std::string& key, const std::string& content,
                              const std::string& folder = {}) const {
        auto staged = store->Stage(folder, Entry(key, folder), Blob::FromString(content));
        if (!staged.ok()) return staged.error();
        return staged.value()->Commit();
    }

    TestClock clock;
    std::unique_ptr<MaildirStore> store;

 private:
    std::string root_;
};

using Strings = std::vector<std::string>;

}  // namespace trevix::maildir
