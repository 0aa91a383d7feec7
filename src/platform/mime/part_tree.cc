#include "platform/mime/part_tree.h"

#include "platform/mime/ascii.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"
#include "platform/mime/line_scanner.h"

namespace trevix::mime {
namespace {

// The line that ended a part.
struct Stop {
    int level = -1;  // index of the boundary in the stack; -1 at the end of the input
    bool closing = false;
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

bool IsBlankLine(std::string_view line) {
    return line == "\n" || line == "\r\n";
}

bool IsFieldName(std::string_view name) {
    while (!name.empty() && (name.back() == ' ' || name.back() == '\t'))
        name.remove_suffix(1);
    if (name.empty()) return false;
    for (const char c : name) {
        if (c <= ' ' || c > '~') return false;
    }
    return true;
}

std::string ContentId(std::string_view raw) {
    std::string_view id = TrimBlanks(raw);
    if (id.starts_with("<")) id.remove_prefix(1);
    if (id.ends_with(">")) id.remove_suffix(1);
    const std::string text(TrimBlanks(id));
    return IsValidUtf8(text) ? text : ToUtf8(text, "");
}

class TreeReader {
 public:
    TreeReader(const Blob& message, const PartLimits& limits)
        : message_(message), limits_(limits), scanner_(message) {}

    Result<PartTree> Read() {
        Result<Stop> stop = ReadPart(kNoParent, Stop{}, "text/plain");
        if (!stop.ok()) return stop.error();
        return std::move(tree_);
    }

 private:
    MimePart& Part(int index) { return tree_.parts[static_cast<std::size_t>(index)]; }

    void Doubt(const char* why) {
        if (tree_.doubt.empty()) tree_.doubt = why;
    }

    static Error OverLimit(const std::string& what) {
        return MessagingError(kCorruptData, "the message has " + what + " and is skipped");
    }

    // `start` is the boundary line before the part.
    Result<Stop> ReadPart(int parent, const Stop& start, const std::string& default_type) {
        if (tree_.parts.size() >= limits_.parts) {
            return OverLimit("more than " + std::to_string(limits_.parts) + " parts");
        }
        const int index = static_cast<int>(tree_.parts.size());
        MimePart& fresh = tree_.parts.emplace_back();
        fresh.parent = parent;
        fresh.boundary_begin = start.begin;
        fresh.header_begin = start.end;
        if (parent != kNoParent) Part(parent).children.push_back(index);

        Result<Stop> header_stop = ReadHeader(index);
        if (!header_stop.ok()) return header_stop.error();
        ReadFields(index, default_type);
        Stop stop = header_stop.value();
        if (Part(index).header_ended) {
            Result<Stop> content_stop =
                Part(index).IsMultipart() ? ReadMultipart(index) : FindStop();
            if (!content_stop.ok()) return content_stop.error();
            stop = content_stop.value();
        }
        TREVIX_RETURN_IF_ERROR(EndPart(index, stop));
        return stop;
    }

    Status EndPart(int index, const Stop& stop) {
        MimePart& part = Part(index);
        part.ended_by_boundary = stop.level >= 0;
        // The part's own boundary is off the stack by now, the parent's is the last one.
        part.ended_by_parent =
            part.ended_by_boundary && stop.level + 1 == static_cast<int>(boundaries_.size());
        part.next_boundary = part.ended_by_boundary ? stop.begin : message_.size_bytes();
        part.content_end = part.next_boundary;
        if (part.ended_by_boundary) {
            Result<std::size_t> newline = scanner_.NewlineBefore(stop.begin);
            if (!newline.ok()) return newline.error();
            part.content_end -= newline.value();
        }
        // The line end before the boundary line may be the blank line of an empty part's header: of
        // this one's, or of the last one inside.
        part.content_end = std::max(part.content_end, part.content_begin);
        if (!part.children.empty()) {
            part.content_end = std::max(part.content_end, Part(part.children.back()).content_end);
        }
        return {};
    }

    // The boundary line in `line`, innermost boundary first.
    Stop Match(const LineScanner::Line& line) const {
        Stop stop;
        if (!line.head_is_whole || !line.head.starts_with("--")) return stop;
        std::string_view text = line.head.substr(2);
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                                 text.back() == '\n')) {
            text.remove_suffix(1);
        }
        for (std::size_t i = boundaries_.size(); i-- > 0;) {
            const std::string& boundary = boundaries_[i];
            if (!text.starts_with(boundary)) continue;
            const std::string_view rest = text.substr(boundary.size());
            if (!rest.empty() && rest != "--") continue;
            return {static_cast<int>(i), !rest.empty(), line.begin, line.end};
        }
        return stop;
    }

    Result<Stop> FindStop() {
        if (boundaries_.empty()) return Stop{};
        LineScanner::Line line;
        for (;;) {
            Result<bool> found = scanner_.NextDashed(&line);
            if (!found.ok()) return found.error();
            if (!found.value()) return Stop{};
            const Stop stop = Match(line);
            if (stop.level >= 0) return stop;
        }
    }

    Result<Stop> ReadHeader(int index) {
        const std::uint64_t begin = Part(index).header_begin;
        std::uint64_t end = begin;
        bool ended = false;
        Stop stop;
        LineScanner::Line line;
        for (;;) {
            Result<bool> found = scanner_.Next(&line);
            if (!found.ok()) return found.error();
            if (!found.value()) break;
            stop = Match(line);
            if (stop.level >= 0) break;
            end = line.end;
            if (IsBlankLine(line.head) && line.head_is_whole) {
                ended = true;
                break;
            }
            if (header_bytes_ + (end - begin) > limits_.header_bytes) {
                return OverLimit("more than " + std::to_string(limits_.header_bytes / 1024 / 1024) +
                                 " MiB of headers");
            }
            CheckHeaderLine(line, index, line.begin == begin);
        }
        header_bytes_ += end - begin;
        if (!ended) Doubt("a header without a blank line behind it");

        MimePart& part = Part(index);
        part.header_ended = ended;
        part.content_begin = end;
        part.header.resize(static_cast<std::size_t>(end - begin));
        TREVIX_RETURN_IF_ERROR(message_.ReadAt(begin, part.header.data(), part.header.size()));
        return stop;
    }

    void CheckHeaderLine(const LineScanner::Line& line, int index, bool first) {
        const std::string_view head = line.head;
        if (head.front() == ' ' || head.front() == '\t') {
            if (first) Doubt("a header that begins with a continuation line");
            return;
        }
        const bool is_mbox_line = first && index == 0 && head.starts_with("From ");
        const std::size_t colon = head.find(':');
        const bool is_field = colon != std::string_view::npos && IsFieldName(head.substr(0, colon));
        if (!is_field && !is_mbox_line) Doubt("a header line that is no header field");
        // Some readers end the line there, and with it perhaps the header.
        const std::size_t carriage_return = head.find('\r');
        if (carriage_return != std::string_view::npos && carriage_return + 1 < head.size() &&
            head[carriage_return + 1] != '\n') {
            Doubt("a bare carriage return in a header");
        }
    }

    // The one field of that name. Programs disagree on which of several counts.
    std::string_view OnlyField(const MimePart& part, std::string_view name) {
        const std::vector<std::string_view> values = AllFields(part.header, name);
        if (values.size() > 1) Doubt("a header field that must be single is repeated");
        return values.empty() ? std::string_view() : values.front();
    }

    void ReadFields(int index, const std::string& default_type) {
        MimePart& part = Part(index);
        const std::string_view raw_type = OnlyField(part, "Content-Type");
        part.type = ParseContentType(raw_type);
        part.has_type = !part.type.word.empty();
        if (!part.has_type) {
            if (!TrimBlanks(raw_type).empty()) Doubt("a content type that cannot be read");
            part.type.word = default_type;
        }
        part.disposition = ParseParameterized(OnlyField(part, "Content-Disposition"));
        part.encoding_name = std::string(TrimBlanks(OnlyField(part, "Content-Transfer-Encoding")));
        part.encoding = TransferEncodingOf(part.encoding_name);
        part.content_id = ContentId(FirstField(part.header, "Content-ID"));
        if (part.type.word.starts_with("multipart/")) ReadBoundary(part, raw_type);
    }

    void ReadBoundary(MimePart& part, std::string_view raw_type) {
        const std::string boundary = part.type.Parameter("boundary");
        if (boundary.empty() || boundary.size() > LineScanner::kHeadMax - 8) {
            Doubt("a multipart without a usable boundary");
            return;
        }
        if (boundary.back() == ' ' || boundary.back() == '\t' ||
            raw_type.find(boundary) == std::string_view::npos) {
            Doubt("a boundary that programs read differently");
        }
        if (part.encoding != TransferEncoding::kIdentity) {
            Doubt("a multipart with a transfer encoding");
        }
        for (const std::string& other : boundaries_) {
            if (other == boundary) Doubt("a boundary that is used twice");
        }
        part.boundary = boundary;
    }

    Result<Stop> ReadMultipart(int index) {
        if (static_cast<int>(boundaries_.size()) >= limits_.depth) {
            return OverLimit("more than " + std::to_string(limits_.depth) + " levels");
        }
        const std::string default_type =
            Part(index).IsType("multipart/digest") ? "message/rfc822" : "text/plain";
        const int level = static_cast<int>(boundaries_.size());
        boundaries_.push_back(Part(index).boundary);

        Result<Stop> stop = FindStop();
        while (stop.ok() && stop.value().level == level && !stop.value().closing) {
            stop = ReadPart(index, stop.value(), default_type);
        }
        boundaries_.pop_back();
        if (!stop.ok()) return stop.error();
        if (stop.value().level != level) {
            Part(index).closed = false;
            return stop.value();
        }
        Part(index).closed = true;
        return FindStop();
    }

    const Blob& message_;
    PartLimits limits_;
    LineScanner scanner_;
    PartTree tree_;
    std::vector<std::string> boundaries_;
    std::uint64_t header_bytes_ = 0;
};

}  // namespace

Result<PartTree> ReadPartTree(const Blob& message, const PartLimits& limits) {
    return TreeReader(message, limits).Read();
}

}  // namespace trevix::mime
