// Opening and saving files.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/errors.h"
#include "platform/recordset/adtg_reader.h"
#include "platform/recordset/adtg_writer.h"
#include "platform/recordset/client_record_set.h"
#include "platform/recordset/new_file.h"
#include "platform/recordset/text.h"
#include "platform/unique_descriptor.h"

namespace trevix::recordset {
namespace {

Error OpenError(int system_error, const std::string& path) {
    Error error = RuntimeError(kFileCouldNotBeOpened, path);
    error.kind = SystemError(system_error, path).kind;
    const bool missing = system_error == ENOENT || system_error == ENOTDIR;
    if (missing) error.kind = ErrorKind::kNotFound;
    return error;
}

Error ReadError(const std::string& path) {
    Error error = RuntimeError(kFileCouldNotBeRead, path);
    error.kind = ErrorKind::kIo;
    return error;
}

}  // namespace

Result<std::unique_ptr<Records>> ClientRecordSet::Load(const std::string& path) const {
    // Without O_NONBLOCK the opening of a pipe would wait for its other end.
    const UniqueDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) return OpenError(errno, path);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return ReadError(path);
    ByteReader reader(file.get(), static_cast<std::uint64_t>(status.st_size));
    auto records = ReadAdtg(reader);
    if (records.ok()) return records;
    Error error = records.error();
    error.description = path + ": " + error.description;
    return error;
}

Status ClientRecordSet::OpenFile(const std::string& path) {
    if (records_) return RuntimeError(kObjectOpen);
    list_ended_ = true;
    try {
        return UseLoaded(Load(path));
    } catch (const std::bad_alloc&) {
        return RuntimeError(kOutOfMemory, path);
    }
}

Status ClientRecordSet::OpenBlob(const Blob& content) {
    if (records_) return RuntimeError(kObjectOpen);
    list_ended_ = true;
    try {
        ByteReader reader(content);
        auto loaded = ReadAdtg(reader);
        if (reader.failure()) loaded = *reader.failure();
        return UseLoaded(std::move(loaded));
    } catch (const std::bad_alloc&) {
        return RuntimeError(kOutOfMemory);
    }
}

Status ClientRecordSet::UseLoaded(Result<std::unique_ptr<Records>> loaded) {
    if (!loaded.ok()) return loaded.error();
    loaded.value()->table().LimitTexts(appended_);
    Use(std::move(loaded).value());
    GoToFirst();
    return {};
}

Status ClientRecordSet::Save(const std::string& path, int format) {
    if (!records_) return RuntimeError(kObjectClosed);
    if (format != kPersistAdtg) return RuntimeError(kBadArguments, path);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    try {
        TREVIX_RETURN_IF_ERROR(WriteNewFile(path));
    } catch (const std::bad_alloc&) {
        return RuntimeError(kOutOfMemory, path);
    }
    GoToFirst();
    return {};
}

Status ClientRecordSet::WriteNewFile(const std::string& path) {
    NewFile file;
    TREVIX_RETURN_IF_ERROR(file.Create(path));
    std::vector<RowId> shown;
    if (filtered_) {
        for (Place place = NextShown(0); place != kEnd; place = NextShown(place + 1)) {
            shown.push_back(selected_[place]);
        }
    }
    ByteWriter writer(file.descriptor());
    if (!WriteAdtg(table(), filtered_ ? &shown : nullptr, writer)) {
        return SystemError(writer.system_error(), path);
    }
    return file.Finish();
}

}  // namespace trevix::recordset
