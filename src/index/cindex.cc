#include "index/cindex.h"

#include "store/run_lock.h"
#include "util/file_name.h"
#include "util/pending_error.h"

namespace trevix {

void CIndex::Index(bool /*recreate*/) {
    constexpr const char* kText = "Attachment index is not available in this version";
    state_.log.Write("CIndex", "Index", std::string(" ") + kText, 1);
    if (on_abort_) on_abort_(kText);
}

void CIndex::StartIndex() {}

bool CIndex::CheckInProcess() {
    const bool refused =
        trevix::CheckInProcess(state_, kIndexLockTexts, [this](const std::string& message) {
            if (on_abort_) on_abort_(message);
        });
    if (refused) in_process_ = false;
    return refused;
}

namespace {

// The directory that a log-on name has for itself. Long names are cut, and told apart by a hash.
std::string StoreFolderName(const std::string& logon_name) {
    constexpr std::size_t kLongest = 160;
    const std::string safe = SafeFileComponent(logon_name);
    if (logon_name.size() <= kLongest) return safe;
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : logon_name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
    return SafeFileComponent(safe.substr(0, kLongest)) + "-" + std::to_string(hash);
}

}  // namespace

std::string CIndex::GetZipIndexDir() {
    if (!index_dir_.empty()) return index_dir_;
    FileSystem& files = state_.ports.files;
    PendingError pending;
    const auto make = [&](const std::string& path, const std::string& what) {
        if (!files.DirectoryExists(path)) pending.Step(files.MakeDirectory(path));
        if (files.DirectoryExists(path)) return true;
        state_.log.Write("CIndex", "ZipIndex",
                         " error creating " + what + " directory " +
                             std::to_string(pending.number()) + " " + pending.description(),
                         1);
        return false;
    };

    const std::string base = state_.TemporaryPath() + "ZipIndex/";
    if (!make(base, "ZipIndex")) return {};
    const std::string name = StoreFolderName(state_.gLogonName);
    const std::string store = base + name + "/";
    if (!make(store, name)) return {};
    files.SweepStaging(store);
    index_dir_ = store;
    return index_dir_;
}

}  // namespace trevix
