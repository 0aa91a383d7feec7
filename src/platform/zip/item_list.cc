#include "platform/zip/item_list.h"

#include <algorithm>

#include "platform/zip/entry_text.h"

namespace trevix::zip_engine {
namespace {

bool IsSafeFolderPath(std::string_view path) {
    while (!path.empty()) {
        const auto cut = path.find('/');
        const std::string_view part = path.substr(0, cut);
        if (part.empty() || part == "." || part == "..") return false;
        if (cut == std::string_view::npos) return true;
        path.remove_prefix(cut + 1);
    }
    // Ends in a separator, or there was nothing.
    return false;
}

}  // namespace

Code ParseItemList(std::string_view list, std::vector<std::string>* names) {
    names->clear();
    if (list.find('\0') != std::string_view::npos) return kBadCommand;
    const auto skip_blanks = [&] {
        list.remove_prefix(std::min(list.find_first_not_of(' '), list.size()));
    };
    skip_blanks();
    if (list.empty()) return kNothingToDo;
    if (list.find('"') == std::string_view::npos) {
        names->emplace_back(list.substr(0, list.find_last_not_of(' ') + 1));
        return kOk;
    }
    while (!list.empty()) {
        if (list.front() != '"') return kBadCommand;
        list.remove_prefix(1);
        const auto end = std::min(list.find('"'), list.size());
        names->emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
        if (!list.empty() && list.front() != ' ') return kBadCommand;
        skip_blanks();
    }
    const bool no_name = names->size() == 1 && names->front().empty();
    if (no_name) return kNothingToDo;
    const bool all_named =
        std::none_of(names->begin(), names->end(), [](const auto& name) { return name.empty(); });
    return all_named ? kOk : kBadCommand;
}

Code EntryNameOf(const std::string& item, bool keep_folders, std::string* name) {
    if (keep_folders) {
        *name = item.substr(std::min(item.find_first_not_of('/'), item.size()));
    } else {
        *name = item.substr(item.rfind('/') + 1);
    }
    *name = MakeValidUtf8(*name);
    std::replace(name->begin(), name->end(), '\\', '_');
    constexpr std::size_t kLongest = 65535;
    return IsSafeFolderPath(*name) && name->size() <= kLongest ? kOk : kBadCommand;
}

}  // namespace trevix::zip_engine
