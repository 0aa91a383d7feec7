// A file that appears under its name whole or not at all, and never in place of another.
#pragma once

#include <string>

#include "platform/result.h"

namespace trevix::recordset {

class NewFile {
 public:
    NewFile() = default;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Unless Finish() succeeded, nothing is left of the file.
    ~NewFile();

    // Starts a file that will be called `path`, under a temporary name in the same folder, readable
    // by its owner only. Error 58 when `path` exists.
    Status Create(const std::string& path);

    int descriptor() const { return descriptor_; }

    // Gives the file its name. Error 58 when that came to exist meanwhile.
    Status Finish();

 private:
    std::string path_;
    std::string temporary_path_;
    int descriptor_ = -1;
};

}  // namespace trevix::recordset
