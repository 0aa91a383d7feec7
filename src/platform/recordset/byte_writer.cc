#include "platform/recordset/byte_writer.h"

#include <unistd.h>

#include <cerrno>

namespace trevix::recordset {

bool ByteWriter::Flush() {
    if (target_ != nullptr) target_->append(buffer_);
    for (std::size_t at = 0; target_ == nullptr && system_error_ == 0 && at < buffer_.size();) {
        const ssize_t wrote = ::write(descriptor_, buffer_.data() + at, buffer_.size() - at);
        if (wrote >= 0) {
            at += static_cast<std::size_t>(wrote);
        } else if (errno != EINTR) {
            system_error_ = errno;
        }
    }
    buffer_.clear();
    return system_error_ == 0;
}

}  // namespace trevix::recordset
