#include "platform/imap/secret.h"

#include <cstring>

namespace trevix::imap {

// A text's whole room may have held more than it holds now.
void Secret::Wipe(std::string& text) noexcept {
    // Never longer than the capacity, so nothing is allocated or moved here.
    text.resize(text.capacity());
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

}  // namespace trevix::imap
