// What a server says, one reply at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/imap/fetch.h"
#include "platform/imap/uid_set.h"

namespace trevix::imap {

// OK, NO, BAD, BYE or PREAUTH with its words.
struct Condition {
    enum class Kind { kOk, kNo, kBad, kBye, kPreauth };
    Kind kind = Kind::kOk;
    std::string code;       // in brackets, upper case: "APPENDUID"
    std::string arguments;  // behind the code: "38505 3955"
    std::string text;       // for people, as sent
};

struct TaggedReply {
    std::string tag;
    Condition condition;
};
struct ContinuationReply {
    std::string text;
};
struct ConditionReply {
    Condition condition;
};
struct CapabilityReply {
    std::vector<std::string> capabilities;
};
struct EnabledReply {
    std::vector<std::string> capabilities;
};
struct FlagsReply {
    std::vector<std::string> flags;
};
struct ListReply {
    std::vector<std::string> attributes;
    std::string delimiter;
    std::string name;
};
struct StatusReply {
    std::string mailbox;
    std::uint32_t messages = 0;
    std::uint32_t uid_next = 0;
    std::uint32_t uid_validity = 0;
    std::optional<std::uint64_t> highest_modseq;
};
struct SearchReply {
    UidSet uids;
    bool complete = true;
};
struct ExistsReply {
    std::uint32_t count = 0;
};
struct ExpungeReply {
    std::uint32_t sequence = 0;
};
struct VanishedReply {
    bool earlier = false;
    UidSet uids;
    bool complete = true;
};
struct FetchReply {
    FetchedMessage message;
};
struct OtherReply {};

using Reply = std::variant<OtherReply, TaggedReply, ContinuationReply, ConditionReply,
                           CapabilityReply, EnabledReply, FlagsReply, ListReply, StatusReply,
                           SearchReply, ExistsReply, ExpungeReply, VanishedReply, FetchReply>;

}  // namespace trevix::imap
