// Bytes on their way to a file or into a string, collected in a buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trevix::recordset {

class ByteWriter {
 public:
    // Writes to the descriptor, which stays the caller's.
    explicit ByteWriter(int descriptor) : descriptor_(descriptor) {}
    // Appends to `target`.
    explicit ByteWriter(std::string* target) : target_(target) {}

    ByteWriter(const ByteWriter&) = delete;
    ByteWriter& operator=(const ByteWriter&) = delete;

    // What is appended to the buffer is written sooner or later; call Settle() now and then.
    std::string& buffer() { return buffer_; }
    void Settle() {
        if (buffer_.size() >= kBufferBytes) Flush();
    }

    // Writes out the buffer. False when this or an earlier write failed.
    bool Flush();

    // The errno value of the first failed write, else 0.
    int system_error() const { return system_error_; }

 private:
    static constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

    int descriptor_ = -1;
    std::string* target_ = nullptr;
    std::string buffer_;
    int system_error_ = 0;
};

}  // namespace trevix::recordset
