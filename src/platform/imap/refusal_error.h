// What a server's NO or BAD means here.
#pragma once

#include <string>
#include <string_view>

#include "platform/imap/reply.h"
#include "platform/result.h"

namespace trevix::imap {

// A server's words for a log or a terminal: one line of UTF-8, no control
// characters, about 300 bytes at most.
std::string CleanWords(std::string_view words);

// The error of an answer that is not OK.
Error RefusalError(const std::string& host, const Condition& answer);

// The same for a log-in: what does not say otherwise is about the credentials.
Error LoginError(const std::string& host, const Condition& answer);

}  // namespace trevix::imap
