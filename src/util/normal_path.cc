#include "util/normal_path.h"

#include <algorithm>

#include "util/text.h"

namespace trevix {
namespace {

// The length of "\\server\share" at the start of `path`; all of it when nothing follows.
std::size_t ServerLength(const std::string& path, char separator) {
    const std::size_t server_end = path.find(separator, 2);
    if (server_end == std::string::npos) return path.size();
    return std::min(path.find(separator, server_end + 1), path.size());
}

bool IsRoot(const std::string& path, char separator) {
    return path.size() >= 2 && path.ends_with(separator) && path[path.size() - 2] == ':';
}

// The beginning of `path` that is not looked up: a server with its share, or a drive letter.
std::string FixedStart(const std::string& path, char separator) {
    if (path.starts_with(std::string(2, separator))) {
        return path.substr(0, ServerLength(path, separator));
    }
    const std::size_t first_end = path.find(separator);
    if (first_end == 2 && path[1] == ':') return ToUpper(path.substr(0, first_end));
    return {};
}

}  // namespace

std::string NormalizePath(const std::string& path, char separator, const FindFile& find) {
    const bool folds_case = separator == '\\';
    if (folds_case && IsRoot(path, separator)) return ToUpper(path);
    const std::string whole = path.ends_with(separator) ? path.substr(0, path.size() - 1) : path;
    if (folds_case && whole.find(separator) == std::string::npos) return ToUpper(whole);

    std::string built = FixedStart(whole, separator);
    const std::string rest = whole.substr(built.size());
    bool rooted = rest.starts_with(separator);
    for (const std::string& component : Split(rest, std::string(1, separator))) {
        if (component.empty()) continue;  // a doubled separator means no more than one
        std::string next = built;
        if (rooted) next += separator;
        const Result<FileDetails> found = find(next + component);
        const bool is_directory =
            found.ok() && (found.value().attributes & kAttributeDirectory) != 0;
        if (!is_directory) return built;
        built = next + found.value().name;
        rooted = true;
    }
    return built;
}

}  // namespace trevix
