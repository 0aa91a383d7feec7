// The messages that were looked into and gave no rows: embedded messages, nameless parts, damaged
// archives. Without this memory every update would open each of them again.
//
// A message is remembered by a digest of its ID and its last modification, so what is remembered is
// true whatever becomes of the index, and losing it costs nothing but another look.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "platform/variant.h"

namespace trevix {

// The property of the results message that keeps the text between runs.
inline constexpr const char* kQuietProperty = "IndexNoRows";

class QuietMessages {
 public:
    // Takes the text that an earlier run kept; one that is not ours counts as empty.
    void Load(const std::string& text);

    // Whether an earlier run, or this one, found no rows in the message as it is now.
    bool Holds(const std::string& entry_id, Date modified) const;

    // Remembers a message. Only those that are noted in this run are in its text.
    void Note(const std::string& entry_id, Date modified);

    // At most some 65,000 messages, about a megabyte.
    std::string Text() const;

 private:
    std::unordered_set<std::uint64_t> earlier_;
    std::unordered_set<std::uint64_t> now_;
};

}  // namespace trevix
