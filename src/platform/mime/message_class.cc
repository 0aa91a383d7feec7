#include "platform/mime/message_class.h"

#include <array>
#include <utility>

#include "platform/mime/ascii.h"
#include "platform/mime/decoded_blob.h"
#include "platform/mime/header_block.h"

namespace trevix::mime {
namespace {

constexpr const char* kNote = "IPM.Note";

// Reports and calendars say what they are within their first lines.
constexpr std::uint64_t kContentBytes = std::uint64_t{256} * 1024;

const MimePart& At(const PartTree& tree, int index) {
    return tree.parts[static_cast<std::size_t>(index)];
}

// The decoded beginning of a part's content; empty when it cannot be read.
std::string BeginningOf(const Blob& message, const MimePart& part) {
    const std::uint64_t size = std::min(part.content_end - part.content_begin, kContentBytes);
    const Result<Blob> decoded = DecodeBlob(message.Slice(part.content_begin, size), part.encoding);
    if (!decoded.ok()) return {};
    const Result<std::string> text = decoded.value().ToString();
    return text.ok() ? text.value() : std::string();
}

// The value behind "NAME:" or "NAME;parameters:" at the start of a line; the first one.
std::string LineValue(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        const bool named = StartsWithIgnoringCase(line, name) && line.size() > name.size() &&
                           (line[name.size()] == ':' || line[name.size()] == ';');
        if (named) return std::string(TrimBlanks(line.substr(line.find(':') + 1)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return {};
}

int FindType(const PartTree& tree, std::string_view type) {
    for (std::size_t i = 0; i < tree.parts.size(); ++i) {
        if (tree.parts[i].IsType(type)) return static_cast<int>(i);
    }
    return -1;
}

// The most severe thing that happened to any recipient decides.
std::string DeliveryReportClass(const std::string& content) {
    static constexpr std::array<std::pair<const char*, const char*>, 5> kActions = {{
        {"failed", "NDR"},
        {"delayed", "Delayed.DR"},
        {"relayed", "Relayed.DR"},
        {"expanded", "Expanded.DR"},
        {"delivered", "DR"},
    }};
    std::size_t worst = kActions.size();
    std::string_view rest = content;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        if (StartsWithIgnoringCase(line, "Action:")) {
            const std::string_view value = TrimBlanks(line.substr(7));
            for (std::size_t i = 0; i < worst; ++i) {
                if (StartsWithIgnoringCase(value, kActions[i].first)) worst = i;
            }
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (worst == kActions.size()) return kNote;
    return std::string("REPORT.IPM.Note.") + kActions[worst].second;
}

std::string ReadReportClass(const std::string& content) {
    const std::string disposition = LineValue(content, "Disposition");
    const std::size_t semicolon = disposition.rfind(';');
    const std::string_view word = semicolon == std::string::npos
                                      ? std::string_view(disposition)
                                      : std::string_view(disposition).substr(semicolon + 1);
    const bool deleted = StartsWithIgnoringCase(TrimBlanks(word), "deleted");
    return deleted ? "REPORT.IPM.Note.IPNNRN" : "REPORT.IPM.Note.IPNRN";
}

std::string ReportClass(const Blob& message, const PartTree& tree) {
    for (const char* type : {"message/delivery-status", "message/global-delivery-status"}) {
        const int part = FindType(tree, type);
        if (part >= 0) return DeliveryReportClass(BeginningOf(message, At(tree, part)));
    }
    for (const char* type :
         {"message/disposition-notification", "message/global-disposition-notification"}) {
        const int part = FindType(tree, type);
        if (part >= 0) return ReadReportClass(BeginningOf(message, At(tree, part)));
    }
    return kNote;
}

// Long lines of a calendar are folded: a line that begins with a blank continues the one before.
std::string UnfoldCalendar(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool continues = (c == ' ' || c == '\t') && !result.empty() && result.back() == '\n';
        if (continues) {
            result.pop_back();
        } else if (c != '\r') {
            result += c;
        }
    }
    return result;
}

std::string ReplyClass(const std::string& calendar) {
    const std::string upper = AsciiUpper(calendar);
    if (upper.find("PARTSTAT=ACCEPTED") != std::string::npos) {
        return "IPM.Schedule.Meeting.Resp.Pos";
    }
    if (upper.find("PARTSTAT=DECLINED") != std::string::npos) {
        return "IPM.Schedule.Meeting.Resp.Neg";
    }
    return "IPM.Schedule.Meeting.Resp.Tent";
}

std::string CalendarClass(const Blob& message, const PartTree& tree, int index) {
    const std::string calendar = UnfoldCalendar(BeginningOf(message, At(tree, index)));
    std::string method = AsciiUpper(LineValue(calendar, "METHOD"));
    if (method.empty()) method = AsciiUpper(At(tree, index).type.Parameter("method"));
    const bool has_organizer = !LineValue(calendar, "ORGANIZER").empty();
    if (method == "REQUEST" || (method == "PUBLISH" && has_organizer)) {
        return "IPM.Schedule.Meeting.Request";
    }
    if (method == "CANCEL") return "IPM.Schedule.Meeting.Canceled";
    if (method == "REPLY") return ReplyClass(calendar);
    if (method == "COUNTER") return "IPM.Schedule.Meeting.Resp.Tent";
    const bool is_message = index == 0 && (method.empty() || method == "PUBLISH");
    return is_message ? "IPM.Appointment" : kNote;
}

// The calendar that is the body or says the same as the body.
int BodyCalendar(const PartTree& tree, const MessageShape& shape) {
    for (std::size_t i = 0; i < tree.parts.size(); ++i) {
        const MimePart& part = tree.parts[i];
        if (!part.IsType("text/calendar") || part.IsAttachmentByDisposition()) continue;
        const int index = static_cast<int>(i);
        const bool alternative =
            part.parent >= 0 && At(tree, part.parent).IsType("multipart/alternative");
        if (index == shape.body || alternative) return index;
    }
    return -1;
}

std::string ContentClassClass(std::string_view raw) {
    static constexpr std::array<std::pair<const char*, const char*>, 6> kClasses = {{
        {"fax", "IPM.Note.Microsoft.Fax"},
        {"fax-ca", "IPM.Note.Microsoft.Fax.CA"},
        {"missedcall", "IPM.Note.Microsoft.Missed.Voice"},
        {"voice-uc", "IPM.Note.Microsoft.Conversation.Voice"},
        {"voice-ca", "IPM.Note.Microsoft.Voicemail.UM.CA"},
        {"voice", "IPM.Note.Microsoft.Voicemail.UM"},
    }};
    constexpr std::string_view kCustom = "urn:content-class:custom.";
    const std::string_view value = TrimBlanks(raw);
    for (const auto& [word, message_class] : kClasses) {
        if (EqualsIgnoringCase(value, word)) return message_class;
    }
    if (StartsWithIgnoringCase(value, kCustom)) {
        return "IPM.Note.Custom." + std::string(value.substr(kCustom.size()));
    }
    if (StartsWithIgnoringCase(value, "InfoPathForm.")) return "IPM." + std::string(value);
    return kNote;
}

// Classes are 1 to 255 printable ASCII characters without a final full stop.
std::string CleanClass(std::string message_class) {
    std::erase_if(message_class, [](char c) { return c < ' ' || c > '~'; });
    message_class.resize(std::min<std::size_t>(message_class.size(), 255));
    while (message_class.ends_with('.'))
        message_class.pop_back();
    return message_class.empty() ? kNote : message_class;
}

}  // namespace

std::string MessageClassOf(const Blob& message, const PartTree& tree, const MessageShape& shape) {
    const MimePart& root = tree.parts.front();
    if (IsProtectedAtTop(tree)) {
        const bool clear = root.IsType("multipart/signed");
        return clear ? "IPM.Note.SMIME.MultipartSigned" : "IPM.Note.SMIME";
    }
    if (root.IsType("multipart/report")) {
        std::string report = ReportClass(message, tree);
        if (report != kNote) return report;
    }
    const int calendar = BodyCalendar(tree, shape);
    if (calendar >= 0) {
        std::string meeting = CalendarClass(message, tree, calendar);
        if (meeting != kNote) return meeting;
    }
    std::string by_content =
        CleanClass(ContentClassClass(FirstField(root.header, "Content-Class")));
    if (by_content != kNote) return by_content;
    const bool news =
        !FirstField(root.header, "Newsgroups").empty() && FirstField(root.header, "To").empty() &&
        FirstField(root.header, "Cc").empty() && FirstField(root.header, "Bcc").empty();
    return news ? "IPM.Post" : kNote;
}

}  // namespace trevix::mime
