#include "contract/registry_contract.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fakes/fake_registry.h"
#include "platform/registry/file_registry.h"

namespace trevix::contract {
namespace {

class FakeWorld final : public RegistryWorld {
 public:
    Registry& registry() override { return registry_; }

 private:
    fakes::FaultPlan plan_;
    fakes::FakeRegistry registry_{plan_};
};

// Both files start with `header`, so that every form of the file is held to the contract.
class FileWorld final : public RegistryWorld {
 public:
    explicit FileWorld(const std::string& header) : root_(testing::TempDir() + "registry-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
        registry_ =
            std::make_unique<registry::FileRegistry>(root_ + "/user.reg", root_ + "/machine.reg");
        if (header.empty()) return;
        for (const char* name : {"/user.reg", "/machine.reg"}) {
            std::ofstream(root_ + name, std::ios::binary) << header;
        }
    }
    ~FileWorld() override {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    Registry& registry() override { return *registry_; }

 private:
    std::string root_;
    std::unique_ptr<registry::FileRegistry> registry_;
};

std::string Utf16Header() {
    std::string header = "\xFF\xFE";
    for (const char c : std::string("Windows Registry Editor Version 5.00\r\n")) {
        header += c;
        header += '\0';
    }
    return header;
}

RegistryCase FileCase(const char* name, const std::string& header) {
    return {name, [header] { return std::make_unique<FileWorld>(header); }};
}

INSTANTIATE_TEST_SUITE_P(
    All, RegistryContract,
    testing::Values(RegistryCase{"fake", [] { return std::make_unique<FakeWorld>(); }},
                    FileCase("no_file", ""),
                    FileCase("carriage_returns", "Windows Registry Editor Version 5.00\r\n"),
                    FileCase("utf16", Utf16Header()), FileCase("single_byte", "REGEDIT4\n")),
    RegistryCaseName);

}  // namespace
}  // namespace trevix::contract
