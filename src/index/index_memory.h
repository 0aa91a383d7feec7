// What index runs remember of single messages from one to the next.
//
// Quiet messages were looked into and gave no rows: embedded messages, nameless parts, damaged
// archives. Without this memory every update would open each of them again. They are known by ID
// and last modification, so what is remembered is true whatever becomes of the index, and losing it
// costs nothing but another look.
//
// Unfinished messages have rows, but perhaps not all or not the right ones, because something
// failed. The next run looks at them again, wherever the time mark of their folder stands.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "platform/variant.h"

namespace trevix {

// The property of the results message that keeps the memory between runs.
inline constexpr const char* kIndexMemoryProperty = "IndexMemory";

class IndexMemory {
 public:
    // Takes the text that an earlier run kept; one that is not ours counts as empty.
    void Load(const std::string& text);

    bool IsQuiet(const std::string& entry_id, Date modified) const;
    bool IsUnfinished(const std::string& entry_id) const;

    // Only messages that are noted in this run stay in the memory as quiet.
    void NoteQuiet(const std::string& entry_id, Date modified);

    // A message stays unfinished until a run has finished it.
    void NoteUnfinished(const std::string& entry_id);
    void NoteFinished(const std::string& entry_id);

    // At most some 65,000 messages of the first kind, about a megabyte.
    std::string Text() const;

 private:
    std::unordered_set<std::uint64_t> quiet_before_;
    std::unordered_set<std::uint64_t> quiet_;
    std::unordered_set<std::uint64_t> unfinished_;
};

}  // namespace trevix
