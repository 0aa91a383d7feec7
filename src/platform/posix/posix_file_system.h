// Files and directories of the system.
#pragma once

#include <string>

#include "platform/file_system.h"
#include "platform/posix/staging.h"

namespace trevix::posix {

// Where things lie. The defaults come from the environment and from the running program.
struct FileSystemPlaces {
    std::string temporary;     // $TMPDIR when it is an absolute path, else "/tmp"
    std::string installation;  // the folder of the running program
};
FileSystemPlaces DefaultPlaces();

class PosixFileSystem final : public FileSystem {
 public:
    explicit PosixFileSystem(FileSystemPlaces places = DefaultPlaces());

    bool FileExists(const std::string& path) override;
    bool DirectoryExists(const std::string& path) override;
    Result<std::uint64_t> FileSize(const std::string& path) override;
    Result<FileDetails> FindFile(const std::string& path) override;
    Status SetAttributes(const std::string& path, std::int32_t attributes) override;
    Status SetTime(const std::string& path, FileTime which, std::int64_t unix_ns) override;
    Result<Blob> OpenBlob(const std::string& path) override;
    Result<std::string> ReadText(const std::string& path) override;
    Status WriteText(const std::string& path, const std::string& text) override;
    Status AppendText(const std::string& path, const std::string& text) override;
    Status Delete(const std::string& path) override;
    Status MakeDirectory(const std::string& path) override;
    std::string TemporaryPath() override;
    std::string InstallationDirectory() override;
    Result<std::unique_ptr<StagingDirectory>> MakeStaging(const std::string& parent) override;
    void SweepStaging(const std::string& parent) override;

 private:
    FileSystemPlaces places_;
    StagingArea staging_;
};

}  // namespace trevix::posix
