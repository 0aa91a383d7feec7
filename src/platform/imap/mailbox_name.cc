#include "platform/imap/mailbox_name.h"

#include "platform/imap/ascii.h"
#include "platform/modified_utf7.h"
#include "platform/utf8.h"

namespace trevix::imap {

std::string DecodeMailboxName(std::string_view wire_name) {
    if (auto decoded = DecodeModifiedUtf7(wire_name)) return *std::move(decoded);
    std::string text;
    for (const char c : wire_name) {
        if (static_cast<unsigned char>(c) < 0x80) {
            text += c;
        } else {
            PutUtf8(text, kReplacementCharacter);
        }
    }
    return text;
}

bool SameMailbox(std::string_view wire_name, std::string_view other) {
    if (wire_name == other) return true;
    constexpr std::string_view kInbox = "INBOX";
    return SameLetters(wire_name, kInbox) && SameLetters(other, kInbox);
}

}  // namespace trevix::imap
