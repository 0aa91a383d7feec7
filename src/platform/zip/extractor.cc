#include "platform/zip/extractor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "platform/zip/archive_output.h"

namespace trevix::zip_engine {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

bool SplitSafeName(const DirectoryEntry& entry, std::vector<std::string>* parts) {
    parts->clear();
    // Judged as stored: what is shown may have been made readable.
    const std::string& stored = entry.stored_name;
    if (stored.empty() || stored.front() == '/') return false;
    if (stored.find('\\') != std::string::npos) return false;
    if (stored.find('\0') != std::string::npos) return false;
    std::string_view rest = entry.name;
    if (rest.find('\\') != std::string_view::npos || rest.starts_with('/')) return false;
    while (!rest.empty()) {
        const auto cut = rest.find('/');
        const std::string_view part = rest.substr(0, cut);
        if (part == "..") return false;
        if (!part.empty() && part != ".") parts->emplace_back(part);
        if (cut == std::string_view::npos) break;
        rest.remove_prefix(cut + 1);
    }
    return !parts->empty() || entry.is_folder();
}

Extractor::Extractor(const std::string& destination, bool never_overwrite)
    : never_overwrite_(never_overwrite) {
    // The destination itself is the caller's word, so a link to it is as good as it.
    destination_.Reset(::open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!destination_.valid()) opened_ = CreateCode(errno);
}

Code Extractor::OpenFolder(const std::vector<std::string>& parts, std::size_t depth,
                           UniqueDescriptor* folder) const {
    folder->Reset(::fcntl(destination_.get(), F_DUPFD_CLOEXEC, 0));
    if (!folder->valid()) return CreateCode(errno);
    for (std::size_t i = 0; i < depth; ++i) {
        const char* name = parts[i].c_str();
        if (::mkdirat(folder->get(), name, 0700) != 0 && errno != EEXIST) {
            return CreateCode(errno);
        }
        UniqueDescriptor next(::openat(folder->get(), name, kOpenFolder));
        if (!next.valid()) {
            // A link in the way leads somewhere else: that is the archive's fault, or a trap.
            return errno == ELOOP || errno == ENOTDIR ? kStructure : CreateCode(errno);
        }
        *folder = std::move(next);
    }
    return kOk;
}

Code Extractor::Extract(ArchiveBytes& archive, const DirectoryEntry& entry) {
    std::vector<std::string> parts;
    if (!SplitSafeName(entry, &parts)) return kStructure;
    UniqueDescriptor folder;
    if (entry.is_folder()) return OpenFolder(parts, parts.size(), &folder);
    const Code code = OpenFolder(parts, parts.size() - 1, &folder);
    if (code != kOk) return code;
    return WriteFile(archive, entry, folder.get(), parts.back());
}

Code Extractor::WriteFile(ArchiveBytes& archive, const DirectoryEntry& entry, int folder,
                          const std::string& name) {
    struct stat about {};
    const bool exists = ::fstatat(folder, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && (never_overwrite_ || S_ISDIR(about.st_mode))) return kCannotCreate;

    // Not derived from the entry's name, which may be as long as a name can be.
    UniqueDescriptor file;
    std::string temporary;
    for (unsigned attempt = 0; !file.valid(); ++attempt) {
        temporary = ".trevix-unzip-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
        file.Reset(::openat(folder, temporary.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file.valid() && errno != EEXIST) return CreateCode(errno);
    }
    std::uint64_t offset = 0;
    Code code = reader_.Read(archive, entry, HeaderCheck::kLenient,
                             [&](const char* bytes, std::size_t count) {
                                 if (WriteFully(file.get(), offset, bytes, count) != 0)
                                     return kWriteFailed;
                                 offset += count;
                                 return kOk;
                             });
    if (code == kOk && ::close(file.Release()) != 0 && errno != EINTR) code = kWriteFailed;
    if (code == kOk) code = PutInPlace(folder, temporary, name);
    if (code != kOk) ::unlinkat(folder, temporary.c_str(), 0);
    return code;
}

Code Extractor::PutInPlace(int folder, const std::string& temporary,
                           const std::string& name) const {
    if (never_overwrite_) {
        // Fails when the name was taken meanwhile.
        if (::linkat(folder, temporary.c_str(), folder, name.c_str(), 0) != 0) {
            return CreateCode(errno);
        }
        ::unlinkat(folder, temporary.c_str(), 0);
        return kOk;
    }
    if (::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0) return CreateCode(errno);
    return kOk;
}

}  // namespace trevix::zip_engine
