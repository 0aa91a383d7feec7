// A set of message UIDs as ranges, the way IMAP writes it: "1:5,9,12:*".
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trevix::imap {

class UidSet {
 public:
    // As `last`: up to the newest message, whichever that is.
    static constexpr std::uint32_t kNewest = std::numeric_limits<std::uint32_t>::max();

    struct Range {
        std::uint32_t first = 0;
        std::uint32_t last = 0;  // >= first
        bool operator==(const Range&) const = default;
    };

    UidSet() = default;
    static UidSet Of(std::uint32_t uid) { return Between(uid, uid); }
    static UidSet Between(std::uint32_t first, std::uint32_t last);
    static UidSet From(std::uint32_t first) { return Between(first, kNewest); }
    // In any order, and more than once. Zeros are left out.
    static UidSet FromList(std::vector<std::uint32_t> uids);
    static UidSet FromRanges(std::vector<Range> ranges);

    // Nothing when the text is no set, holds a zero, or has more than `most_ranges` ranges.
    // Ranges may come in any order, overlap and be turned around.
    static std::optional<UidSet> Parse(std::string_view text, std::size_t most_ranges);

    // Cheap when UIDs come in ascending order. 0 is no UID and is left out.
    void Add(std::uint32_t uid) { AddRange(uid, uid); }
    void AddRange(std::uint32_t first, std::uint32_t last);
    void AddAll(const UidSet& other);

    bool empty() const { return ranges_.empty(); }
    bool Contains(std::uint32_t uid) const;
    std::uint64_t count() const;  // with an open end counted up to the highest UID there can be

    // Ascending, apart from each other by at least one UID.
    const std::vector<Range>& ranges() const { return ranges_; }

    // "1:5,9"; empty for an empty set.
    std::string ToText() const;

    // The same in pieces of at most `most_bytes` bytes each (one range at least), for a server
    // takes no endless lines.
    std::vector<std::string> ToTexts(std::size_t most_bytes) const;

    bool operator==(const UidSet&) const = default;

 private:
    std::vector<Range> ranges_;
};

// Puts sets together that come in any number and order, at a price that grows with what comes.
class UidCollector {
 public:
    // More ranges than this are not kept.
    explicit UidCollector(std::size_t most_ranges) : most_ranges_(most_ranges) {}

    void Add(const UidSet& uids);
    void MarkIncomplete();

    // All that was added, and nothing is left. Empty when something could not be kept.
    UidSet Take();
    bool complete() const { return complete_; }

 private:
    std::size_t most_ranges_;
    std::vector<UidSet::Range> ranges_;  // put together up to `settled_`, then as they came
    std::size_t settled_ = 0;
    bool complete_ = true;
};

}  // namespace trevix::imap
