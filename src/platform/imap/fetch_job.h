// A FETCH under way: what it asked for, and who gets it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/imap/fetch.h"
#include "platform/imap/reply.h"

namespace trevix::imap {

class FetchJob {
 public:
    FetchJob(FetchRequest request, FetchSink sink);

    // Whether the message is an answer to this request: one of its UIDs, and something it asked
    // for. Servers tell changed flags whenever they like.
    bool Takes(const FetchedMessage& message) const;

    bool Wants(const FetchedSection& section) const;
    std::uint64_t most_content_bytes() const { return request_.most_content_bytes; }

    // Hands over what was asked for. After a failure of the sink, nothing more.
    void Deliver(FetchedMessage message);

    std::size_t open_commands = 0;
    std::optional<Condition> refusal;  // the first answer that was not OK

    // The sink's failure; none so far.
    const std::optional<Error>& sink_error() const { return sink_error_; }

 private:
    FetchRequest request_;
    std::vector<FetchedSection> wanted_;  // without content
    FetchSink sink_;
    std::optional<Error> sink_error_;
};

// "UID FETCH <set> (<items>)", in as many commands as the length of the set takes. None for a
// request for nothing.
std::vector<std::string> FetchCommands(const FetchRequest& request, bool vanished = false);

}  // namespace trevix::imap
