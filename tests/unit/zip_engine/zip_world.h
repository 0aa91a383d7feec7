// A private directory with the real engines, and a look at what they leave behind.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/zip/factory.h"

namespace trevix::test {

inline std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

class ZipWorld : public testing::Test {
 protected:
    ZipWorld() {
        std::string name = (std::filesystem::temp_directory_path() / "zip-XXXXXX").string();
        root_ = ::mkdtemp(name.data());
        root_ += '/';
        zip_ = std::move(factory_.CreateZipEngine()).value();
        unzip_ = std::move(factory_.CreateUnzipEngine()).value();
        zip_->compression_level = 5;
        zip_->zip_file = In("a.zip");
        unzip_->zip_file = In("a.zip");
        open_before_ = OpenDescriptors();
    }

    // Whatever a test did, no descriptor and no temporary file stays behind.
    ~ZipWorld() override {
        EXPECT_EQ(OpenDescriptors(), open_before_);
        for (const auto& file : std::filesystem::recursive_directory_iterator(root_)) {
            EXPECT_FALSE(file.path().filename().string().starts_with(".trevix")) << file.path();
        }
        std::filesystem::remove_all(root_);
    }

    std::string In(const std::string& name) const { return root_ + name; }

    void Put(const std::string& name, const std::string& bytes) const {
        std::ofstream(In(name), std::ios::binary) << bytes;
    }

    std::string Read(const std::string& name) const {
        std::ifstream file(In(name), std::ios::binary);
        std::ostringstream bytes;
        bytes << file.rdbuf();
        return bytes.str();
    }

    bool Exists(const std::string& name) const {
        return std::filesystem::symlink_status(In(name)).type() !=
               std::filesystem::file_type::not_found;
    }

    std::int16_t AddItems(const std::string& list) {
        zip_->item_list = list;
        zip_->Action(kZipAddFiles);
        return zip_->error_code;
    }
    std::int16_t Add(const std::string& name) { return AddItems('"' + In(name) + '"'); }

    std::int16_t Count() {
        unzip_->Action(kUnzipCount);
        return unzip_->error_code;
    }

    std::vector<std::string> Names() {
        std::vector<std::string> names;
        EXPECT_EQ(Count(), 0);
        for (int i = 0; i < unzip_->entry_count; ++i) {
            unzip_->Action(kUnzipNext);
            names.push_back(unzip_->entry_name);
        }
        return names;
    }

    std::int16_t Extract() {
        std::filesystem::create_directory(In("out"));
        unzip_->destination = In("out/");
        unzip_->Action(kUnzipExtract);
        return unzip_->error_code;
    }

    // An independent program's opinion of a.zip; empty when it has none to complain about.
    std::string Complaints() const {
        const std::string log = In("complaints");
        const std::string command = "unzip -tq '" + In("a.zip") + "' > '" + log + "' 2>&1";
        const int failed = std::system(command.c_str());
        const std::string text = failed == 0 ? std::string() : Read("complaints") + "!";
        std::filesystem::remove(log);
        return text;
    }

    Status Verify(const std::vector<std::string>& contents) {
        std::vector<Blob> blobs;
        for (const std::string& content : contents)
            blobs.push_back(Blob::FromString(content));
        return factory_.Proof().Verify(In("a.zip"), blobs);
    }

    zip_engine::Factory factory_;
    std::unique_ptr<ZipEngine> zip_;
    std::unique_ptr<UnzipEngine> unzip_;
    std::string root_;
    std::size_t open_before_ = 0;
};

// Bytes that do not shrink, always the same.
inline std::string Noise(std::size_t count) {
    std::string bytes(count, '\0');
    std::uint64_t state = 88172645463325252ULL;
    for (char& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<char>(state >> 32);
    }
    return bytes;
}

// Bytes that shrink, but not to nothing.
inline std::string Prose(std::size_t count) {
    const std::string noise = Noise(4096);
    std::string bytes;
    bytes.reserve(count + 16);
    for (std::size_t i = 0; bytes.size() < count; ++i) {
        bytes += "item " + std::to_string(static_cast<unsigned char>(noise[(i * 7) % 4096])) + "; ";
    }
    bytes.resize(count);
    return bytes;
}

}  // namespace trevix::test
