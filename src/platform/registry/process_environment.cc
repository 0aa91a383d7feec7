#include "platform/registry/process_environment.h"

#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "platform/registry/reg_document.h"

namespace trevix::registry {
namespace {

std::optional<std::string> ValueOf(const std::string& name) {
    if (const char* exact = std::getenv(name.c_str())) return exact;
    const std::string start = Fold(name) + "=";
    for (char** entry = ::environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (Fold(text.substr(0, start.size())) == start) return text.substr(start.size());
    }
    return {};
}

}  // namespace

std::string ProcessEnvironment::Entry(int position) {
    if (position < 1 || ::environ == nullptr) return {};
    for (int i = 1; ::environ[i - 1] != nullptr; ++i) {
        if (i == position) return ::environ[i - 1];
    }
    return {};
}

std::string ProcessEnvironment::Expand(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text[at] == '%' ? text.find('%', at + 1) : std::string::npos;
        std::optional<std::string> value;
        if (end != std::string::npos && end > at + 1) {
            value = ValueOf(text.substr(at + 1, end - at - 1));
        }
        if (value) {
            result += *value;
            at = end + 1;
        } else {
            // The closing percent sign of an unknown name may open a known one.
            result += text[at];
            ++at;
        }
    }
    return result;
}

}  // namespace trevix::registry
