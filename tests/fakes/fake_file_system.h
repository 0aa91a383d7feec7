// FakeFileSystem: files and directories in memory.
//
// Paths are absolute. `files` and `directories` may be read and filled directly; directories are
// kept without a final separator and the root "/" always exists.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "fakes/fault_plan.h"
#include "platform/errors.h"
#include "platform/file_system.h"

namespace trevix::fakes {

class FakeFileSystem final : public FileSystem {
 public:
    explicit FakeFileSystem(FaultPlan& plan) : plan_(plan) { MakeParents("/tmp/trevix-1000/"); }

    // Test set-up: puts a file there, with all the directories it needs.
    void Put(const std::string& path, std::string bytes) {
        MakeParents(path);
        files[path] = std::move(bytes);
    }

    // Test set-up: the directory `path` and all above it.
    void PutDirectory(const std::string& path) { MakeParents(WithSeparator(path)); }

    bool FileExists(const std::string& path) override {
        return plan_.Enter("files.FileExists").ok() && files.contains(path);
    }

    bool DirectoryExists(const std::string& path) override {
        return plan_.Enter("files.DirectoryExists").ok() && HasDirectory(path);
    }

    Result<std::uint64_t> FileSize(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.FileSize"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        return std::uint64_t{files.at(path).size()};
    }

    Result<FileDetails> FindFile(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.FindFile"));
        if (path.ends_with('/')) return RuntimeError(kFileNotFound, path);
        const bool directory = !path.empty() && HasDirectory(path);
        if (!directory) TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        FileDetails found = directory ? FileDetails{} : details[path];
        found.name = path.substr(path.rfind('/') + 1);
        if (directory) found.attributes |= kAttributeDirectory;
        if (found.name.starts_with('.')) found.attributes |= kAttributeHidden;
        if (!directory && found.size_bytes == 0) found.size_bytes = files.at(path).size();
        return found;
    }

    Status SetAttributes(const std::string& path, std::int32_t attributes) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.SetAttributes"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        details[path].attributes = attributes & (kAttributeReadOnly | kAttributeHidden |
                                                 kAttributeSystem | kAttributeArchive);
        return {};
    }

    Status SetTime(const std::string& path, FileTime which, std::int64_t unix_ns) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.SetTime"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        FileDetails& kept = details[path];
        (which == FileTime::kCreated    ? kept.created_ns
         : which == FileTime::kAccessed ? kept.accessed_ns
                                        : kept.modified_ns) = unix_ns;
        return {};
    }

    Result<Blob> OpenBlob(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.OpenBlob"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        return Blob::FromString(files.at(path));
    }

    Result<std::string> ReadText(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.ReadText"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        return files.at(path);
    }

    Status WriteText(const std::string& path, const std::string& text) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.WriteText"));
        TREVIX_RETURN_IF_ERROR(CheckWritable(path));
        files[path] = text;
        return {};
    }

    Status AppendText(const std::string& path, const std::string& text) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.AppendText"));
        TREVIX_RETURN_IF_ERROR(CheckWritable(path));
        files[path] += text;
        return {};
    }

    Status Delete(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.Delete"));
        TREVIX_RETURN_IF_ERROR(CheckReadable(path));
        files.erase(path);
        return {};
    }

    Status MakeDirectory(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.MakeDirectory"));
        const std::string name = WithoutSeparator(path);
        if (files.contains(name) || HasDirectory(name)) return RuntimeError(kPathFileAccess, path);
        if (!HasDirectory(Parent(name))) return RuntimeError(kPathNotFound, path);
        directories.insert(name);
        return {};
    }

    std::string TemporaryPath() override {
        if (!plan_.Enter("files.TemporaryPath").ok()) return {};
        return temporary_path;
    }

    std::string InstallationDirectory() override { return installation_directory; }

    Result<std::unique_ptr<StagingDirectory>> MakeStaging(const std::string& parent) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("files.MakeStaging"));
        if (!HasDirectory(parent)) return RuntimeError(kPathNotFound, parent);
        const std::string path =
            WithSeparator(parent) + "stage-" + std::to_string(++stagings_made) + "/";
        directories.insert(WithoutSeparator(path));
        return std::unique_ptr<StagingDirectory>(std::make_unique<Staging>(*this, path));
    }

    void SweepStaging(const std::string& parent) override {
        if (!plan_.Enter("files.SweepStaging").ok()) return;
        const std::string prefix = WithSeparator(parent);
        for (auto at = dead_stagings.begin(); at != dead_stagings.end();) {
            const bool below = at->starts_with(prefix);
            if (below) RemoveTree(*at);
            at = below ? dead_stagings.erase(at) : std::next(at);
        }
    }

    // Takes away a directory with all that is in it. Not a port call: never fails.
    void RemoveTree(const std::string& path) {
        const std::string prefix = WithSeparator(path);
        std::erase_if(files, [&](const auto& file) { return file.first.starts_with(prefix); });
        std::erase_if(directories, [&](const auto& name) { return name.starts_with(prefix); });
        directories.erase(WithoutSeparator(path));
    }

    bool HasDirectory(const std::string& path) const {
        const std::string name = WithoutSeparator(path);
        return name.empty() || directories.contains(name);
    }

    std::map<std::string, std::string> files;
    std::set<std::string> directories;

    // Attributes and times of files that are not new; a test may put them there, and a size that
    // FindFile is to tell.
    struct NewFile : FileDetails {
        NewFile() { attributes = kAttributeArchive; }
    };
    std::map<std::string, NewFile> details;

    std::string temporary_path = "/tmp/trevix-1000/";
    std::string installation_directory = "/opt/trevix";

    // Paths that may not be opened, written or deleted: error 70.
    std::set<std::string> denied;

    // Staging directories that count as left by a dead process; put there with PutDirectory.
    std::set<std::string> dead_stagings;
    int stagings_made = 0;

 private:
    class Staging final : public StagingDirectory {
     public:
        Staging(FakeFileSystem& files, std::string path) : files_(files), path_(std::move(path)) {}
        Staging(const Staging&) = delete;
        Staging& operator=(const Staging&) = delete;
        ~Staging() override { files_.RemoveTree(path_); }
        const std::string& path() const override { return path_; }

     private:
        FakeFileSystem& files_;
        std::string path_;
    };

    static std::string WithSeparator(const std::string& path) {
        return path.ends_with('/') ? path : path + "/";
    }

    static std::string WithoutSeparator(const std::string& path) {
        return path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
    }

    static std::string Parent(const std::string& path) {
        const auto cut = path.rfind('/');
        return cut == std::string::npos ? std::string() : path.substr(0, cut);
    }

    void MakeParents(const std::string& path) {
        for (auto cut = path.find('/', 1); cut != std::string::npos;
             cut = path.find('/', cut + 1)) {
            directories.insert(path.substr(0, cut));
        }
    }

    Status CheckReadable(const std::string& path) const {
        if (denied.contains(path)) return RuntimeError(kPermissionDenied, path);
        if (HasDirectory(path)) return RuntimeError(kPathFileAccess, path);
        if (files.contains(path)) return {};
        return RuntimeError(HasDirectory(Parent(path)) ? kFileNotFound : kPathNotFound, path);
    }

    Status CheckWritable(const std::string& path) const {
        if (denied.contains(path)) return RuntimeError(kPermissionDenied, path);
        if (HasDirectory(path)) return RuntimeError(kPathFileAccess, path);
        if (!HasDirectory(Parent(path))) return RuntimeError(kPathNotFound, path);
        return {};
    }

    FaultPlan& plan_;
};

}  // namespace trevix::fakes
