// One connection to an IMAP server (RFC 3501 and 9051, in what they share).
//
// Every call blocks, with a time limit, until the server has answered it; only what Start... sends
// may be under way meanwhile. Memory does not depend on what the server sends: content above 64 KiB
// lies in a private file without a name, everything else has a limit.
//
// Mailbox names are the server's own spelling ("wire names", modified UTF-7) in both directions:
// mailbox_name.h turns them into text for people.
//
// Errors. `connected()` tells two sorts apart:
//   still true   the server answered NO or BAD: refusal() has its words, and the connection is
//                good. Or the call asked for what is not offered (kUnsupported), or a sink failed.
//   now false    the connection is lost, or was given up because what came made no sense
//                (kMalformed) or went beyond a limit. Every later call fails the same way. Whether
//                a command that was under way has been carried out is then known only as far as
//                fate_unknown() says.
// Kinds: kIo (80040115) for what may pass (no connection, lost, time is up), kDenied for what will
// not without a person (certificate, log-in, permission), kBusy (mailbox in use, server asks to
// come back later), kNotFound (no such mailbox), kNoSpace (quota, or the local disk), kExists,
// kTooMany, kUnsupported, kMalformed, kOther. Descriptions begin with the host's name.
//
// One thread uses a client.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/blob.h"
#include "platform/imap/fetch.h"
#include "platform/imap/uid_set.h"
#include "platform/result.h"

namespace trevix::imap {

class Session;

enum class Security {
    kTls,               // TLS from the first byte
    kStartTls,          // TLS before log-in, or no connection
    kPlainLoopbackOnly  // none; refused unless the server is on this machine
};

// What a server may cost. Tests make them small.
struct Limits {
    std::chrono::milliseconds connect{20'000};      // all addresses of the host together
    std::chrono::milliseconds handshake{20'000};    // greeting, TLS, log-in: each
    std::chrono::milliseconds silence{120'000};     // without one byte either way
    std::chrono::milliseconds standstill{600'000};  // waited in total while 64 KiB came or went

    std::size_t kept_bytes = std::size_t{1} << 20;      // of a reply, outside of content
    std::size_t skipped_bytes = std::size_t{16} << 20;  // of a reply; more ends the connection
    std::uint64_t replies = 2'000'000;                  // untagged ones to a command
    std::size_t in_flight = 256;                        // commands
};

struct ConnectSettings {
    std::string host;
    std::uint16_t port = 0;  // 0: 993 with kTls, else 143
    Security security = Security::kTls;
    std::string ca_file;          // authorities to trust, PEM; empty: the system's
    std::string spool_directory;  // for large content; empty: $TMPDIR or /tmp
    Limits limits;
};

enum class LoginMethod {
    kPassword,  // AUTHENTICATE PLAIN where offered, else LOGIN
    kXoauth2    // AUTHENTICATE XOAUTH2; the secret is an access token
};

// The secret is the caller's to wipe; copies made on the way are wiped here.
struct Credentials {
    LoginMethod method = LoginMethod::kPassword;
    std::string user;           // who logs in
    std::string authorisation;  // whose mailbox it is, when not the user's (needs PLAIN)
    std::string_view secret;
};

// The words of the last NO or BAD.
struct Refusal {
    std::string code;  // "OVERQUOTA", upper case; empty when there was none
    std::string text;  // for people, control characters taken out
};

struct MailboxStatus {
    std::uint32_t messages = 0;
    std::uint32_t uid_next = 0;      // 0: not told
    std::uint32_t uid_validity = 0;  // 0: not told
    std::optional<std::uint64_t> highest_modseq;
};

struct Mailbox {
    std::string name;                     // wire name
    std::string delimiter;                // between the levels of names, one character; empty: flat
    bool selectable = true;               // not \Noselect, \NonExistent
    std::vector<std::string> attributes;  // all: "\HasNoChildren", "\Sent"
    std::optional<MailboxStatus> status;  // when asked for and LIST-STATUS is offered
};

struct ListRequest {
    std::string reference;
    std::string pattern = "*";
    bool subscribed_only = false;
    bool with_status = false;  // ignored where LIST-STATUS is not offered
};

enum class SelectMode { kReadWrite, kReadOnly };

struct SelectedMailbox {
    std::uint32_t exists = 0;
    std::uint32_t uid_validity = 0;               // 0: not told; UIDs must not be kept then
    std::uint32_t uid_next = 0;                   // 0: not told
    std::optional<std::uint64_t> highest_modseq;  // none: the mailbox keeps no modification numbers
    bool read_only = false;
    bool uids_sticky = true;  // false: the server gives new UIDs every time
    std::vector<std::string> flags;
    std::vector<std::string> permanent_flags;  // with "\*" when keywords can be made
};

struct AppendRequest {
    std::string mailbox;
    std::vector<std::string> flags;  // "\Recent" is left out by the client
    std::optional<DateTime> internal_date;
    Blob content;  // streamed
};

struct AppendedMail {
    std::uint32_t uid_validity = 0;
    std::uint32_t uid = 0;
};

enum class FlagChange { kAdd, kRemove, kReplace };

// What the server told without being asked, since the last call of TakeNews(). About the selected
// mailbox, and emptied when another one is selected.
struct News {
    std::optional<std::uint32_t> exists;        // number of messages now
    std::uint64_t expunged = 0;                 // messages that went, told by number
    UidSet vanished;                            // messages that went, told by UID
    bool vanished_incomplete = false;           // more of them than are noted here
    bool flags_changed = false;                 // of some message
    std::optional<std::uint32_t> uid_validity;  // told again
    std::vector<std::string> alerts;            // for people, at most 16
};

class Client {
 public:
    // Connects, checks certificate and name, takes the greeting. Nothing secret has been sent.
    // kDenied: the certificate, or a server that offers no encryption where it is required.
    static Result<std::unique_ptr<Client>> Connect(const ConnectSettings& settings);

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client();  // closes without a word; LogOut() is the polite way

    // A server that knows us already (PREAUTH) is not asked again. kDenied for wrong credentials.
    Status LogIn(const Credentials& credentials);

    bool connected() const;
    const std::string& host() const;
    const Refusal& refusal() const;

    // After Append, Store, Expunge or Create failed: whether the server may have done it
    // all the same. False after a NO, and when the command had not left this machine whole.
    bool fate_unknown() const;

    // "UIDPLUS", "CONDSTORE"; any case. As told last, that is after log-in.
    bool Offers(std::string_view capability) const;

    // ENABLE; what the server has turned on. Empty where it does not offer ENABLE.
    Result<std::vector<std::string>> Enable(const std::vector<std::string>& capabilities);

    // The delimiter of the personal namespace is that of its mailboxes. With special-use attributes
    // where offered.
    Result<std::vector<Mailbox>> List(const ListRequest& request = {});

    // SELECT or EXAMINE. Finishes what was started before. kNotFound.
    Result<SelectedMailbox> Select(const std::string& mailbox, SelectMode mode);

    // The same, with a request for its messages sent in the same go; its ticket is given to
    // Finish() as usual. After a failure there is no ticket.
    using Ticket = std::uint64_t;
    struct Begun {
        SelectedMailbox mailbox;
        Ticket ticket = 0;
    };
    Result<Begun> SelectAndFetch(const std::string& mailbox, SelectMode mode,
                                 const FetchRequest& request, FetchSink sink);
    const std::string& selected() const;  // empty: none

    // STATUS of one mailbox, or of many, all sent before the first answer is read. In the order of
    // `mailboxes`; a mailbox that is refused has its error in its place. The outer error is a lost
    // connection.
    Result<MailboxStatus> StatusOf(const std::string& mailbox);
    Result<std::vector<Result<MailboxStatus>>> StatusOf(const std::vector<std::string>& mailboxes);

    // UID FETCH. An empty set, or a request for nothing, is answered without the server.
    Status Fetch(const FetchRequest& request, const FetchSink& sink);

    // Many of them, sent ahead of their answers as far as the limits let it.
    Status Fetch(const std::vector<FetchRequest>& requests, const FetchSink& sink);

    // The same in two halves: sent now, awaited later; between them the caller has its hands free.
    // The sink is called in any later call of this client, never after Finish() of its ticket.
    // When too much is under way, Start waits for the oldest. Any other call finishes all that was
    // started; each ticket still has to be given to Finish() once, for its outcome.
    Result<Ticket> StartFetch(const FetchRequest& request, FetchSink sink);
    Status Finish(Ticket ticket);

    // UID FETCH with CHANGEDSINCE and VANISHED (needs QRESYNC, enabled): besides the changed
    // messages, the UIDs of the set that are gone.
    Result<UidSet> FetchChanges(const FetchRequest& request, const FetchSink& sink);

    // UID SEARCH; `criteria` as in the RFC ("UID 5:* LARGER 100"), printable ASCII.
    Result<UidSet> Search(const std::string& criteria);

    // APPEND. None when the server does not tell the UID (no UIDPLUS). kNotFound: no such mailbox.
    // A failure to read the content gives up the connection, as its promised length cannot be kept
    // otherwise; nothing has been stored then.
    Result<std::optional<AppendedMail>> Append(const AppendRequest& request);

    // UID STORE, silent. With `unchanged_since` (needs CONDSTORE) messages that were changed later
    // are left alone; the UIDs of those are returned.
    Result<UidSet> Store(const UidSet& uids, FlagChange change,
                         const std::vector<std::string>& flags,
                         std::optional<std::uint64_t> unchanged_since = {});

    // UID EXPUNGE: of these, the ones that are \Deleted. kUnsupported without UIDPLUS.
    Status Expunge(const UidSet& uids);

    Status Create(const std::string& mailbox);  // kExists
    Status Noop();
    Status LogOut();  // the connection is closed whatever the server says

    News TakeNews();

 private:
    explicit Client(std::unique_ptr<Session> session);

    std::unique_ptr<Session> session_;
};

}  // namespace trevix::imap
