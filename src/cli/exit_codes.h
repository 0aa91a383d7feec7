// What the program's exit status says.
#pragma once

namespace trevix::cli {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitSomeFailed = 3;  // the run finished, some messages were left as they were
inline constexpr int kExitHeld = 75;       // another run holds the store
inline constexpr int kExitTimeUp = 124;    // --max-time was over; the next run goes on
inline constexpr int kExitCancelled = 130;  // by the user

struct ExitMeaning {
    int code;
    const char* meaning;
};

// For help and the manual.
inline constexpr ExitMeaning kExitMeanings[] = {
    {kExitDone, "done"},
    {kExitFailed, "failed"},
    {kExitUsage, "usage"},
    {kExitSomeFailed, "finished but some messages failed"},
    {kExitHeld, "another run holds the store"},
    {kExitTimeUp, "the time was up before all was done"},
    {kExitCancelled, "cancelled"},
};

}  // namespace trevix::cli
