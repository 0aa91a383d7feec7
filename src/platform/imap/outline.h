// The outline of a message from what its server tells of it.
//
// The skeleton is a message with the same parts: the header fields as they are, the other parts'
// fields from the structure or as they are, boundaries of our own, and one byte in place of each
// content that is not empty.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/blob.h"
#include "platform/imap/body_structure.h"
#include "platform/imap/fetch.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// What came of one message.
struct MessageFacts {
    std::shared_ptr<const BodyPart> structure;
    std::optional<std::string> header;
    std::map<std::string, Blob> sections;  // in upper case: "2", "2.MIME", "" for all
    std::set<std::string> partial;         // those of which only the beginning was asked for
    std::map<std::string, Blob>
        endings;  // the last bytes of a part, where only they were asked for

    // Takes what an answer brings; several may come for one message.
    Status Take(FetchedMessage&& message);
};

// Makes a Blob of a part's content that is fetched when it is read; the beginning may be known.
using LazyPart = std::function<Blob(const std::string& section, std::uint64_t size_bytes,
                                    std::optional<Blob> beginning)>;

// Needs structure and header. Nothing when what came does not fit together: the whole message is to
// be fetched then. Errors are those of reading what was fetched.
Result<std::optional<MailOutline>> MakeOutline(const MessageFacts& facts, const LazyPart& lazy);

// An outline that is the message.
MailOutline WholeOutline(Blob content);

}  // namespace trevix::imap
