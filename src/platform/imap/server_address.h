// Addresses of mailboxes on IMAP servers, as people write them.
//
// An address is "imaps://ann@imap.example.org" (TLS from the first byte, port 993) or
// "imap://ann@imap.example.org" (STARTTLS, which the server must offer, port 143); ":port" may
// follow the host. Users are percent-encoded where a URL needs it, IPv6 addresses stand in
// brackets. An address never holds a password, and it names a whole mailbox, no folder of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/imap/client.h"
#include "platform/result.h"

namespace trevix::imap {

struct ServerAddress {
    std::optional<Security> security;  // nothing when there was no scheme; kTls or kStartTls
    std::string host;                  // lower case; IPv6 without brackets
    std::uint16_t port = 0;            // 0: not said
    std::string user;                  // UTF-8, not encoded; whose mailbox it is
};

// An "imap://" or "imaps://" address, which has to name a user. Errors are kMalformed and tell what
// to write instead; they never repeat a password that stood in the address.
Result<ServerAddress> ParseAddress(const std::string& address);

// A server and a mailbox on it: `server` is a host, "host:port", or an address without a user.
Result<ServerAddress> ParseServerAndUser(const std::string& server, const std::string& user);

// The address as its text, in the one spelling that all its spellings share. `security` says what
// goes for an address without a scheme.
std::string AddressText(const ServerAddress& address, Security security = Security::kTls);

std::uint16_t DefaultPort(Security security);

}  // namespace trevix::imap
