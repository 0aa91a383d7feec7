#include "platform/zip/archive_writer.h"

#include <zip.h>

#include <unordered_set>
#include <utility>

#include "platform/zip/archive_bytes.h"
#include "platform/zip/archive_directory.h"
#include "platform/zip/entry_text.h"

namespace trevix::zip_engine {
namespace {

constexpr std::size_t kLongestText = 65535;

struct DiscardArchive {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
using Archive = std::unique_ptr<zip_t, DiscardArchive>;

Code CodeOf(const zip_error_t* error) {
    switch (zip_error_code_zip(error)) {
        case ZIP_ER_MEMORY: return kNoMemory;
        case ZIP_ER_NOZIP:
        case ZIP_ER_INCONS: return kStructure;
        case ZIP_ER_MULTIDISK: return kMultiVolume;
        case ZIP_ER_EOF: return kTruncated;
        case ZIP_ER_READ:
        case ZIP_ER_SEEK: return kReadFailed;
        case ZIP_ER_WRITE:
        case ZIP_ER_CLOSE: return kWriteFailed;
        case ZIP_ER_TMPOPEN:
        case ZIP_ER_RENAME: return kCannotCreate;
        default: return kCannotComplete;
    }
}

// Our own reader tells a truncated archive from a damaged one, which libzip does not.
Code WhyNotOpened(ArchiveOutput& output, Code otherwise) {
    if (!output.has_old()) return otherwise;
    DescriptorBytes bytes(output.old_descriptor(), output.old_bytes());
    DirectoryPlace place;
    const Code code = FindDirectory(bytes, &place);
    return code != kOk ? code : otherwise;
}

Code OpenArchive(ArchiveOutput& output, Archive* archive) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = output.MakeSource(&error);
    Code code = kOk;
    if (source == nullptr) {
        code = CodeOf(&error);
    } else {
        const int flags = output.has_old() ? 0 : ZIP_CREATE | ZIP_TRUNCATE;
        archive->reset(zip_open_from_source(source, flags, &error));
        if (*archive == nullptr) {
            zip_source_free(source);
            code = WhyNotOpened(output, CodeOf(&error));
        }
    }
    zip_error_fini(&error);
    return code;
}

std::unordered_set<std::string> TakenNames(zip_t* archive) {
    std::unordered_set<std::string> taken;
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* name = zip_get_name(archive, static_cast<zip_uint64_t>(i), 0);
        if (name != nullptr) taken.insert(FoldCase(name));
    }
    return taken;
}

// Deletes the entries that members are to replace, and counts them.
Code DeleteReplaced(zip_t* archive, const std::vector<std::unique_ptr<Member>>& members,
                    zip_uint64_t* deleted) {
    for (const auto& member : members) {
        if (!member->replaces_namesakes()) continue;
        const zip_int64_t count = zip_get_num_entries(archive, 0);
        for (zip_int64_t i = 0; i < count; ++i) {
            const auto index = static_cast<zip_uint64_t>(i);
            const char* name = zip_get_name(archive, index, 0);
            if (name == nullptr || member->name() != name) continue;
            if (zip_delete(archive, index) != 0) return CodeOf(zip_get_error(archive));
            ++*deleted;
        }
    }
    return kOk;
}

// Adds one member; its place in the archive goes to `index`.
Code AddMember(zip_t* archive, const std::string& name, std::int16_t level, Member& member,
               zip_uint64_t* index) {
    zip_source_t* source = member.MakeSource(archive);
    if (source == nullptr) return kNoMemory;
    const zip_int64_t added = zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (added < 0) {
        zip_source_free(source);
        return CodeOf(zip_get_error(archive));
    }
    *index = static_cast<zip_uint64_t>(added);
    // What is deflated already must keep the default, or libzip would inflate and deflate it.
    zip_int32_t method = ZIP_CM_DEFAULT;
    if (!member.is_to_be_deflated()) {
        method = ZIP_CM_STORE;
    } else if (member.is_streamed()) {
        method = ZIP_CM_DEFLATE;
    }
    if (method == ZIP_CM_DEFAULT) return kOk;
    const auto effort = static_cast<zip_uint32_t>(method == ZIP_CM_DEFLATE ? level : 0);
    if (zip_set_file_compression(archive, *index, method, effort) != 0) {
        return CodeOf(zip_get_error(archive));
    }
    return kOk;
}

Code SetComment(zip_t* archive, const ArchiveComment& comment) {
    if (!comment.write) return kOk;
    const std::string text = MakeValidUtf8(comment.text);
    if (text.size() > kLongestText) return kBadComment;
    const int failed = zip_set_archive_comment(archive, text.empty() ? nullptr : text.c_str(),
                                               static_cast<zip_uint16_t>(text.size()));
    return failed == 0 ? kOk : kBadComment;
}

// What a member or the output noticed itself says more than libzip can.
Code CloseCode(zip_t* archive, const ArchiveOutput& output,
               const std::vector<std::unique_ptr<Member>>& members) {
    for (const auto& member : members) {
        if (member->failure() != kOk) return member->failure();
    }
    if (output.failure() != kOk) return output.failure();
    return CodeOf(zip_get_error(archive));
}

Code WriteOnce(ArchiveOutput& output, std::int16_t level, const ArchiveComment& comment,
               const std::vector<std::unique_ptr<Member>>& members,
               std::vector<zip_uint64_t>* places) {
    Archive archive;
    if (const Code code = OpenArchive(output, &archive); code != kOk) return code;
    zip_uint64_t deleted = 0;
    const Code cleared = DeleteReplaced(archive.get(), members, &deleted);
    if (cleared != kOk) return cleared;
    std::unordered_set<std::string> taken = TakenNames(archive.get());
    places->clear();
    for (const auto& member : members) {
        const std::string name = FreeName(member->name(), taken);
        if (name.size() > kLongestText) return kBadCommand;
        taken.insert(FoldCase(name));
        zip_uint64_t index = 0;
        const Code code = AddMember(archive.get(), name, level, *member, &index);
        if (code != kOk) return code;
        places->push_back(index - deleted);
    }
    if (const Code code = SetComment(archive.get(), comment); code != kOk) return code;
    if (zip_close(archive.get()) != 0) return CloseCode(archive.get(), output, members);
    // Closing has freed it.
    static_cast<void>(archive.release());
    return kOk;
}

// Turns the streamed members that did not shrink into stored ones. Whether there are any is only
// known when they are written.
Code FindNotShrunk(ArchiveOutput& output, const std::vector<std::unique_ptr<Member>>& members,
                   const std::vector<zip_uint64_t>& places, bool* found) {
    DescriptorBytes bytes(output.new_descriptor(), output.new_bytes());
    DirectoryPlace place;
    if (const Code code = FindDirectory(bytes, &place); code != kOk) return kInternal;
    DirectoryCursor cursor(place);
    std::size_t next = 0;
    for (zip_uint64_t i = 0; !cursor.at_end() && next < places.size(); ++i) {
        DirectoryEntry entry;
        if (const Code code = cursor.Next(bytes, &entry); code != kOk) return kInternal;
        if (i != places[next]) continue;
        Member& member = *members[next++];
        const bool tried = member.is_streamed() && member.is_to_be_deflated();
        if (tried && entry.compressed_bytes >= entry.size_bytes) {
            member.StoreAsItIs();
            *found = true;
        }
    }
    return kOk;
}

}  // namespace

Code WriteArchive(ArchiveOutput& output, std::int16_t level, const ArchiveComment& comment,
                  const std::vector<std::unique_ptr<Member>>& members) {
    std::vector<zip_uint64_t> places;
    const Code code = WriteOnce(output, level, comment, members, &places);
    if (code != kOk) return code;

    bool streamed = false;
    for (const auto& member : members)
        streamed = streamed || member->is_streamed();
    if (!streamed) return kOk;

    bool not_shrunk = false;
    const Code checked = FindNotShrunk(output, members, places, &not_shrunk);
    if (checked != kOk || !not_shrunk) return checked;
    return WriteOnce(output, level, comment, members, &places);
}

}  // namespace trevix::zip_engine
