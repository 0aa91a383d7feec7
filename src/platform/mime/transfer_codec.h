// The transfer encodings of MIME, as steps over pieces of a stream.
//
// Decoding is strict on purpose: what is decoded here may be zipped and the original thrown away,
// so data that another program could read differently must be refused, not repaired.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trevix::mime {

enum class TransferEncoding { kIdentity, kBase64, kQuotedPrintable, kUnknown };

// The encoding that a Content-Transfer-Encoding value names; an empty value is the identity.
TransferEncoding TransferEncodingOf(std::string_view value);

// What one decoding step did. A step takes whole units only (a group of four characters, an
// escape), so that every stretch between two steps can be decoded by itself.
struct DecodeStep {
    std::size_t consumed = 0;
    std::size_t produced = 0;
    bool padded = false;  // base64 padding was read: only white space may follow
    bool bad = false;     // cannot be decoded exactly
};

// Decodes from `in`; `last` says that nothing follows. `out` takes at least `count` bytes.
DecodeStep DecodeBase64(const char* in, std::size_t count, bool last, char* out);
DecodeStep DecodeQuotedPrintable(const char* in, std::size_t count, bool last, char* out);

bool IsTransferSpace(char c);

// Bytes of input in one line of base64 and the characters that they make.
inline constexpr std::size_t kBase64LineBytes = 57;
inline constexpr std::size_t kBase64LineChars = 76;

// Encodes `count` bytes without line breaks; padding only when count is not a multiple of 3.
// Writes (count + 2) / 3 * 4 characters.
void EncodeBase64(const unsigned char* in, std::size_t count, char* out);

}  // namespace trevix::mime
