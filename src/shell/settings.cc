#include "shell/settings.h"

#include "util/convert.h"
#include "util/reg_op.h"

namespace trevix {
namespace {

constexpr std::int32_t kDefaultLogSize = 100000;
constexpr std::int16_t kDefaultLogLevel = 4;
constexpr std::int16_t kDefaultLevel = 5;

// Reads a value; when present, reads it once more and converts it into `target`.
template <typename T, typename Convert>
Status ReadValue(RegOp& key, const char* name, Convert convert, T fallback, T& target) {
    if (IsEmpty(key.Value(name))) {
        target = std::move(fallback);
        return {};
    }
    auto converted = convert(key.Value(name));
    if (!converted.ok()) return converted.error();
    target = std::move(converted).value();
    return {};
}

Result<std::int16_t> ToLevel(const Variant& value) {
    auto token = ToText(value);
    if (!token.ok()) return token.error();
    return LevelOfToken(token.value());
}

Status ReadServerSettings(BasCI& state, RegOp& key) {
    state.gAddinMode = false;
    key.Root(static_cast<std::int32_t>(kLocalMachine));
    key.Key(kServiceKey);
    TREVIX_RETURN_IF_ERROR(
        ReadValue(key, "ErrorLogLevel", ToInteger, kDefaultLogLevel, state.ErrorLogLevel));
    // A server writes no log file, whatever the add-in's key holds.
    state.ErrorLogSize = 0;
    return {};
}

Status ReadAddinSettings(BasCI& state, RegOp& key) {
    state.gAddinMode = true;
    TREVIX_RETURN_IF_ERROR(
        ReadValue(key, "ErrorLogSize", ToLong, kDefaultLogSize, state.ErrorLogSize));
    TREVIX_RETURN_IF_ERROR(
        ReadValue(key, "ErrorLogLevel", ToInteger, kDefaultLogLevel, state.ErrorLogLevel));
    TREVIX_RETURN_IF_ERROR(ReadValue(key, "ExcludeCompress", ToText,
                                     std::string(kDefaultExcludeCompress), state.ExcludeCompress));
    TREVIX_RETURN_IF_ERROR(
        ReadValue(key, "ZipBytesCompress", ToLong, std::int32_t{0}, state.ZipBytesCompress));
    TREVIX_RETURN_IF_ERROR(
        ReadValue(key, "CombineCompress", ToBoolean, true, state.CombineCompress));
    TREVIX_RETURN_IF_ERROR(ReadValue(key, "CustomItems", ToBoolean, false, state.CustomItems));
    return ReadValue(key, "Level", ToLevel, kDefaultLevel, state.Level);
}

}  // namespace

std::int16_t LevelOfToken(const std::string& token) {
    if (token == "-ex") return 9;
    if (token == "-ef") return 3;
    if (token == "-es") return 1;
    return kDefaultLevel;
}

Status ReadSettings(BasCI& state) {
    RegOp key(state.ports.registry, state.ports.environment);
    key.Root(static_cast<std::int32_t>(kCurrentUser));
    key.Key(kAddinKey);
    // Presence alone decides the mode; what "Tray" holds is not used.
    const bool addin = !IsEmpty(key.Value("Tray"));
    TREVIX_RETURN_IF_ERROR(addin ? ReadAddinSettings(state, key) : ReadServerSettings(state, key));
    state.GetZipTemp();
    return {};
}

}  // namespace trevix
