// The results message: the hidden Inbox item that carries a store's run lock, totals, settings and
// record sets between runs and processes.
#pragma once

#include <memory>
#include <string>

#include "shell/bas_ci.h"

namespace trevix {

inline constexpr const char* kResultsClass = "IPM.Post.Trevix Compression Results";
inline constexpr const char* kResultsSubject = "Trevix Compression Results";

// Finds the results message of the logged-on store, or makes one that is stored with its first
// Update(). Of several the one modified last is kept and the others are deleted. Null when it can
// neither be found nor made; one line was logged at level 1.
std::unique_ptr<Message> GetResultsHM(BasCI& state);

// Loads the running totals and lists into the state and, outside add-in mode, the settings. False
// when there is no results message.
bool GetResultsMsg(BasCI& state);

// A named property of the results message; `type` is one of the kType constants. kNotFound when the
// message has none of that name.
Result<Variant> GetNamed(Message& message, const std::string& name, std::uint16_t type);
Status SetNamed(Message& message, const std::string& name, std::uint16_t type,
                const Variant& value);

}  // namespace trevix
