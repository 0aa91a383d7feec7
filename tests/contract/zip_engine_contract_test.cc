// The zip engines of the fake and of the adapter, held to one contract.
#include "contract/zip_engine_contract.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "fakes/fake_zip_engine.h"
#include "platform/zip/factory.h"

namespace trevix::contract {
namespace {

class FakeWorld final : public ZipEngineWorld {
 public:
    FakeWorld() { files_.PutDirectory("/zips"); }
    ZipFactory& factory() override { return factory_; }
    std::string root() override { return "/zips/"; }
    void MakeDirectory(const std::string& path) override { files_.PutDirectory(path); }
    void WriteFile(const std::string& path, const std::string& bytes) override {
        files_.Put(path, bytes);
    }
    std::optional<std::string> ReadFile(const std::string& path) override {
        const auto file = files_.files.find(path);
        if (file == files_.files.end()) return std::nullopt;
        return file->second;
    }
    std::size_t FileCount() override { return files_.files.size(); }

 private:
    fakes::FaultPlan plan_;
    fakes::FakeFileSystem files_{plan_};
    fakes::FakeZipFactory factory_{plan_, files_};
};

class DiskWorld final : public ZipEngineWorld {
 public:
    DiskWorld() {
        std::string name = (std::filesystem::temp_directory_path() / "zip-XXXXXX").string();
        root_ = ::mkdtemp(name.data());
        root_ += '/';
    }
    DiskWorld(const DiskWorld&) = delete;
    DiskWorld& operator=(const DiskWorld&) = delete;
    ~DiskWorld() override { std::filesystem::remove_all(root_); }

    ZipFactory& factory() override { return factory_; }
    std::string root() override { return root_; }
    void MakeDirectory(const std::string& path) override {
        std::filesystem::create_directory(path);
    }
    void WriteFile(const std::string& path, const std::string& bytes) override {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    std::optional<std::string> ReadFile(const std::string& path) override {
        std::ifstream file(path, std::ios::binary);
        if (!file) return std::nullopt;
        std::ostringstream bytes;
        bytes << file.rdbuf();
        return bytes.str();
    }
    std::size_t FileCount() override {
        const std::filesystem::directory_iterator files(root_);
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

 private:
    std::string root_;
    zip_engine::Factory factory_;
};

INSTANTIATE_TEST_SUITE_P(
    Zip, ZipEngineContract,
    testing::Values(ZipEngineCase{"Fake", [] { return std::make_unique<FakeWorld>(); }},
                    ZipEngineCase{"Disk", [] { return std::make_unique<DiskWorld>(); }}),
    ZipEngineCaseName);

}  // namespace
}  // namespace trevix::contract
