#include "platform/mime/second_opinion.h"

#include <gmime/gmime.h>

#include <memory>

#include "platform/mime/blob_stream.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

struct DropObject {
    template <typename T>
    void operator()(T* object) const {
        g_object_unref(object);
    }
};

struct FreeOptions {
    void operator()(GMimeParserOptions* options) const { g_mime_parser_options_free(options); }
};

// Kinds of warnings after which GMime itself says that other software reads the message otherwise.
bool IsCritical(GMimeParserWarning warning) {
    switch (warning) {
        case GMIME_CRIT_INVALID_HEADER_NAME:
        case GMIME_CRIT_CONFLICTING_HEADER:
        case GMIME_CRIT_MULTIPART_WITHOUT_BOUNDARY:
        case GMIME_CRIT_NESTING_OVERFLOW:
        case GMIME_CRIT_PART_WITHOUT_HEADERS_OR_CONTENT: return true;
        default: return false;
    }
}

struct Warnings {
    const PartTree* tree = nullptr;
    bool critical = false;
};

// An attached message may be as odd as it likes: nothing is ever written inside it.
bool IsInsideAttachedMessage(const PartTree& tree, gint64 offset) {
    for (const MimePart& part : tree.parts) {
        if (part.type.word.starts_with("message/") && offset >= 0 &&
            static_cast<std::uint64_t>(offset) > part.content_begin &&
            static_cast<std::uint64_t>(offset) < part.content_end) {
            return true;
        }
    }
    return false;
}

void OnWarning(gint64 offset, GMimeParserWarning warning, const gchar*, gpointer user) {
    auto* warnings = static_cast<Warnings*>(user);
    if (IsCritical(warning) && !IsInsideAttachedMessage(*warnings->tree, offset)) {
        warnings->critical = true;
    }
}

gint64 FirstFieldOffset(GMimeObject* object, gint64 least) {
    GMimeHeaderList* headers = g_mime_object_get_header_list(object);
    const int count = headers == nullptr ? 0 : g_mime_header_list_get_count(headers);
    for (int i = 0; i < count; ++i) {
        const gint64 offset =
            g_mime_header_get_offset(g_mime_header_list_get_header_at(headers, i));
        if (offset >= 0 && (least < 0 || offset < least)) least = offset;
    }
    return least;
}

class Comparison {
 public:
    explicit Comparison(const PartTree& tree) : tree_(tree) {}

    std::string Run(GMimeMessage* message) {
        GMimeObject* top = g_mime_message_get_mime_part(message);
        const MimePart& root = tree_.parts.front();
        if (top == nullptr) return root.IsMultipart() ? "GMime sees no content" : "";
        // The fields of the outermost header are split between the message and its part.
        const gint64 first = FirstFieldOffset(top, FirstFieldOffset(GMIME_OBJECT(message), -1));
        Compare(top, 0, first);
        return difference_;
    }

 private:
    void Differ(const char* what, int index) {
        if (difference_.empty()) difference_ = what + std::to_string(index);
    }

    void Compare(GMimeObject* object, int index, gint64 first_field) {
        if (!difference_.empty()) return;
        const MimePart& part = tree_.parts[static_cast<std::size_t>(index)];
        // An mbox line may stand before the outermost header.
        if (index > 0 && first_field >= 0 &&
            static_cast<std::uint64_t>(first_field) != part.header_begin) {
            return Differ("another header for part ", index);
        }
        if (GMIME_IS_MULTIPART(object)) {
            CompareChildren(GMIME_MULTIPART(object), part, index);
        } else if (part.IsMultipart()) {
            Differ("no parts in part ", index);
        } else if (GMIME_IS_PART(object)) {
            CompareContent(GMIME_PART(object), part, index);
        } else if (!part.type.word.starts_with("message/")) {
            Differ("an attached message for part ", index);
        }
    }

    void CompareChildren(GMimeMultipart* multipart, const MimePart& part, int index) {
        const int count = g_mime_multipart_get_count(multipart);
        if (count != static_cast<int>(part.children.size())) {
            return Differ("another number of parts in part ", index);
        }
        for (int i = 0; i < count; ++i) {
            GMimeObject* child = g_mime_multipart_get_part(multipart, i);
            Compare(child, part.children[static_cast<std::size_t>(i)], FirstFieldOffset(child, -1));
        }
    }

    void CompareContent(GMimePart* object, const MimePart& part, int index) {
        GMimeDataWrapper* content = g_mime_part_get_content(object);
        GMimeStream* stream =
            content == nullptr ? nullptr : g_mime_data_wrapper_get_stream(content);
        if (stream == nullptr || stream->bound_start < 0) {
            if (part.content_end != part.content_begin) Differ("no content in part ", index);
            return;
        }
        const gint64 begin = stream->bound_start;
        const gint64 end = stream->bound_end;
        const auto own_begin = static_cast<gint64>(part.content_begin);
        const auto own_end = static_cast<gint64>(part.content_end);
        // GMime takes the length of the line end before a boundary from the line end behind it,
        // which is one off when the two differ. Ours is read from the bytes themselves.
        const bool same_end = end >= own_end - 1 && end <= own_end + 1;
        const bool both_empty = own_begin == own_end && end <= begin + 1;
        if (begin != own_begin || (!same_end && !both_empty)) {
            Differ("another content range for part ", index);
        }
    }

    const PartTree& tree_;
    std::string difference_;
};

}  // namespace

Result<std::string> DisagreementOn(const Blob& message, const PartTree& tree) {
    StartGmime();
    const std::unique_ptr<GMimeStream, DropObject> stream(NewBlobStream(message));
    const std::unique_ptr<GMimeParser, DropObject> parser(
        g_mime_parser_new_with_stream(stream.get()));
    g_mime_parser_set_persist_stream(parser.get(), TRUE);
    g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);

    Warnings warnings{&tree, false};
    const std::unique_ptr<GMimeParserOptions, FreeOptions> options(g_mime_parser_options_new());
    g_mime_parser_options_set_warning_callback(options.get(), OnWarning, &warnings);
    const std::unique_ptr<GMimeMessage, DropObject> parsed(
        g_mime_parser_construct_message(parser.get(), options.get()));
    if (BlobStreamFailed(stream.get())) {
        return MessagingError(kDiskError, "the message cannot be read");
    }
    if (parsed == nullptr) return std::string("GMime cannot read the message");
    if (warnings.critical) return std::string("GMime warns of a header that is read differently");
    return Comparison(tree).Run(parsed.get());
}

}  // namespace trevix::mime
