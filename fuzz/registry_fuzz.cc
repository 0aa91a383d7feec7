// Reads any bytes as a settings file. What was read must survive being written, edited and read
// again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/registry/reg_document.h"

namespace {

using trevix::RegistryValue;
using trevix::registry::RegDocument;

void Require(bool condition) {
    if (!condition) std::abort();
}

bool IsEqual(const RegDocument& left, const RegDocument& right, const std::string& path) {
    const std::vector<RegistryValue> values = left.Values(path);
    const std::vector<RegistryValue> others = right.Values(path);
    if (values.size() != others.size()) return false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i].name != others[i].name || values[i].type != others[i].type ||
            values[i].data != others[i].data) {
            return false;
        }
    }
    return left.SubKeys(path) == right.SubKeys(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const auto document = RegDocument::Parse(bytes, "fuzz");
    if (!document.ok()) return 0;

    const std::string text = document.value().Format();
    auto again = RegDocument::Parse(text, "fuzz");
    Require(again.ok() && again.value().Format() == text);

    std::vector<std::string> paths = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE"};
    for (std::size_t i = 0; i < paths.size() && i < 64; ++i) {
        Require(IsEqual(document.value(), again.value(), paths[i]));
        for (const std::string& name : document.value().SubKeys(paths[i])) {
            paths.push_back(paths[i] + "\\" + name);
        }
    }

    // Every value written anew, with the input itself as the last one's data.
    RegDocument edited = again.value();
    for (const std::string& path : paths) {
        for (const RegistryValue& value : document.value().Values(path)) {
            edited.SetValue(path, {value.name, value.type, value.data + "x"});
        }
    }
    const std::string last = paths.back();
    edited.SetValue(last, {"", trevix::kRegSz, bytes});
    auto reread = RegDocument::Parse(edited.Format(), "fuzz");
    Require(reread.ok());
    for (const std::string& path : paths)
        Require(IsEqual(edited, reread.value(), path));

    if (edited.DeleteTree(last)) {
        reread = RegDocument::Parse(edited.Format(), "fuzz");
        Require(reread.ok() && !reread.value().HasKey(last));
    }
    return 0;
}
