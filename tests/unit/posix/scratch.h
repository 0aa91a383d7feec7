// A directory of one test, removed with all that is in it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace trevix::test {

class Scratch {
 public:
    Scratch() : path_(testing::TempDir() + "trevix-test-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) path_.clear();
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() {
        if (path_.empty()) return;
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    std::string root() const { return path_ + "/"; }

 private:
    std::string path_;
};

inline void Put(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string Get(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline bool Exists(const std::string& path) {
    struct stat about {};
    return ::lstat(path.c_str(), &about) == 0;
}

inline unsigned ModeOf(const std::string& path) {
    struct stat about {};
    return ::lstat(path.c_str(), &about) == 0 ? about.st_mode & 07777U : 0;
}

}  // namespace trevix::test
