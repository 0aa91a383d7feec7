// Text that does not stay in memory when it is done with: passwords and what is made of them.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace trevix::imap {

inline void Wipe(std::string& text) {
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

class WipedText {
 public:
    // Never grows beyond `most_bytes`, so that no copy is left behind by growing.
    explicit WipedText(std::size_t most_bytes) { text_.reserve(most_bytes); }
    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;
    ~WipedText() { Wipe(text_); }

    void Append(std::string_view more) { text_.append(more); }
    void Append(char more) { text_ += more; }
    std::string_view view() const { return text_; }

 private:
    std::string text_;
};

// Base64 with padding.
inline void AppendBase64(WipedText& target, std::string_view bytes) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view group = bytes.substr(at, 3);
        unsigned bits = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            target.Append(i <= group.size() ? kAlphabet[bits >> (18 - 6 * i) & 0x3F] : '=');
        }
    }
}

inline std::size_t Base64Size(std::size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

}  // namespace trevix::imap
