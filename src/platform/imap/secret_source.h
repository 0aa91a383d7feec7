// Where the password for a server comes from. It is never given on a command line, where every
// process sees it, nor in the environment, which all children inherit.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/imap/secret.h"
#include "platform/result.h"

namespace trevix::imap {

// Where the password comes from.
struct SecretSource {
    enum class Kind { kNone, kCommand, kFile, kCredential, kText };
    Kind kind = Kind::kNone;
    std::vector<std::string> command;  // program and arguments
    std::string name;                  // path of the file, name of the credential
    std::shared_ptr<const Secret> text;
    std::string said_at;  // "servers.conf:3", for complaints
};

// Gives the password. Asked once for each connection, since tokens expire.
using SecretReader = std::function<Result<Secret>()>;

// Fetches the password. A command is looked for in $PATH and started without a shell, with no input
// and this program's environment and standard error; after a minute it is killed. Errors are
// kDenied and say where the source was named; none repeats a part of the secret.
Result<Secret> ReadSecret(const SecretSource& source,
                          std::chrono::milliseconds patience = std::chrono::minutes(1));

}  // namespace trevix::imap
