// The proof that a stored replacement is the old message with exactly the edits that were asked
// for.

#include <algorithm>
#include <cstring>
#include <future>

#include "platform/mime/decoded_blob.h"
#include "platform/mime/second_opinion.h"
#include "platform/mime/splice.h"

namespace trevix::mime {
namespace {

Error Refused(const std::string& why) {
    return MessagingError(kNoAccess, "the message cannot be changed safely: " + why);
}

Result<bool> SameBytes(const Blob& a, const Blob& b) {
    if (a.size_bytes() != b.size_bytes()) return false;
    bool same = true;
    std::uint64_t offset = 0;
    std::string read;
    const Status compared = a.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
        const char* other = b.in_memory();
        if (other != nullptr) {
            other += offset;
        } else {
            read.resize(count);
            TREVIX_RETURN_IF_ERROR(b.ReadAt(offset, read.data(), count));
            other = read.data();
        }
        same = same && std::memcmp(bytes, other, count) == 0;
        offset += count;
        return {};
    });
    if (!compared.ok()) return compared.error();
    return same;
}

enum class Fate { kKept, kNewData, kNewName, kDeleted, kEmptied };

class Proof {
 public:
    Proof(const ReadMessage& old, const std::vector<AttachmentEdit>& edits,
          const std::vector<Splice>& splices, const ReadMessage& now)
        : old_(old), edits_(edits), splices_(splices), now_(now) {}

    Status Check() {
        DecideFates();
        TREVIX_RETURN_IF_ERROR(MatchParts());
        TREVIX_RETURN_IF_ERROR(MatchContents());
        return MatchAttachments();
    }

 private:
    const MimePart& Old(std::size_t index) const { return old_.tree.parts[index]; }
    const MimePart& Now(std::size_t index) const { return now_.tree.parts[index]; }

    void DecideFates() {
        const std::vector<MimePart>& parts = old_.tree.parts;
        fates_.assign(parts.size(), Fate::kKept);
        for (const AttachmentEdit& edit : edits_) {
            const AttachmentPart& attachment = old_.shape.attachments[edit.attachment];
            if (edit.deleted) {
                fates_[static_cast<std::size_t>(attachment.whole)] = Fate::kDeleted;
            } else if (edit.data.has_value()) {
                fates_[static_cast<std::size_t>(attachment.part)] = Fate::kNewData;
            } else if (edit.name.has_value()) {
                fates_[static_cast<std::size_t>(attachment.part)] = Fate::kNewName;
            }
        }
        if (fates_.front() == Fate::kDeleted) fates_.front() = Fate::kEmptied;
        for (const MimePart& part : parts) {
            const bool all = !part.children.empty() &&
                             std::all_of(part.children.begin(), part.children.end(), [&](int c) {
                                 return fates_[static_cast<std::size_t>(c)] == Fate::kDeleted;
                             });
            if (all) fates_[static_cast<std::size_t>(part.children.front())] = Fate::kEmptied;
        }
    }

    // The same parts in the same places below each other, less the deleted ones.
    Status MatchParts() {
        now_of_.assign(old_.tree.parts.size(), -1);
        int next = 0;
        for (std::size_t i = 0; i < old_.tree.parts.size(); ++i) {
            if (fates_[i] == Fate::kDeleted) continue;
            now_of_[i] = next++;
        }
        if (static_cast<std::size_t>(next) != now_.tree.parts.size()) {
            return Refused("the number of parts would change");
        }
        for (std::size_t i = 0; i < old_.tree.parts.size(); ++i) {
            if (now_of_[i] < 0) continue;
            const int parent = Old(i).parent;
            const int expected = parent < 0 ? -1 : now_of_[static_cast<std::size_t>(parent)];
            if (Now(static_cast<std::size_t>(now_of_[i])).parent != expected) {
                return Refused("the order of the parts would change");
            }
        }
        return {};
    }

    // How far a byte of the old message that stays has moved.
    std::int64_t ShiftAt(std::uint64_t offset) const {
        std::int64_t shift = 0;
        for (const Splice& splice : splices_) {
            if (splice.end > offset) break;
            shift += static_cast<std::int64_t>(splice.bytes.size_bytes()) -
                     static_cast<std::int64_t>(splice.end - splice.begin);
        }
        return shift;
    }

    bool IsMovedTo(std::uint64_t before, std::uint64_t now) const {
        return static_cast<std::int64_t>(before) + ShiftAt(before) ==
               static_cast<std::int64_t>(now);
    }

    Status MatchContents() {
        for (std::size_t i = 0; i < old_.tree.parts.size(); ++i) {
            if (now_of_[i] < 0) continue;
            const MimePart& before = Old(i);
            const MimePart& now = Now(static_cast<std::size_t>(now_of_[i]));
            if (fates_[i] == Fate::kKept) {
                const bool same_header = before.header == now.header &&
                                         before.type.word == now.type.word &&
                                         before.boundary == now.boundary &&
                                         IsMovedTo(before.header_begin, now.header_begin);
                const bool same_leaf =
                    before.IsMultipart() || (IsMovedTo(before.content_begin, now.content_begin) &&
                                             before.content_end - before.content_begin ==
                                                 now.content_end - now.content_begin);
                if (!same_header || !same_leaf) return Refused("another part would change");
            } else if (fates_[i] == Fate::kNewName) {
                const bool same = before.content_end - before.content_begin ==
                                      now.content_end - now.content_begin &&
                                  before.encoding == now.encoding &&
                                  before.type.word == now.type.word;
                if (!same) return Refused("the renamed part would change");
            } else if (fates_[i] == Fate::kEmptied) {
                if (!now.IsType("text/plain") || now.content_begin != now.content_end) {
                    return Refused("the emptied part would not be empty");
                }
            }
        }
        return {};
    }

    // The attachments that must be there afterwards are there, with the new names and data.
    Status MatchAttachments() {
        std::size_t next = 0;
        for (std::size_t i = 0; i < old_.shape.attachments.size(); ++i) {
            const AttachmentEdit* edit = EditOf(i);
            if (edit != nullptr && edit->deleted) continue;
            const AttachmentPart& before = old_.shape.attachments[i];
            if (next >= now_.shape.attachments.size())
                return Refused("an attachment would be lost");
            const AttachmentPart& now = now_.shape.attachments[next++];
            if (now.part != now_of_[static_cast<std::size_t>(before.part)] ||
                now.kind != before.kind) {
                return Refused("an attachment would become another one");
            }
            if (edit != nullptr) TREVIX_RETURN_IF_ERROR(MatchEdit(*edit, before, now));
        }
        if (next != now_.shape.attachments.size()) return Refused("an attachment would appear");
        const bool same_body =
            old_.shape.body < 0 ||
            now_.shape.body == now_of_[static_cast<std::size_t>(old_.shape.body)];
        if (!same_body) return Refused("another part would become the text");
        return {};
    }

    const AttachmentEdit* EditOf(std::size_t attachment) const {
        for (const AttachmentEdit& edit : edits_) {
            if (edit.attachment == attachment) return &edit;
        }
        return nullptr;
    }

    Status MatchEdit(const AttachmentEdit& edit, const AttachmentPart& before,
                     const AttachmentPart& now) {
        const bool renamed = edit.name.has_value() || edit.data.has_value();
        if (renamed && now.name != edit.name.value_or(before.name)) {
            return Refused("the new name would read differently");
        }
        if (!edit.data.has_value()) return {};
        const MimePart& part = Now(static_cast<std::size_t>(now.part));
        const Result<Blob> decoded =
            DecodeBlob(now_.bytes.Slice(part.content_begin, part.content_end - part.content_begin),
                       part.encoding);
        if (!decoded.ok()) return decoded.error();
        const Result<bool> same = SameBytes(decoded.value(), *edit.data);
        if (!same.ok()) return same.error();
        if (!same.value()) return Refused("the new data would read differently");
        return {};
    }

    const ReadMessage& old_;
    const std::vector<AttachmentEdit>& edits_;
    const std::vector<Splice>& splices_;
    const ReadMessage& now_;
    std::vector<Fate> fates_;
    std::vector<int> now_of_;  // index in the new tree, -1 for deleted parts
};

}  // namespace

Result<ReadMessage> ReadBackEdited(const ReadMessage& old, const std::vector<AttachmentEdit>& edits,
                                   const std::vector<Splice>& splices, const Blob& composed,
                                   const Blob& stored, HelperThread& helper) {
    const Result<Blob> bytes = Held(stored);
    if (!bytes.ok()) return bytes.error();
    Result<PartTree> tree = ReadPartTree(bytes.value());
    std::future<Result<std::string>> second;
    if (tree.ok() && tree.value().doubt.empty()) {
        second = helper.Run([message = bytes.value(), seen = tree.value()] {
            return DisagreementOn(message, seen);
        });
    }

    const Result<bool> same = SameBytes(composed, bytes.value());
    if (!same.ok()) return same.error();
    if (!same.value())
        return MessagingError(kDiskError, "the store holds other bytes than written");
    if (!tree.ok()) return tree.error();
    ReadMessage now;
    now.bytes = bytes.value();
    now.tree = std::move(tree).value();
    if (!now.tree.doubt.empty()) return Refused(now.tree.doubt);
    now.shape = ShapeOf(now.tree);
    const Status proved = Proof(old, edits, splices, now).Check();
    const Result<std::string> difference = second.get();
    if (!difference.ok()) return difference.error();
    if (!difference.value().empty()) return Refused(difference.value());
    if (!proved.ok()) return proved.error();
    return now;
}

}  // namespace trevix::mime
