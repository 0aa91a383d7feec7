// Where the public samples lie that some tests read: a folder beside the repository, or the one
// that TREVIX_SHARED names. It may be absent; such tests skip then.
#pragma once

#include <cstdlib>
#include <string>

namespace trevix::test {

inline std::string SharedFolder(const std::string& path) {
    const char* named = std::getenv("TREVIX_SHARED");
    const std::string base = named != nullptr ? named : TREVIX_SOURCE_DIR "/../shared";
    return base + "/" + path;
}

}  // namespace trevix::test
