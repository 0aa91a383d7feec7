// Writing members into an archive through libzip.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/zip/archive_output.h"
#include "platform/zip/error_codes.h"
#include "platform/zip/member.h"

namespace trevix::zip_engine {

struct ArchiveComment {
    bool write = false;  // off: an old archive keeps its comment
    std::string text;
};

// Adds `members` to what `output` holds already and leaves the whole archive in its new file,
// unpublished. Names that are taken, in whatever case, get a number.
Code WriteArchive(ArchiveOutput& output, std::int16_t level, const ArchiveComment& comment,
                  const std::vector<std::unique_ptr<Member>>& members);

}  // namespace trevix::zip_engine
