// OutputFile: a new file in a directory of the user's, which appears under its name whole or not at
// all, and never in place of another.
#pragma once

#include <string>
#include <string_view>

#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::cli {

// One safe file name for what mail calls `name`, whatever that is: a single component without
// control characters and marks of direction, that neither hides itself nor looks like an option.
std::string SaveName(const std::string& name);

// `name` with " (number)" before its extension, at most 255 bytes.
std::string NumberedName(const std::string& name, int number);

class OutputFile {
 public:
    // A file without a name, readable by its owner only. `directory` stays the caller's.
    static Result<OutputFile> Create(int directory);

    OutputFile(OutputFile&& other) noexcept = default;
    OutputFile& operator=(OutputFile&&) = delete;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Unless Finish() succeeded, nothing is left of the file.
    ~OutputFile();

    Status Write(const char* bytes, std::size_t count);

    // Gives the file `name`, or "name (2).ext" and so on while that is taken; the name it got.
    Result<std::string> Finish(const std::string& name);

 private:
    OutputFile(int directory, UniqueDescriptor file, std::string temporary)
        : directory_(directory), file_(std::move(file)), temporary_(std::move(temporary)) {}

    // 0, or why the file could not get the name.
    int TakeName(const std::string& name);

    int directory_;
    UniqueDescriptor file_;
    std::string temporary_;  // its name until then, on file systems without nameless files
};

}  // namespace trevix::cli
