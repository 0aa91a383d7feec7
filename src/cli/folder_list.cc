#include "cli/folder_list.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>

#include "util/text.h"

namespace trevix::cli {
namespace {

constexpr std::size_t kSuggestions = 3;

Status ListBelow(Folder& parent, const FolderEntry& above, std::vector<FolderEntry>& list) {
    auto folders = parent.Folders();
    if (!folders.ok()) return folders.error();
    for (const std::unique_ptr<Folder>& folder : folders.value()) {
        auto name = folder->Name();
        if (!name.ok()) return name.error();
        auto id = folder->Id();
        if (!id.ok()) return id.error();
        FolderEntry entry = above;
        entry.id = id.value();
        entry.name = name.value();
        entry.path = above.path.empty() ? entry.name : above.path + "/" + entry.name;
        list.push_back(entry);
        ++entry.depth;
        TREVIX_RETURN_IF_ERROR(ListBelow(*folder, entry, list));
    }
    return {};
}

// Letters to insert, remove or replace to turn one text into the other.
std::size_t Distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, replaced}));
        }
    }
    return row[to.size()];
}

// A path is also close when only its last name was given.
std::size_t Distance(const FolderEntry& folder, const std::string& path) {
    const std::string wanted = ToLower(path);
    return std::min(Distance(ToLower(folder.path), wanted),
                    Distance(ToLower(folder.name), wanted) + 1);
}

std::string Closest(const std::vector<FolderEntry>& folders, const std::string& path) {
    std::vector<std::pair<std::size_t, std::string>> ranked;
    const std::size_t limit = std::max<std::size_t>(3, path.size() / 2);
    for (const FolderEntry& folder : folders) {
        const std::size_t distance = Distance(folder, path);
        if (distance <= limit) ranked.emplace_back(distance, folder.path);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string text;
    for (std::size_t i = 0; i < ranked.size() && i < kSuggestions; ++i) {
        text += (i == 0 ? "" : ", ") + ("\"" + ranked[i].second + "\"");
    }
    return text;
}

std::string WithoutOuterSlashes(std::string path) {
    while (path.ends_with('/'))
        path.pop_back();
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

}  // namespace

Result<std::vector<FolderEntry>> ListFolders(MessagingSession& session) {
    auto stores = session.InfoStores();
    if (!stores.ok()) return stores.error();
    std::vector<FolderEntry> list;
    for (const std::unique_ptr<InfoStore>& store : stores.value()) {
        FolderEntry top;
        auto id = store->Id();
        if (!id.ok()) return id.error();
        top.store_id = id.value();
        auto name = store->Name();
        if (!name.ok()) return name.error();
        top.store_name = name.value();
        auto root = store->RootFolder();
        if (!root.ok()) return root.error();
        TREVIX_RETURN_IF_ERROR(ListBelow(*root.value(), top, list));
    }
    return list;
}

Result<FolderEntry> FindFolder(const std::vector<FolderEntry>& folders, const std::string& path) {
    const std::string wanted = WithoutOuterSlashes(path);
    std::vector<FolderEntry> exact;
    std::vector<FolderEntry> similar;
    for (const FolderEntry& folder : folders) {
        if (folder.path == wanted) exact.push_back(folder);
        if (EqualsNoCase(folder.path, wanted)) similar.push_back(folder);
    }
    const std::vector<FolderEntry>& found = exact.empty() ? similar : exact;
    if (found.size() == 1) return found.front();
    if (found.size() > 1) {
        std::string paths;
        for (const FolderEntry& folder : found) {
            paths +=
                (paths.empty() ? "" : ", ") + ("\"" + folder.path + "\" in ") + folder.store_name;
        }
        return Error{ErrorKind::kMalformed, 0, paths};
    }
    return Error{ErrorKind::kNotFound, 0, Closest(folders, wanted)};
}

}  // namespace trevix::cli
