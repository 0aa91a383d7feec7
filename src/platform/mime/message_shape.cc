#include "platform/mime/message_shape.h"

#include <algorithm>
#include <array>

#include "platform/mime/ascii.h"
#include "platform/mime/attachment_name.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

const MimePart& At(const PartTree& tree, int index) {
    return tree.parts[static_cast<std::size_t>(index)];
}

bool IsBodyType(const MimePart& part) {
    constexpr std::array kTypes = {"text/plain", "text/html", "text/enriched", "text/calendar"};
    return std::find(kTypes.begin(), kTypes.end(), part.type.word) != kTypes.end();
}

bool IsCard(const MimePart& part) {
    constexpr std::array kTypes = {"text/vcard", "text/x-vcard", "text/directory"};
    return std::find(kTypes.begin(), kTypes.end(), part.type.word) != kTypes.end();
}

std::string NameParameters(const MimePart& part) {
    const std::string name = part.disposition.Parameter("filename");
    return name.empty() ? part.type.Parameter("name") : name;
}

bool IsOpaqueSecurity(const MimePart& part) {
    if (part.IsType("application/pkcs7-mime") || part.IsType("application/x-pkcs7-mime")) {
        // A bundle of certificates protects nothing.
        return !EqualsIgnoringCase(part.type.Parameter("smime-type"), "certs-only");
    }
    return part.IsType("application/octet-stream") &&
           AsciiLower(NameParameters(part)).ends_with(".p7m");
}

bool IsSecurityContainer(const MimePart& part) {
    return part.IsType("multipart/signed") || part.IsType("multipart/encrypted");
}

bool IsTnef(const MimePart& part) {
    return part.IsType("application/ms-tnef") || part.IsType("application/vnd.ms-tnef") ||
           EqualsIgnoringCase(NameParameters(part), "winmail.dat");
}

bool IsReportRecord(const MimePart& part) {
    return part.IsType("message/delivery-status") ||
           part.IsType("message/disposition-notification") ||
           part.IsType("message/global-delivery-status") ||
           part.IsType("message/global-disposition-notification");
}

bool IsAttachedMessage(const MimePart& part) {
    return part.IsType("message/rfc822") || part.IsType("message/global") ||
           part.IsType("message/news");
}

// Some senders cut one text into several parts with the pictures between them.
bool IsCutByApple(const PartTree& tree) {
    for (const char* field : {"MIME-Version", "X-Mailer", "X-User-Agent"}) {
        const std::string_view value = FirstField(tree.parts.front().header, field);
        for (const char* word : {"apple", "iphone", "ipad", "ipod"}) {
            if (ContainsIgnoringCase(value, word)) return true;
        }
    }
    return false;
}

class ShapeFinder {
 public:
    explicit ShapeFinder(const PartTree& tree) : tree_(tree), cut_text_(IsCutByApple(tree)) {}

    MessageShape Find() {
        shape_.body = FindBody(0);
        if (IsProtectedAtTop(tree_)) {
            Add(0, 0, AttachmentKind::kProtectedMessage);
        } else {
            MarkAlternatives();
            Visit(0);
        }
        return std::move(shape_);
    }

 private:
    // The text leaf that the part gives as the body, -1 when it gives none.
    int FindBody(int index) const {
        const MimePart& part = At(tree_, index);
        if (part.IsAttachmentByDisposition()) return -1;
        if (!part.IsMultipart()) {
            const bool alone = index == 0 && part.IsText() && !IsCard(part);
            return IsBodyType(part) || alone ? index : -1;
        }
        if (part.IsType("multipart/encrypted") || part.IsType("multipart/appledouble")) return -1;
        if (part.IsType("multipart/alternative")) return FindAlternative(part);
        if (part.IsType("multipart/related")) {
            const int root = RelatedRoot(tree_, index);
            const int body = root < 0 ? -1 : FindBody(root);
            if (body >= 0) return body;
        }
        for (const int child : part.children) {
            const int body = FindBody(child);
            if (body >= 0) return body;
        }
        return -1;
    }

    int FindAlternative(const MimePart& part) const {
        int best = -1;
        for (const int child : part.children) {
            const int body = FindBody(child);
            if (body < 0) continue;
            const bool better = best < 0 || (At(tree_, body).IsType("text/html") &&
                                             !At(tree_, best).IsType("text/html"));
            if (better) best = body;
        }
        return best;
    }

    // The texts that say the same as the body in another format.
    void MarkAlternatives() {
        int child = shape_.body;
        while (child > 0) {
            const int parent = At(tree_, child).parent;
            if (At(tree_, parent).IsType("multipart/alternative")) {
                for (const int sibling : At(tree_, parent).children) {
                    const int text = sibling == child ? -1 : FindAlternativeText(sibling);
                    if (text >= 0) same_text_.push_back(text);
                }
            }
            child = parent;
        }
    }

    int FindAlternativeText(int index) const {
        const MimePart& part = At(tree_, index);
        const bool text_leaf = !part.IsMultipart() && part.IsText();
        if (text_leaf && !part.IsAttachmentByDisposition()) return index;
        return FindBody(index);
    }

    bool IsShownText(int index) const {
        const MimePart& part = At(tree_, index);
        if (index == shape_.body) return true;
        if (std::find(same_text_.begin(), same_text_.end(), index) != same_text_.end()) return true;
        const bool plain_text = !part.IsAttachmentByDisposition() && NameParameters(part).empty() &&
                                (part.IsType("text/plain") || part.IsType("text/html"));
        // An empty text without a name is what is left of a message whose attachments are gone.
        return plain_text && (cut_text_ || part.content_begin == part.content_end);
    }

    void Visit(int index) {
        const MimePart& part = At(tree_, index);
        if (part.IsMultipart()) {
            if (part.IsType("multipart/appledouble") && part.children.size() == 2) {
                return Add(part.children[1], index, AttachmentKind::kFile);
            }
            for (const int child : part.children)
                Visit(child);
            return;
        }
        if (part.type.word.starts_with("multipart/")) return;  // its parts cannot be told
        if (IsShownText(index)) return;
        if (IsReportRecord(part) && part.parent >= 0 &&
            At(tree_, part.parent).IsType("multipart/report")) {
            return;
        }
        if (IsAttachedMessage(part)) return Add(index, index, AttachmentKind::kMessage);
        if (part.IsType("message/external-body")) return Add(index, index, ExternalKind(part));
        if (IsTnef(part)) return Add(index, index, AttachmentKind::kTnef);
        Add(index, index, AttachmentKind::kFile);
    }

    static AttachmentKind ExternalKind(const MimePart& part) {
        const std::string access = AsciiLower(part.type.Parameter("access-type"));
        if (access == "anon-ftp") return AttachmentKind::kShortcut;
        if (access == "local-file" || access == "url") return AttachmentKind::kLink;
        return AttachmentKind::kEntirePart;
    }

    void Add(int part, int whole, AttachmentKind kind) {
        AttachmentPart attachment{part, whole, kind, {}};
        const int position = static_cast<int>(shape_.attachments.size()) + 1;
        attachment.name = AttachmentName(tree_, attachment, position);
        shape_.attachments.push_back(std::move(attachment));
    }

    const PartTree& tree_;
    bool cut_text_;
    MessageShape shape_;
    std::vector<int> same_text_;
};

}  // namespace

MessageShape ShapeOf(const PartTree& tree) {
    return ShapeFinder(tree).Find();
}

bool IsProtectedAtTop(const PartTree& tree) {
    const MimePart& root = tree.parts.front();
    return (root.IsMultipart() && IsSecurityContainer(root)) || IsOpaqueSecurity(root);
}

std::string ProtectionOf(const PartTree& tree, int part) {
    if (IsOpaqueSecurity(At(tree, part))) return "the part is signed or encrypted";
    for (int at = part; at >= 0; at = At(tree, at).parent) {
        // Some servers turn encrypted mail into an ordinary multipart; it can still be decrypted
        // as long as nobody touches its parts.
        for (const int child : At(tree, at).children) {
            if (At(tree, child).IsType("application/pgp-encrypted")) {
                return "the part belongs to encrypted mail";
            }
        }
        // A broken one, without parts, counts as well.
        if (IsSecurityContainer(At(tree, at))) return "the part lies in signed or encrypted mail";
    }
    return {};
}

std::string ReplaceRefusal(const PartTree& tree, const AttachmentPart& attachment) {
    if (!tree.doubt.empty()) return tree.doubt;
    if (std::string why = ProtectionOf(tree, attachment.part); !why.empty()) return why;
    if (attachment.kind != AttachmentKind::kFile) return "the part is no file";
    const MimePart& part = At(tree, attachment.part);
    if (part.type.word.starts_with("message/")) return "the part is a message";
    if (!part.header_ended || part.header_begin == part.content_begin) {
        return "the part has no header";
    }
    if (part.content_begin == part.content_end) return "the part is empty";
    for (int at = part.parent; at >= 0; at = At(tree, at).parent) {
        if (At(tree, at).IsType("multipart/report")) return "the part belongs to a report";
    }
    if (part.parent >= 0 && At(tree, part.parent).IsType("multipart/related") &&
        RelatedRoot(tree, part.parent) == attachment.part) {
        return "the part is the one that related parts belong to";
    }
    return {};
}

std::string DeleteRefusal(const PartTree& tree, const AttachmentPart& attachment) {
    if (!tree.doubt.empty()) return tree.doubt;
    if (std::string why = ProtectionOf(tree, attachment.part); !why.empty()) return why;
    if (attachment.kind == AttachmentKind::kProtectedMessage) return "the message is protected";
    // A fork of a Macintosh file that is not in the attachment's data would be lost with it.
    if (attachment.part != attachment.whole) return "the part is one of a pair";
    const MimePart& part = At(tree, attachment.whole);
    if (!part.header_ended) return "the part has no header";
    for (int at = part.parent; at >= 0; at = At(tree, at).parent) {
        if (At(tree, at).IsType("multipart/report")) return "the part belongs to a report";
    }
    if (part.parent < 0) return {};
    const MimePart& parent = At(tree, part.parent);
    if (parent.IsType("multipart/alternative")) return "the part is one of several alternatives";
    if (parent.IsType("multipart/related") && RelatedRoot(tree, part.parent) == attachment.whole) {
        return "the part is the one that related parts belong to";
    }
    return {};
}

int RelatedRoot(const PartTree& tree, int related) {
    const MimePart& part = At(tree, related);
    std::string start = part.type.Parameter("start");
    if (start.starts_with("<") && start.ends_with(">")) start = start.substr(1, start.size() - 2);
    for (const int child : part.children) {
        if (!start.empty() && At(tree, child).content_id == start) return child;
    }
    return part.children.empty() ? -1 : part.children.front();
}

}  // namespace trevix::mime
