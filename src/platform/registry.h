// The settings store: keys with typed values below predefined roots, as the registry's single-byte
// functions offer it.
//
// Key paths are separated by "\" and matched without regard to case; so are value names. The empty
// value name is a key's default value. Data is raw: texts are UTF-8 bytes with their terminating
// NUL, multi-texts end in two NULs, a DWORD is four bytes, least significant first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/result.h"

namespace trevix {

inline constexpr std::uint32_t kClassesRoot = 0x80000000;
inline constexpr std::uint32_t kCurrentUser = 0x80000001;
inline constexpr std::uint32_t kLocalMachine = 0x80000002;

inline constexpr std::uint32_t kKeyRead = 0x20019;
inline constexpr std::uint32_t kKeyReadWrite = 0x2001F;
inline constexpr std::uint32_t kKeyAllAccess = 0xF003F;

inline constexpr std::uint32_t kRegNone = 0;
inline constexpr std::uint32_t kRegSz = 1;
inline constexpr std::uint32_t kRegExpandSz = 2;
inline constexpr std::uint32_t kRegBinary = 3;
inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kRegDwordBigEndian = 5;
inline constexpr std::uint32_t kRegLink = 6;
inline constexpr std::uint32_t kRegMultiSz = 7;
inline constexpr std::uint32_t kRegQword = 11;

struct RegistryKeyInfo {
    std::int32_t sub_keys = 0;
    std::int32_t longest_sub_key = 0;  // bytes, the characters of the single-byte functions
    std::int32_t values = 0;
    std::int32_t longest_value_name = 0;  // likewise
    std::int32_t longest_value_data = 0;  // bytes
};

struct RegistryValue {
    std::string name;
    std::uint32_t type = kRegNone;
    std::string data;
};

// An open key. It is closed when the object goes. It sees changes made by others since it was
// opened; when it was deleted meanwhile, calls are kGone. Calls that the access mask of the opening
// does not allow are kDenied.
class RegistryKey {
 public:
    virtual ~RegistryKey() = default;

    virtual Result<RegistryKeyInfo> QueryInfo() = 0;

    // Values and sub-keys in the order of the store. kNotFound beyond the last.
    virtual Result<RegistryValue> EnumValue(std::int32_t index) = 0;
    virtual Result<std::string> EnumKey(std::int32_t index) = 0;

    virtual Result<RegistryValue> QueryValue(const std::string& name) = 0;  // kNotFound

    // Writes through: when the call returns success the value is on disk. kDenied, kIo, kNoSpace;
    // kMalformed when the store's file has a syntax error (it is then never overwritten), kBusy
    // when another process kept it locked.
    virtual Status SetValue(const std::string& name, std::uint32_t type,
                            const std::string& data) = 0;
    virtual Status DeleteValue(const std::string& name) = 0;  // kNotFound

    // Removes a sub-key with everything below it / only when it has no sub-keys itself (kDenied).
    virtual Status DeleteTree(const std::string& sub_key) = 0;
    virtual Status DeleteKey(const std::string& sub_key) = 0;
};

class Registry {
 public:
    virtual ~Registry() = default;

    // Opens a key, creating it and its parents when missing. kDenied when the access cannot be
    // had, kMalformed (with file and line in the description) when the store cannot be read.
    virtual Result<std::unique_ptr<RegistryKey>> CreateKey(std::uint32_t root,
                                                           const std::string& path,
                                                           std::uint32_t access) = 0;

    // Whether whole trees can be deleted in one call.
    virtual bool HasTreeDelete() = 0;
};

// The process environment by position.
class Environment {
 public:
    virtual ~Environment() = default;

    // The entry at a 1-based position as "NAME=value"; empty beyond the last.
    virtual std::string Entry(int position) = 0;

    // `text` with every %NAME% of the environment replaced; unknown names stay as they are.
    virtual std::string Expand(const std::string& text) = 0;
};

}  // namespace trevix
