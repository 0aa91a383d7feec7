#include "cli/event_echo.h"

#include "util/text.h"

namespace trevix::cli {
namespace {

// Entries read "Class::Procedure:text".
std::string WithoutProcedure(const std::string& entry) {
    const std::size_t names = entry.find("::");
    if (names == std::string::npos) return TrimBlanks(entry);
    const std::size_t colon = entry.find(':', names + 2);
    return TrimBlanks(colon == std::string::npos ? entry : entry.substr(colon + 1));
}

}  // namespace

Status EventEcho::Report(const StringArray& strings, const std::string& source,
                         const std::string& second_text, int type) {
    constexpr int kErrorType = 1;
    if (type == kErrorType && show_) {
        for (const std::string& entry : strings) {
            show_(WithoutProcedure(entry));
        }
    }
    if (behind_ == nullptr || !behind_->Available()) return {};
    return behind_->Report(strings, source, second_text, type);
}

}  // namespace trevix::cli
