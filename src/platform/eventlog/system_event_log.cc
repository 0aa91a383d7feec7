#include "platform/eventlog/system_event_log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/errors.h"
#include "platform/eventlog/event_entry.h"
#include "platform/unique_descriptor.h"

namespace trevix::eventlog {
namespace {

// Whatever goes wrong with a log is kIo: nobody can do anything about the difference.
Error SendError(int system_error, const std::string& path) {
    Error error = SystemError(system_error, path);
    error.kind = ErrorKind::kIo;
    return error;
}

Status Send(const std::string& path, const std::string& datagram) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return SendError(ENAMETOOLONG, path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const UniqueDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.valid()) return SendError(errno, path);
    ssize_t sent = -1;
    do {
        sent = ::sendto(socket.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) return SendError(errno, path);
    return {};
}

}  // namespace

Status SystemEventLog::Report(const StringArray& strings, const std::string& source,
                              const std::string& second_text, int type) {
    const EventEntry entry = MakeEntry(strings, source, second_text, type);
    Status journal = Send(sockets_.journal, JournalDatagram(entry));
    if (journal.ok()) return journal;
    return Send(sockets_.syslog, SyslogDatagram(entry, ::getpid()));
}

}  // namespace trevix::eventlog
