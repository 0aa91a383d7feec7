#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "contract/record_set_files.h"
#include "contract/record_set_records.h"
#include "contract/record_set_search.h"
#include "platform/recordset/factory.h"

namespace trevix::contract {
namespace {

namespace fs = std::filesystem;

class AdtgWorld final : public RecordSetWorld {
 public:
    AdtgWorld() {
        std::string pattern = testing::TempDir() + "record-set-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
    }
    ~AdtgWorld() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    RecordSetFactory& factory() override { return factory_; }
    std::string PathOf(const std::string& name) override { return (folder_ / name).string(); }
    void Put(const std::string& path, const std::string& bytes) override {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    std::string Read(const std::string& path) override {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::size_t FileCount() override {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_), {}));
    }

 private:
    fs::path folder_;
    recordset::Factory factory_;
};

INSTANTIATE_TEST_SUITE_P(All, RecordSetContract,
                         testing::Values(RecordSetCase{
                             "adtg", [] { return std::make_unique<AdtgWorld>(); }}),
                         RecordSetCaseName);

}  // namespace
}  // namespace trevix::contract
