#include "platform/imap/digest.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <sys/random.h>

#include <string_view>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

std::string ToHex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

}  // namespace

Digest::Digest() {
    gnutls_hash_hd_t handle = nullptr;
    failed_ = ::gnutls_hash_init(&handle, GNUTLS_DIG_SHA256) != 0;
    if (!failed_) state_ = handle;
}

Digest::~Digest() {
    if (state_ != nullptr) ::gnutls_hash_deinit(static_cast<gnutls_hash_hd_t>(state_), nullptr);
}

void Digest::Add(const char* bytes, std::size_t count) {
    if (state_ == nullptr || count == 0) return;
    failed_ = ::gnutls_hash(static_cast<gnutls_hash_hd_t>(state_), bytes, count) != 0 || failed_;
}

std::string Digest::Finish() {
    if (failed_ || state_ == nullptr) return {};
    std::string bytes(::gnutls_hash_get_len(GNUTLS_DIG_SHA256), '\0');
    ::gnutls_hash_deinit(static_cast<gnutls_hash_hd_t>(state_), bytes.data());
    state_ = nullptr;
    return ToHex(bytes);
}

Result<std::string> DigestOf(const Blob& content) {
    Digest digest;
    TREVIX_RETURN_IF_ERROR(
        content.ForEachPiece([&digest](const char* bytes, std::size_t count) -> Status {
            digest.Add(bytes, count);
            return {};
        }));
    std::string text = digest.Finish();
    if (text.empty()) return MessagingError(kCallFailed, "no checksum can be made");
    return text;
}

std::string RandomHex(std::size_t bytes) {
    std::string random(bytes, '\0');
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(bytes)) return {};
    return ToHex(random);
}

}  // namespace trevix::imap
