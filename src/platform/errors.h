// The error numbers and texts of the run-time, of record sets and of the messaging session.
//
// Every Error that reaches the diagnostic log carries one of these, whichever library or system
// call stands behind it, so that a log reads the same on every store.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace trevix {

// Run-time errors; the number is what a program sees as the error's number.
inline constexpr int kInvalidCall = 5;
inline constexpr int kOverflowNumber = 6;
inline constexpr int kOutOfMemory = 7;
inline constexpr int kSubscriptOutOfRange = 9;
inline constexpr int kTypeMismatch = 13;
inline constexpr int kBadFileName = 52;
inline constexpr int kFileNotFound = 53;
inline constexpr int kDeviceIo = 57;
inline constexpr int kFileExists = 58;
inline constexpr int kDiskFull = 61;
inline constexpr int kTooManyFiles = 67;
inline constexpr int kPermissionDenied = 70;
inline constexpr int kPathFileAccess = 75;
inline constexpr int kPathNotFound = 76;
inline constexpr int kObjectNotSet = 91;
inline constexpr int kInvalidNull = 94;
inline constexpr int kCannotCreateObject = 429;

// Record-set errors.
inline constexpr int kBadArguments = 3001;
inline constexpr int kFileCouldNotBeOpened = 3002;
inline constexpr int kFileCouldNotBeRead = 3003;
inline constexpr int kWriteToFileFailed = 3004;
inline constexpr int kNoCurrentRecord = 3021;
inline constexpr int kNotAllowedInContext = 3219;
inline constexpr int kItemNotFound = 3265;
inline constexpr int kWrongType = 3421;
inline constexpr int kObjectClosed = 3704;
inline constexpr int kObjectOpen = 3705;
inline constexpr int kMultipleStep = -2147217887;  // a value longer than its field

// Messaging errors, as the unsigned codes that their texts show.
inline constexpr std::uint32_t kCallFailed = 0x80004005;
inline constexpr std::uint32_t kNoSupport = 0x80040102;
inline constexpr std::uint32_t kInvalidEntryId = 0x80040107;
inline constexpr std::uint32_t kObjectChanged = 0x80040109;
inline constexpr std::uint32_t kObjectDeleted = 0x8004010A;
inline constexpr std::uint32_t kStoreBusy = 0x8004010B;
inline constexpr std::uint32_t kNotEnoughDisk = 0x8004010D;
inline constexpr std::uint32_t kNotFound = 0x8004010F;
inline constexpr std::uint32_t kLogonFailed = 0x80040111;
inline constexpr std::uint32_t kNetworkError = 0x80040115;
inline constexpr std::uint32_t kDiskError = 0x80040116;
inline constexpr std::uint32_t kTooComplex = 0x80040117;
inline constexpr std::uint32_t kComputed = 0x8004011A;
inline constexpr std::uint32_t kCorruptData = 0x8004011B;
inline constexpr std::uint32_t kFailOneProvider = 0x8004011D;
inline constexpr std::uint32_t kCollision = 0x80040604;
inline constexpr std::uint32_t kNotInitialized = 0x80040605;
inline constexpr std::uint32_t kNoAccess = 0x80070005;
inline constexpr std::uint32_t kNotEnoughMemory = 0x8007000E;
inline constexpr std::uint32_t kInvalidParameter = 0x80070057;

// The error of a run-time or record-set number, with its text. `detail`, when given, stands in
// front of the text, separated by ": ", and names what was concerned (a path, a field).
Error RuntimeError(int number, const std::string& detail = {});

// The error of a messaging code: "[Collaboration Data Objects - [SYMBOL(CODE)]]", with `detail`
// and a blank in front when given. The number is the code as a signed 32-bit value.
Error MessagingError(std::uint32_t code, const std::string& detail = {});

// The run-time error that stands for a failed system call: `system_error` is an errno value,
// `path` what the call was about (put in front of the text when not empty).
Error SystemError(int system_error, const std::string& path);

// The messaging error that stands for a failed system call on a message store.
Error StoreSystemError(int system_error, const std::string& path);

}  // namespace trevix
