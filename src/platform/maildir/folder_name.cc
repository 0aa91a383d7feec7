#include "platform/maildir/folder_name.h"

#include "platform/modified_utf7.h"
#include "platform/utf8.h"

namespace trevix::maildir {

std::string DisplayName(std::string_view stored) {
    auto decoded = DecodeModifiedUtf7(stored);
    // Nobody names a folder with a zero byte in it.
    if (decoded && decoded->find('\0') == std::string::npos) return *std::move(decoded);
    std::string text;
    while (!stored.empty())
        PutUtf8(text, TakeUtf8(stored));
    return text;
}

}  // namespace trevix::maildir
