// What the program's exit status says.
#pragma once

namespace trevix::cli {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitSomeFailed = 3;  // the run finished, some messages were left as they were
inline constexpr int kExitHeld = 75;       // another run holds the store
inline constexpr int kExitCancelled = 130;  // by the user

}  // namespace trevix::cli
