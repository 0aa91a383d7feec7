// What a person has settled about IMAP servers: the file servers.conf.
//
// A section is about a server or about one user on it. What the second says goes before the first:
//
//     [imap.example.org]
//     ca_file = /etc/ssl/our-ca.pem
//     login = trevix-master
//     password_file = /etc/trevix/master.password
//
//     [ann@imap.example.org]
//     password_command = secret-tool lookup mail ann
//
// Lines that begin with "#" or ";" are comments. The entries:
//
//     security          tls, starttls or plain: for servers that are named without a scheme; plain
//                       is for this machine alone and must stand here for an imap:// address, too
//     port              for addresses without one
//     ca_file           who is trusted to name the server, PEM; instead of the system's list
//     auth              password (usual) or xoauth2, where the password is an access token
//     login             who logs in, when it is not the user: a master user. With "%u" it is a form
//                       in which the user's name is filled in ("%u*master"). It does not go for a
//                       password that only the user's own section names
//     password_command  prints the password; no shell, "%u" and "%h" are the user and the host
//     password_file     holds the password in its first line, for its owner's eyes only
//     password_credential   the name of a credential that the service manager hands over
//     password          itself; nobody else may then read the settings file
//     hidden_mailbox    where results are kept, instead of the usual one
//
// Since the file names programs to start, it must belong to this user or to root, and nobody else
// may write to it.
#pragma once

#include <string>

#include "platform/imap/client.h"
#include "platform/imap/secret_source.h"
#include "platform/imap/server_address.h"
#include "platform/result.h"

namespace trevix::imap {

// All that is needed to talk to a server as one user.
struct ServerSettings {
    std::string address;         // identifies the store: AddressText() of what is really meant
    ConnectSettings connection;  // its port is never 0
    LoginMethod method = LoginMethod::kPassword;
    std::string user;           // whose mailbox it is, for people
    std::string login;          // who logs in: whose password it is
    std::string authorisation;  // in whose name; empty: the one that logs in
    SecretSource secret;
    std::string hidden_mailbox;  // a name for people; empty: the usual one
};

// Reads from a settings file. A missing file holds no settings, and servers need a password.
class ServerFile {
 public:
    explicit ServerFile(std::string path) : path_(std::move(path)) {}

    // The settings for an address. kMalformed with "path:line: what" as its description, kDenied
    // for a file that others could have written or that shows a password to others.
    Result<ServerSettings> For(const ServerAddress& address) const;

 private:
    std::string path_;
};

// $XDG_CONFIG_HOME/trevix/servers.conf, by default below ~/.config.
std::string ServerFilePath();

}  // namespace trevix::imap
