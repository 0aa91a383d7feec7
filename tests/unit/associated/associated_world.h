// A directory of one test with a store of hidden messages in it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/associated/associated_store.h"
#include "platform/errors.h"

namespace trevix::associated {

class TestClock final : public Clock {
 public:
    Date NowLocal() override { return {}; }
    Date NowUtc() override { return {}; }
    std::int64_t UnixNanoseconds() override { return ++now_ns; }
    std::int32_t TickCount() override { return 0; }

    std::int64_t now_ns = 1700000000000000000;
};

class AssociatedWorld {
 public:
    AssociatedWorld() : root_(testing::TempDir() + "associated-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
    }
    AssociatedWorld(const AssociatedWorld&) = delete;
    AssociatedWorld& operator=(const AssociatedWorld&) = delete;
    ~AssociatedWorld() {
        std::error_code ignored;
        if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
    }

    const std::string& root() const { return root_; }
    std::string file() const { return root_ + "/" + kAssociatedFileName; }
    std::string Bytes() const {
        std::ifstream file_stream(file(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file_stream), {});
    }
    void PutBytes(const std::string& bytes) const {
        std::ofstream(file(), std::ios::binary | std::ios::trunc) << bytes;
    }
    std::size_t FileCount() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(root_)) {
            (void)entry;
            ++count;
        }
        return count;
    }

    TestClock clock;

 private:
    std::string root_;
};

inline HiddenMail Sample() {
    HiddenMail mail;
    mail.message_class = "IPM.Sample";
    mail.subject = "a sample";
    mail.properties.push_back({"set", "Count", Variant(std::int32_t{42})});
    mail.properties.push_back({"", "0E08000B", Variant(true)});
    mail.attachments.push_back({"log.zip", 1, Blob::FromString(std::string(600000, 'z'))});
    mail.attachments.push_back({"empty", 1, Blob()});
    return mail;
}

}  // namespace trevix::associated
