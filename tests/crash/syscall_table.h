// The system calls that the runner tells apart, and what each of them does to the file system.
#pragma once

#include <cstdint>
#include <string>

namespace trevix::crash {

enum class CallKind {
    kOther,           // can neither change a file nor fail in a way that the tests play
    kOpen,            // opens by path; whether it writes depends on its flags
    kRead,            // reads from a descriptor
    kList,            // lists a directory
    kWrite,           // writes to a descriptor
    kSize,            // sets the size of a file
    kSync,            // makes a file or directory durable
    kCreateName,      // link, rename, mkdir, symlink: needs room in a directory
    kRemoveName,      // unlink, rmdir
    kAttribute,       // mode, owner, times
    kDescriptorLock,  // flock, fcntl locks
    kClose,
};

struct CallInfo {
    long number = -1;
    const char* name = "";
    CallKind kind = CallKind::kOther;
    int path_argument = -1;        // index of the path that the call changes or opens
    int directory_argument = -1;   // index of the directory descriptor in front of that path
    int descriptor_argument = -1;  // index of the descriptor that the call works on
};

// The entry of a call; one of kind kOther, without a name, for a call that is not listed.
CallInfo FindCall(long number);

// The name of a listed call, else "call 123".
std::string CallName(long number);

// Whether `error_number` is an answer that the kernel might really give to the call.
// `creates` says that an opening call may make a new file.
bool ErrorSuits(const CallInfo& call, bool creates, int error_number);

}  // namespace trevix::crash
