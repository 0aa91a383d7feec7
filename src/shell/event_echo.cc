#include "shell/event_echo.h"

#include "util/text.h"

namespace trevix {

Status EventEcho::Report(const StringArray& strings, const std::string& source,
                         const std::string& second_text, int type) {
    constexpr int kWarningType = 2;
    for (const std::string& entry : strings) {
        if (type > kWarningType || !show_) break;
        // "Class::Procedure:text".
        const std::size_t names = entry.find("::");
        const std::size_t colon = names == std::string::npos ? names : entry.find(':', names + 2);
        if (colon == std::string::npos) {
            show_(type, "", TrimBlanks(entry));
        } else {
            show_(type, entry.substr(0, colon), TrimBlanks(entry.substr(colon + 1)));
        }
    }
    if (behind_ == nullptr || !behind_->Available()) return {};
    return behind_->Report(strings, source, second_text, type);
}

}  // namespace trevix
