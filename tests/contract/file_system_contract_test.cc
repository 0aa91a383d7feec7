#include "contract/file_system_contract.h"

#include <cstdlib>
#include <filesystem>

#include "fakes/fake_file_system.h"
#include "platform/posix/posix_file_system.h"

namespace trevix::contract {
namespace {

class PosixWorld final : public FileSystemWorld {
 public:
    PosixWorld() : root_(testing::TempDir() + "files-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
        std::filesystem::create_directory(root_ + "/root");
        files_ = std::make_unique<posix::PosixFileSystem>(
            posix::FileSystemPlaces{root_, root_ + "/program"});
    }
    ~PosixWorld() override {
        files_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    FileSystem& files() override { return *files_; }
    std::string root() override { return root_ + "/root/"; }

 private:
    std::string root_;
    std::unique_ptr<posix::PosixFileSystem> files_;
};

class FakeWorld final : public FileSystemWorld {
 public:
    FakeWorld() { files_.PutDirectory("/root"); }

    FileSystem& files() override { return files_; }
    std::string root() override { return "/root/"; }

 private:
    fakes::FaultPlan plan_;
    fakes::FakeFileSystem files_{plan_};
};

INSTANTIATE_TEST_SUITE_P(
    All, FileSystemContract,
    testing::Values(FileSystemCase{"fake", [] { return std::make_unique<FakeWorld>(); }},
                    FileSystemCase{"posix", [] { return std::make_unique<PosixWorld>(); }}),
    FileSystemCaseName);

}  // namespace
}  // namespace trevix::contract
