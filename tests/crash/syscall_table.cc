// The table of system calls. The older calls without a directory descriptor exist on x86-64 only.
#include "crash/syscall_table.h"

#include <sys/syscall.h>

#include <cerrno>
#include <iterator>

namespace trevix::crash {
namespace {

constexpr CallInfo kCalls[] = {
    {SYS_openat, "openat", CallKind::kOpen, 1, 0, -1},
    {SYS_openat2, "openat2", CallKind::kOpen, 1, 0, -1},
    {SYS_read, "read", CallKind::kRead, -1, -1, 0},
    {SYS_pread64, "pread64", CallKind::kRead, -1, -1, 0},
    {SYS_readv, "readv", CallKind::kRead, -1, -1, 0},
    {SYS_preadv, "preadv", CallKind::kRead, -1, -1, 0},
    {SYS_getdents64, "getdents64", CallKind::kList, -1, -1, 0},
    {SYS_write, "write", CallKind::kWrite, -1, -1, 0},
    {SYS_pwrite64, "pwrite64", CallKind::kWrite, -1, -1, 0},
    {SYS_writev, "writev", CallKind::kWrite, -1, -1, 0},
    {SYS_pwritev, "pwritev", CallKind::kWrite, -1, -1, 0},
    {SYS_pwritev2, "pwritev2", CallKind::kWrite, -1, -1, 0},
    {SYS_copy_file_range, "copy_file_range", CallKind::kWrite, -1, -1, 2},
    {SYS_sendfile, "sendfile", CallKind::kWrite, -1, -1, 0},
    {SYS_splice, "splice", CallKind::kWrite, -1, -1, 2},
    {SYS_ftruncate, "ftruncate", CallKind::kSize, -1, -1, 0},
    {SYS_fallocate, "fallocate", CallKind::kSize, -1, -1, 0},
    {SYS_truncate, "truncate", CallKind::kSize, 0, -1, -1},
    {SYS_fsync, "fsync", CallKind::kSync, -1, -1, 0},
    {SYS_fdatasync, "fdatasync", CallKind::kSync, -1, -1, 0},
    {SYS_sync_file_range, "sync_file_range", CallKind::kSync, -1, -1, 0},
    {SYS_syncfs, "syncfs", CallKind::kSync, -1, -1, 0},
    {SYS_renameat2, "renameat2", CallKind::kCreateName, 3, 2, -1},
    {SYS_linkat, "linkat", CallKind::kCreateName, 3, 2, -1},
    {SYS_symlinkat, "symlinkat", CallKind::kCreateName, 2, 1, -1},
    {SYS_mkdirat, "mkdirat", CallKind::kCreateName, 1, 0, -1},
    {SYS_mknodat, "mknodat", CallKind::kCreateName, 1, 0, -1},
    {SYS_unlinkat, "unlinkat", CallKind::kRemoveName, 1, 0, -1},
    {SYS_fchmod, "fchmod", CallKind::kAttribute, -1, -1, 0},
    {SYS_fchmodat, "fchmodat", CallKind::kAttribute, 1, 0, -1},
    {SYS_fchown, "fchown", CallKind::kAttribute, -1, -1, 0},
    {SYS_fchownat, "fchownat", CallKind::kAttribute, 1, 0, -1},
    {SYS_utimensat, "utimensat", CallKind::kAttribute, 1, 0, -1},
    {SYS_fsetxattr, "fsetxattr", CallKind::kAttribute, -1, -1, 0},
    {SYS_setxattr, "setxattr", CallKind::kAttribute, 0, -1, -1},
    {SYS_flock, "flock", CallKind::kDescriptorLock, -1, -1, 0},
    {SYS_fcntl, "fcntl", CallKind::kDescriptorLock, -1, -1, 0},
    {SYS_close, "close", CallKind::kClose, -1, -1, 0},
#ifdef SYS_renameat
    {SYS_renameat, "renameat", CallKind::kCreateName, 3, 2, -1},
#endif
#ifdef SYS_open
    {SYS_open, "open", CallKind::kOpen, 0, -1, -1},
    {SYS_creat, "creat", CallKind::kOpen, 0, -1, -1},
    {SYS_rename, "rename", CallKind::kCreateName, 1, -1, -1},
    {SYS_link, "link", CallKind::kCreateName, 1, -1, -1},
    {SYS_symlink, "symlink", CallKind::kCreateName, 1, -1, -1},
    {SYS_mkdir, "mkdir", CallKind::kCreateName, 0, -1, -1},
    {SYS_mknod, "mknod", CallKind::kCreateName, 0, -1, -1},
    {SYS_unlink, "unlink", CallKind::kRemoveName, 0, -1, -1},
    {SYS_rmdir, "rmdir", CallKind::kRemoveName, 0, -1, -1},
    {SYS_chmod, "chmod", CallKind::kAttribute, 0, -1, -1},
    {SYS_chown, "chown", CallKind::kAttribute, 0, -1, -1},
    {SYS_lchown, "lchown", CallKind::kAttribute, 0, -1, -1},
    {SYS_utimes, "utimes", CallKind::kAttribute, 0, -1, -1},
#endif
};

bool NeedsRoom(const CallInfo& call, bool creates) {
    switch (call.kind) {
        case CallKind::kOpen: return creates;
        case CallKind::kWrite:
        case CallKind::kSize:
        case CallKind::kSync:
        case CallKind::kCreateName: return true;
        default: return false;
    }
}

bool NeedsPermission(const CallInfo& call) {
    switch (call.kind) {
        case CallKind::kOpen:
        case CallKind::kCreateName:
        case CallKind::kRemoveName:
        case CallKind::kAttribute: return true;
        default: return false;
    }
}

}  // namespace

CallInfo FindCall(long number) {
    for (const CallInfo& call : kCalls)
        if (call.number == number) return call;
    CallInfo other;
    other.number = number;
    return other;
}

std::string CallName(long number) {
    const CallInfo call = FindCall(number);
    return *call.name != '\0' ? call.name : "call " + std::to_string(number);
}

bool ErrorSuits(const CallInfo& call, bool creates, int error_number) {
    switch (error_number) {
        case ENOSPC:
        case EDQUOT: return NeedsRoom(call, creates);
        case EACCES:
        case EPERM:
        case EROFS: return NeedsPermission(call);
        case EMFILE:
        case ENFILE: return call.kind == CallKind::kOpen;
        default: return call.kind != CallKind::kOther && call.kind != CallKind::kDescriptorLock;
    }
}

}  // namespace trevix::crash
