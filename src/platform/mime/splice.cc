#include "platform/mime/splice.h"

#include <algorithm>
#include <array>

#include "platform/mime/ascii.h"
#include "platform/mime/encoded_blob.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

constexpr const char* kEmptyText = "Content-Type: text/plain; charset=us-ascii";

// Fields that describe the old bytes and would be wrong beside the new ones.
bool DescribesOldBytes(std::string_view name, bool is_message_header) {
    constexpr std::array kFields = {"Content-MD5",  "Content-Length",   "Content-Language",
                                    "Content-Base", "Content-Location", "Content-Duration"};
    for (const char* field : kFields) {
        if (EqualsIgnoringCase(name, field)) return true;
    }
    if (is_message_header) return EqualsIgnoringCase(name, "Lines");
    return StartsWithIgnoringCase(name, "X-Apple-") || StartsWithIgnoringCase(name, "X-Mac-");
}

// A header value of any text: as it is, or in encoded words.
std::string EncodeHeaderText(const std::string& text) {
    const bool plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (plain) return text;
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = std::min(at + 42, text.size());
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
            --end;
        std::string word((end - at + 2) / 3 * 4, '\0');
        EncodeBase64(reinterpret_cast<const unsigned char*>(text.data() + at), end - at,
                     word.data());
        result += (result.empty() ? "=?utf-8?B?" : "\n =?utf-8?B?") + word + "?=";
        at = end;
    }
    return result;
}

class Planner {
 public:
    Planner(const ReadMessage& message, const std::vector<AttachmentEdit>& edits)
        : message_(message), edits_(edits), deleted_(message.tree.parts.size(), false) {}

    std::vector<Splice> Plan() {
        for (const AttachmentEdit& edit : edits_) {
            const AttachmentPart& attachment = message_.shape.attachments[edit.attachment];
            if (edit.deleted) {
                deleted_[static_cast<std::size_t>(attachment.whole)] = true;
            } else if (edit.data.has_value()) {
                ReplaceData(attachment, edit);
            } else if (edit.name.has_value()) {
                Rename(attachment, *edit.name);
            }
        }
        if (deleted_.front()) EmptyWholeMessage();
        for (const MimePart& part : message_.tree.parts)
            DeleteChildren(part);
        std::sort(splices_.begin(), splices_.end(),
                  [](const Splice& a, const Splice& b) { return a.begin < b.begin; });
        return std::move(splices_);
    }

 private:
    const MimePart& Part(int index) const {
        return message_.tree.parts[static_cast<std::size_t>(index)];
    }

    void Put(std::uint64_t begin, std::uint64_t end, Blob bytes) {
        splices_.push_back({begin, end, std::move(bytes)});
    }

    void PutHeader(const MimePart& part, std::string header) {
        Put(part.header_begin, part.content_begin, Blob::FromString(std::move(header)));
    }

    // The description is often the name once more.
    void EditDescription(const MimePart& part, const std::string& old_name,
                         const std::string& new_name, std::vector<FieldEdit>* edits) const {
        const std::string_view raw = FirstField(part.header, "Content-Description");
        if (raw.empty() || DecodeHeaderText(raw) != old_name) return;
        edits->push_back(
            {"Content-Description", "Content-Description: " + EncodeHeaderText(new_name), false});
    }

    void RequireMimeVersion(const MimePart& part, std::vector<FieldEdit>* edits) const {
        if (part.parent < 0 && FirstField(part.header, "MIME-Version").empty()) {
            edits->push_back({"MIME-Version", "MIME-Version: 1.0", false});
        }
    }

    void ReplaceData(const AttachmentPart& attachment, const AttachmentEdit& edit) {
        const MimePart& part = Part(attachment.part);
        const std::string name = edit.name.value_or(attachment.name);
        const bool zip = AsciiLower(name).ends_with(".zip");
        const std::string type = zip ? "application/zip" : "application/octet-stream";
        const std::string word = part.disposition.word == "inline" ? "inline" : "attachment";
        std::vector<FieldEdit> edits;
        RequireMimeVersion(part, &edits);
        edits.push_back(
            {"Content-Type", "Content-Type: " + type + FormatParameter("name", name), false});
        edits.push_back({"Content-Transfer-Encoding", "Content-Transfer-Encoding: base64", false});
        edits.push_back({"Content-Disposition",
                         "Content-Disposition: " + word + FormatParameter("filename", name),
                         false});
        EditDescription(part, attachment.name, name, &edits);
        const bool message_header = part.parent < 0;
        PutHeader(part, EditBlock(part.header, edits, [message_header](std::string_view field) {
                      return DescribesOldBytes(field, message_header);
                  }));

        const std::string newline = BlockNewline(part.header);
        Blob content = EncodeBlob(*edit.data, newline);
        // At the end of the input the last line end is the content's own.
        if (!part.ended_by_boundary && EndsWithNewline(part)) {
            content = Blob::Join({content, Blob::FromString(newline)});
        }
        Put(part.content_begin, part.content_end, std::move(content));
    }

    bool EndsWithNewline(const MimePart& part) const {
        char last = 0;
        return part.content_end > part.content_begin &&
               message_.bytes.ReadAt(part.content_end - 1, &last, 1).ok() && last == '\n';
    }

    void Rename(const AttachmentPart& attachment, const std::string& name) {
        const MimePart& part = Part(attachment.part);
        std::vector<FieldEdit> edits;
        if (part.has_type) {
            const std::string value =
                WithoutParameter(TrimBlanks(FirstField(part.header, "Content-Type")), "name");
            edits.push_back(
                {"Content-Type", "Content-Type: " + value + FormatParameter("name", name), false});
        }
        std::string disposition = "attachment";
        if (!part.disposition.word.empty()) {
            disposition = WithoutParameter(
                TrimBlanks(FirstField(part.header, "Content-Disposition")), "filename");
        }
        edits.push_back({"Content-Disposition",
                         "Content-Disposition: " + disposition + FormatParameter("filename", name),
                         false});
        EditDescription(part, attachment.name, name, &edits);
        PutHeader(part, EditBlock(part.header, edits, [](std::string_view) { return false; }));
    }

    // A message that was nothing but its attachment becomes one with an empty text.
    void EmptyWholeMessage() {
        const MimePart& root = message_.tree.parts.front();
        std::vector<FieldEdit> edits;
        RequireMimeVersion(root, &edits);
        edits.push_back({"Content-Type", kEmptyText, false});
        for (const char* field : {"Content-Disposition", "Content-Transfer-Encoding", "Content-ID",
                                  "X-Attachment-Id", "Content-Description"}) {
            edits.push_back({field, {}, true});
        }
        PutHeader(root, EditBlock(root.header, edits, [](std::string_view field) {
                      return DescribesOldBytes(field, true);
                  }));
        Put(root.content_begin, root.content_end, Blob());
    }

    bool IsDeleted(int index) const { return deleted_[static_cast<std::size_t>(index)]; }

    // Cuts the deleted children of a multipart in runs. A multipart must have a part, so the last
    // one is not cut but becomes an empty text.
    void DeleteChildren(const MimePart& parent) {
        const std::vector<int>& children = parent.children;
        const bool all =
            !children.empty() && std::all_of(children.begin(), children.end(),
                                             [this](int child) { return IsDeleted(child); });
        if (all) {
            const MimePart& first = Part(children.front());
            const std::string newline = BlockNewline(first.header);
            Put(first.header_begin, first.content_end,
                Blob::FromString(kEmptyText + newline + newline));
        }
        for (std::size_t i = all ? 1 : 0; i < children.size(); ++i) {
            if (!IsDeleted(children[i])) continue;
            std::size_t last = i;
            while (last + 1 < children.size() && IsDeleted(children[last + 1]))
                ++last;
            CutRun(children, i, last);
            i = last;
        }
    }

    void CutRun(const std::vector<int>& children, std::size_t first, std::size_t last) {
        std::uint64_t begin = Part(children[first]).boundary_begin;
        const MimePart& end = Part(children[last]);
        if (end.ended_by_parent) {
            // From one boundary line to the next.
            Put(begin, end.next_boundary, Blob());
            return;
        }
        // Nothing of this multipart follows: the line end before the boundary line goes too, else
        // it would become content of the part before.
        if (first > 0) begin = Part(children[first - 1]).content_end;
        Put(begin, end.content_end, Blob());
    }

    const ReadMessage& message_;
    const std::vector<AttachmentEdit>& edits_;
    std::vector<bool> deleted_;
    std::vector<Splice> splices_;
};

}  // namespace

std::vector<Splice> PlanSplices(const ReadMessage& message,
                                const std::vector<AttachmentEdit>& edits) {
    return Planner(message, edits).Plan();
}

Blob ApplySplices(const Blob& message, const std::vector<Splice>& splices) {
    std::vector<Blob> pieces;
    std::uint64_t at = 0;
    for (const Splice& splice : splices) {
        pieces.push_back(message.Slice(at, splice.begin - at));
        pieces.push_back(splice.bytes);
        at = splice.end;
    }
    pieces.push_back(message.Slice(at, message.size_bytes() - at));
    std::erase_if(pieces, [](const Blob& piece) { return piece.empty(); });
    return Blob::Join(std::move(pieces));
}

}  // namespace trevix::mime
