#include "platform/errors.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace trevix {
namespace {

struct RuntimeText {
    int number;
    ErrorKind kind;
    const char* text;
};

constexpr std::array kRuntimeTexts = {
    RuntimeText{kInvalidCall, ErrorKind::kOther, "Invalid procedure call or argument"},
    RuntimeText{kOverflowNumber, ErrorKind::kOverflow, "Overflow"},
    RuntimeText{kOutOfMemory, ErrorKind::kTooMany, "Out of memory"},
    RuntimeText{kSubscriptOutOfRange, ErrorKind::kOther, "Subscript out of range"},
    RuntimeText{kTypeMismatch, ErrorKind::kConversion, "Type mismatch"},
    RuntimeText{kBadFileName, ErrorKind::kIo, "Bad file name or number"},
    RuntimeText{kFileNotFound, ErrorKind::kNotFound, "File not found"},
    RuntimeText{kDeviceIo, ErrorKind::kIo, "Device I/O error"},
    RuntimeText{kFileExists, ErrorKind::kExists, "File already exists"},
    RuntimeText{kDiskFull, ErrorKind::kNoSpace, "Disk full"},
    RuntimeText{kTooManyFiles, ErrorKind::kTooMany, "Too many files"},
    RuntimeText{kPermissionDenied, ErrorKind::kDenied, "Permission denied"},
    RuntimeText{kPathFileAccess, ErrorKind::kDenied, "Path/File access error"},
    RuntimeText{kPathNotFound, ErrorKind::kNotFound, "Path not found"},
    RuntimeText{kObjectNotSet, ErrorKind::kMissing,
                "Object variable or With block variable not set"},
    RuntimeText{kInvalidNull, ErrorKind::kConversion, "Invalid use of Null"},
    RuntimeText{kCannotCreateObject, ErrorKind::kMissing, "ActiveX component can't create object"},
    RuntimeText{kBadArguments, ErrorKind::kOther,
                "Arguments are of the wrong type, are out of acceptable range, or are in conflict "
                "with one another."},
    RuntimeText{kFileCouldNotBeOpened, ErrorKind::kNotFound, "File could not be opened."},
    RuntimeText{kFileCouldNotBeRead, ErrorKind::kMalformed, "File could not be read."},
    RuntimeText{kWriteToFileFailed, ErrorKind::kIo, "Write to file failed."},
    RuntimeText{kNoCurrentRecord, ErrorKind::kOther,
                "Either BOF or EOF is True, or the current record has been deleted. Requested "
                "operation requires a current record."},
    RuntimeText{kNotAllowedInContext, ErrorKind::kUnsupported,
                "Operation is not allowed in this context."},
    RuntimeText{kItemNotFound, ErrorKind::kNotFound,
                "Item cannot be found in the collection corresponding to the requested name or "
                "ordinal."},
    RuntimeText{kWrongType, ErrorKind::kConversion,
                "Application uses a value of the wrong type for the current operation."},
    RuntimeText{kObjectClosed, ErrorKind::kOther,
                "Operation is not allowed when the object is closed."},
    RuntimeText{kObjectOpen, ErrorKind::kOther,
                "Operation is not allowed when the object is open."},
    RuntimeText{kMultipleStep, ErrorKind::kOverflow,
                "Multiple-step operation generated errors. Check each status value."},
};

struct MessagingText {
    std::uint32_t code;
    ErrorKind kind;
    const char* symbol;
};

constexpr std::array kMessagingTexts = {
    MessagingText{kCallFailed, ErrorKind::kOther, "MAPI_E_CALL_FAILED"},
    MessagingText{kNoSupport, ErrorKind::kUnsupported, "MAPI_E_NO_SUPPORT"},
    MessagingText{kInvalidEntryId, ErrorKind::kMalformed, "MAPI_E_INVALID_ENTRYID"},
    MessagingText{kObjectChanged, ErrorKind::kChanged, "MAPI_E_OBJECT_CHANGED"},
    MessagingText{kObjectDeleted, ErrorKind::kGone, "MAPI_E_OBJECT_DELETED"},
    MessagingText{kStoreBusy, ErrorKind::kBusy, "MAPI_E_BUSY"},
    MessagingText{kNotEnoughDisk, ErrorKind::kNoSpace, "MAPI_E_NOT_ENOUGH_DISK"},
    MessagingText{kNotFound, ErrorKind::kNotFound, "MAPI_E_NOT_FOUND"},
    MessagingText{kLogonFailed, ErrorKind::kDenied, "MAPI_E_LOGON_FAILED"},
    MessagingText{kNetworkError, ErrorKind::kIo, "MAPI_E_NETWORK_ERROR"},
    MessagingText{kDiskError, ErrorKind::kIo, "MAPI_E_DISK_ERROR"},
    MessagingText{kTooComplex, ErrorKind::kUnsupported, "MAPI_E_TOO_COMPLEX"},
    MessagingText{kComputed, ErrorKind::kDenied, "MAPI_E_COMPUTED"},
    MessagingText{kCorruptData, ErrorKind::kMalformed, "MAPI_E_CORRUPT_DATA"},
    MessagingText{kFailOneProvider, ErrorKind::kIo, "MAPI_E_FAILONEPROVIDER"},
    MessagingText{kCollision, ErrorKind::kExists, "MAPI_E_COLLISION"},
    MessagingText{kNotInitialized, ErrorKind::kMissing, "MAPI_E_NOT_INITIALIZED"},
    MessagingText{kNoAccess, ErrorKind::kDenied, "E_ACCESSDENIED"},
    MessagingText{kNotEnoughMemory, ErrorKind::kTooMany, "E_OUTOFMEMORY"},
    MessagingText{kInvalidParameter, ErrorKind::kOther, "E_INVALIDARG"},
};

int RuntimeNumber(int system_error) {
    switch (system_error) {
        case ENOENT: return kFileNotFound;
        case ENOTDIR: return kPathNotFound;
        case EIO: return kDeviceIo;
        case ENOSPC:
        case EDQUOT: return kDiskFull;
        case EMFILE:
        case ENFILE: return kTooManyFiles;
        case EACCES:
        case EPERM:
        case EBUSY:
        case ETXTBSY: return kPermissionDenied;
        case EEXIST: return kFileExists;
        case EISDIR:
        case EROFS:
        case ENOTEMPTY:
        case ELOOP: return kPathFileAccess;
        case EBADF:
        case EINVAL:
        case ENAMETOOLONG: return kBadFileName;
        case ENOMEM: return kOutOfMemory;
        default: return kDeviceIo;
    }
}

std::uint32_t MessagingCode(int system_error) {
    switch (system_error) {
        case ENOENT:
        case ENOTDIR: return kNotFound;
        case ENOSPC:
        case EDQUOT: return kNotEnoughDisk;
        case EACCES:
        case EPERM:
        case EROFS:
        case ELOOP: return kNoAccess;
        case ENOMEM: return kNotEnoughMemory;
        case EEXIST: return kCollision;
        case EIO: return kDiskError;
        default: return kCallFailed;
    }
}

std::string SystemDetail(int system_error, const std::string& path) {
    const std::string reason = std::strerror(system_error);
    return path.empty() ? reason : path + ": " + reason;
}

}  // namespace

Error RuntimeError(int number, const std::string& detail) {
    Error error{ErrorKind::kOther, number, "Automation error"};
    for (const RuntimeText& row : kRuntimeTexts) {
        if (row.number == number) {
            error.kind = row.kind;
            error.description = row.text;
        }
    }
    if (!detail.empty()) error.description = detail + ": " + error.description;
    return error;
}

Error MessagingError(std::uint32_t code, const std::string& detail) {
    Error error{ErrorKind::kOther, static_cast<int>(code), {}};
    const char* symbol = "MAPI_E_CALL_FAILED";
    for (const MessagingText& row : kMessagingTexts) {
        if (row.code == code) {
            error.kind = row.kind;
            symbol = row.symbol;
        }
    }
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "[Collaboration Data Objects - [%s(%08X)]]", symbol,
                  static_cast<unsigned>(code));
    error.description = detail.empty() ? text.data() : detail + " " + text.data();
    return error;
}

Error SystemError(int system_error, const std::string& path) {
    Error error = RuntimeError(RuntimeNumber(system_error), path);
    return error;
}

Error StoreSystemError(int system_error, const std::string& path) {
    Error error = MessagingError(MessagingCode(system_error), SystemDetail(system_error, path));
    if (system_error == EMFILE || system_error == ENFILE) error.kind = ErrorKind::kTooMany;
    return error;
}

}  // namespace trevix
