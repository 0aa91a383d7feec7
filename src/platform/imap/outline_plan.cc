#include "platform/imap/outline_plan.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/imap/base64.h"
#include "platform/imap/header_lines.h"

namespace trevix::imap {

const char kHeaderSection[] =
    "HEADER.FIELDS (Subject From Sender To Cc Bcc Date Reply-To Message-ID Content-Class "
    "Newsgroups MIME-Version X-Mailer X-User-Agent Content-Type Content-Transfer-Encoding "
    "Content-Disposition Content-ID Content-Description)";

namespace {

constexpr int kDeepest = 50;
constexpr std::size_t kMostParts = 1000;
constexpr std::size_t kLongestBoundary = 500;

// Reports and calendars say what they are within their first lines; larger ones are read in part.
constexpr std::uint64_t kBeginning = std::uint64_t{256} * 1024;

// A text body in which embedded pictures are looked up.
constexpr std::uint64_t kMostText = std::uint64_t{8} * 1024 * 1024;

class Trust {
 public:
    bool Accepts(const BodyPart& part, int depth) {
        if (++parts_ > kMostParts || depth > kDeepest || part.type.empty()) return false;
        if (!part.is_multipart()) return true;
        if (!part.has_extension || part.children.empty() || IsHollow(part)) return false;
        if (!TakeBoundary(ParameterOf(part.parameters, "boundary"))) return false;
        return std::all_of(part.children.begin(), part.children.end(),
                           [&](const BodyPart& child) { return Accepts(child, depth + 1); });
    }

 private:
    // Some servers make up one empty text where they have found no part at all.
    static bool IsHollow(const BodyPart& part) {
        if (part.children.size() != 1) return false;
        const BodyPart& only = part.children.front();
        return !only.is_multipart() && only.size_bytes == 0;
    }

    // Of two boundaries of which one begins with the other, or that are the same, readers see
    // different ends.
    bool TakeBoundary(const std::string& boundary) {
        if (boundary.empty() || boundary.size() > kLongestBoundary) return false;
        if (boundary.back() == ' ' || boundary.find_first_of("\r\n") != std::string::npos) {
            return false;
        }
        // What is left of one that a server has cut at a sign which ought to be quoted.
        if (boundary.find_first_not_of('-') == std::string::npos) return false;
        for (const std::string& other : boundaries_) {
            if (other.starts_with(boundary) || boundary.starts_with(other)) return false;
        }
        boundaries_.push_back(boundary);
        return true;
    }

    std::size_t parts_ = 0;
    std::vector<std::string> boundaries_;
};

bool IsZip(const BodyPart& part) {
    for (const char* subtype : {"zip", "x-zip", "x-zip-compressed", "zip-compressed"}) {
        if (IsPartType(part, "application", subtype)) return true;
    }
    const std::string name =
        part.disposition ? ParameterOf(part.disposition->parameters, "filename") : std::string();
    for (const std::string& one : {name, ParameterOf(part.parameters, "name")}) {
        // Encoded names keep these letters, but for the ones in base64.
        const std::string lower = LowerText(one);
        if (lower.find(".zip") != std::string::npos || lower.starts_with("=?")) return true;
    }
    return false;
}

bool IsReport(const BodyPart& part) {
    return IsPartType(part, "message", "delivery-status") ||
           IsPartType(part, "message", "disposition-notification") ||
           IsPartType(part, "message", "global-delivery-status") ||
           IsPartType(part, "message", "global-disposition-notification");
}

bool IsAttachedMessage(const BodyPart& part) {
    return IsPartType(part, "message", "rfc822") || IsPartType(part, "message", "global") ||
           IsPartType(part, "message", "news");
}

bool IsIdentity(const BodyPart& part) {
    const std::string encoding = LowerText(part.encoding);
    return encoding.empty() || encoding == "7bit" || encoding == "8bit" || encoding == "binary";
}

bool HasName(const BodyPart& part) {
    const auto is_name = [](const auto& parameter) {
        const std::string name = LowerText(parameter.first);
        return name.starts_with("name") || name.starts_with("filename");
    };
    const auto& own = part.parameters;
    if (std::any_of(own.begin(), own.end(), is_name)) return true;
    return part.disposition && std::any_of(part.disposition->parameters.begin(),
                                           part.disposition->parameters.end(), is_name);
}

bool IsPlainText(const BodyPart& part) {
    return LowerText(part.type) == "text" && !part.disposition && !HasName(part);
}

class Planner {
 public:
    Planner(MailUse use, OutlinePlan& plan) : use_(use), plan_(plan) {}

    void Visit(const BodyPart& part, bool is_root) {
        if (use_ != MailUse::kSummary && !is_root) AskHeader(part);
        if (part.is_multipart()) {
            for (const BodyPart& child : part.children)
                Visit(child, false);
            return;
        }
        if (part.size_bytes == 0) return;
        if (IsReport(part) || IsPartType(part, "text", "calendar")) Ask(part, kBeginning);
        if (use_ != MailUse::kSummary) VisitForIndex(part);
    }

    // Pictures that the text shows are no attachments of their own; only the text tells.
    void VisitTexts(const BodyPart& part) {
        for (const BodyPart& child : part.children) {
            if (child.is_multipart()) VisitTexts(child);
            const bool html = IsPartType(child, "text", "html") && child.size_bytes > 0;
            if (html && !IsNamedFile(child)) Ask(child, kMostText);
        }
    }

 private:
    static bool IsNamedFile(const BodyPart& part) {
        return part.disposition && LowerText(part.disposition->type) != "inline";
    }

    void VisitForIndex(const BodyPart& part) {
        if (IsPlainText(part)) return;
        const bool is_base64 = LowerText(part.encoding) == "base64";
        if (is_base64 && !IsZip(part)) {
            AskEnding(part);
        } else if (IsZip(part) || !IsIdentity(part)) {
            Ask(part, part.size_bytes);
        }
    }

    void AskHeader(const BodyPart& part) {
        constexpr std::uint64_t kUsual = 300;
        plan_.sections.push_back({part.section + ".MIME", {}});
        plan_.bytes += kUsual;
    }

    void Ask(const BodyPart& part, std::uint64_t most) {
        for (const SectionRequest& request : plan_.sections) {
            if (request.section == part.section) return;
        }
        SectionRequest request;
        request.section = part.section;
        if (part.size_bytes > most) request.range = std::pair(std::uint64_t{0}, most);
        plan_.bytes += std::min(part.size_bytes, most);
        plan_.sections.push_back(std::move(request));
    }

    void AskEnding(const BodyPart& part) {
        if (part.size_bytes <= kBase64Ending) return Ask(part, part.size_bytes);
        SectionRequest request;
        request.section = part.section;
        request.range = std::pair(part.size_bytes - kBase64Ending, kBase64Ending);
        plan_.bytes += kBase64Ending;
        plan_.sections.push_back(std::move(request));
    }

    MailUse use_;
    OutlinePlan& plan_;
};

bool HasEmbedded(const BodyPart& part) {
    if (part.id && LowerText(part.type) != "text") return true;
    return part.is_multipart() &&
           std::any_of(part.children.begin(), part.children.end(), HasEmbedded);
}

// Parts whose size, as they lie in the message, is asked for; and attached messages, whose end some
// servers see one line later than readers do.
bool NeedsItsBytes(const BodyPart& part) {
    if (IsAttachedMessage(part) || IsPartType(part, "multipart", "signed") ||
        IsPartType(part, "multipart", "encrypted") ||
        IsPartType(part, "message", "external-body")) {
        return true;
    }
    return part.is_multipart() &&
           std::any_of(part.children.begin(), part.children.end(), NeedsItsBytes);
}

}  // namespace

std::string LowerText(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

bool IsPartType(const BodyPart& part, std::string_view type, std::string_view subtype) {
    return LowerText(part.type) == type && LowerText(part.subtype) == subtype;
}

std::string ParameterOf(const BodyPart::Parameters& parameters, std::string_view name) {
    for (const auto& [key, value] : parameters) {
        if (LowerText(key) == name) return value;
    }
    return {};
}

std::string TypeWordIn(std::string_view header) {
    const std::vector<HeaderLines> fields = FieldsNamed(header, "content-type");
    if (fields.empty()) return {};
    std::string word = LowerText(fields.front().value);
    const std::size_t first = word.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    word.erase(0, first);
    word.resize(std::min(word.find_first_of("; \t\r\n("), word.size()));
    return word;
}

std::string BoundaryIn(std::string_view header) {
    const std::vector<HeaderLines> fields = FieldsNamed(header, "content-type");
    if (fields.size() != 1) return {};
    std::string_view value = fields.front().value;
    const std::size_t found = LowerText(value).find("boundary");
    if (found == std::string::npos) return {};
    value.remove_prefix(found + std::string_view("boundary").size());
    value.remove_prefix(std::min(value.find_first_not_of(" \t\r\n"), value.size()));
    if (!value.starts_with('=')) return {};
    value.remove_prefix(1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t\r\n"), value.size()));
    if (!value.starts_with('"'))
        return std::string(value.substr(0, value.find_first_of("; \t\r\n")));
    value.remove_prefix(1);
    return std::string(value.substr(0, value.find('"')));
}

bool IsTrusted(const BodyPart& structure, const std::string& header) {
    if (!Trust().Accepts(structure, 0)) return false;
    const std::vector<HeaderLines> types = FieldsNamed(header, "content-type");
    if (types.size() > 1) return false;
    const bool multipart = structure.is_multipart();
    if (TypeWordIn(header).starts_with("multipart/") != multipart) return false;
    if (!multipart) return true;
    return BoundaryIn(header) == ParameterOf(structure.parameters, "boundary");
}

OutlinePlan PlanOutline(const BodyPart& structure, const std::string& header,
                        std::uint64_t size_bytes, MailUse use) {
    OutlinePlan plan;
    const bool index = use == MailUse::kIndex;
    plan.whole = use == MailUse::kChange || !IsTrusted(structure, header) ||
                 (index && NeedsItsBytes(structure));
    if (plan.whole) {
        plan.sections.push_back({"", {}});
        plan.bytes = size_bytes;
        return plan;
    }
    Planner planner(use, plan);
    planner.Visit(structure, true);
    if (index && HasEmbedded(structure)) planner.VisitTexts(structure);
    return plan;
}

}  // namespace trevix::imap
