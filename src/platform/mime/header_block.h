// The header block of a message or part: its bytes, from the first field to the blank line that
// ends it, and edits that leave every other byte as it is.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace trevix::mime {

struct HeaderField {
    std::string_view name;   // as written
    std::string_view value;  // behind the colon, with its folds and line ends
    std::size_t begin = 0;   // offsets in the block, line end included
    std::size_t end = 0;
};

// Calls `visit` for each field in order until it returns false. Lines that are no field (an mbox
// "From " line, a line without a colon) are passed over.
void VisitFields(std::string_view block, const std::function<bool(const HeaderField&)>& visit);

// The value of the first field of that name (compared without case), unfolded raw bytes; empty when
// there is none.
std::string_view FirstField(std::string_view block, std::string_view name);

// Values of all fields of that name.
std::vector<std::string_view> AllFields(std::string_view block, std::string_view name);

// "\n" or "\r\n": how the last line of the block ends; "\n" for a block without a line end.
std::string BlockNewline(std::string_view block);

// One edit of a block: the first field of that name gets `line` (a whole field without its last
// line end) in its place, further ones are removed. Without `line` all are removed. A field that is
// missing is put before the blank line.
struct FieldEdit {
    std::string name;
    std::string line;
    bool remove = false;
};

// The block with the edits done, line ends of new fields as BlockNewline() says. Fields for whose
// name `drop` is true are removed. `line` may hold folds as "\n".
std::string EditBlock(std::string_view block, const std::vector<FieldEdit>& edits,
                      const std::function<bool(std::string_view)>& drop);

// The parameters "; name=..." for a header field, folded by "\n\t": a plain quoted form for ASCII
// values, else an ASCII stand-in and the RFC 2231 form.
std::string FormatParameter(std::string_view name, std::string_view value);

// A Content-Type or Content-Disposition value without its parameter `name` in any of its forms,
// everything else byte for byte.
std::string WithoutParameter(std::string_view value, std::string_view name);

}  // namespace trevix::mime
