// What is asked of messages, and what comes back.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/blob.h"
#include "platform/imap/body_structure.h"
#include "platform/imap/date_time.h"
#include "platform/imap/uid_set.h"
#include "platform/result.h"

namespace trevix::imap {

// One BODY.PEEK[section]<offset.count>.
struct SectionRequest {
    // "", "HEADER", "TEXT", "2", "2.MIME", "2.HEADER", "HEADER.FIELDS (Subject From)"; of the last
    // kind one for each message part in a request.
    std::string section;
    std::optional<std::pair<std::uint64_t, std::uint64_t>> range;  // offset and count of bytes
};

struct FetchRequest {
    UidSet uids;
    bool flags = false;
    bool internal_date = false;
    bool size = false;            // RFC822.SIZE
    bool body_structure = false;  // BODYSTRUCTURE
    bool modseq = false;          // left out by the client where CONDSTORE is not offered
    bool save_date = false;       // the same with SAVEDATE
    bool email_id = false;        // the same with OBJECTID
    std::vector<SectionRequest> sections;

    // Only messages changed after this modification sequence (CONDSTORE).
    std::optional<std::uint64_t> changed_since;

    // Content that is larger ends the connection, for it cannot be skipped in bounded time.
    std::uint64_t most_content_bytes = std::uint64_t{4} << 30;
};

struct FetchedSection {
    std::string section;          // as requested, in upper case
    std::uint64_t offset = 0;     // of a range
    std::optional<Blob> content;  // none for NIL: the server has no such part
};

struct FetchedMessage {
    std::uint32_t uid = 0;
    std::uint32_t sequence = 0;                     // the number at that moment; of no use later
    std::optional<std::vector<std::string>> flags;  // keywords included, "\Recent" too
    std::optional<DateTime> internal_date;
    std::optional<std::uint64_t> size_bytes;
    std::optional<std::uint64_t> modseq;
    std::optional<DateTime> save_date;
    std::optional<std::string> email_id;
    std::shared_ptr<const BodyPart> structure;  // null: not sent, or see below
    std::string structure_problem;              // why a structure that came could not be used
    std::vector<FetchedSection> sections;

    // A section by its request; null when it did not come. The fields that HEADER.FIELDS lists are
    // not compared, for servers give them back in orders and spellings of their own.
    const FetchedSection* Find(std::string_view section) const;
};

// Called for each message as it comes, while the rest is still on its way. A server may send a
// message's items in several pieces, twice or not at all (it is gone then), so a sink puts together
// by UID what it gets. It sees only UIDs of its request, and sections that were requested.
//
// A sink must not call the client. When it fails, the rest of its request is read and dropped, and
// its error is the request's; the connection stays good.
using FetchSink = std::function<Status(FetchedMessage&&)>;

}  // namespace trevix::imap
