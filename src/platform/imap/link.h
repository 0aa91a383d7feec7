// The connection of a store: made when it is needed, and made again when it was lost.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/imap/client.h"
#include "platform/imap/message_identity.h"
#include "platform/result.h"

namespace trevix::imap {

// Gives a connection that is logged in.
using Connector = std::function<Result<std::unique_ptr<Client>>()>;

// Waits; tests have nothing to wait for.
using Pause = std::function<void(std::chrono::milliseconds)>;

class Link {
 public:
    Link(Connector connect, Pause pause);

    // One thread at a time: content that was handed out is fetched when it is read, by whichever
    // thread reads it. Every entry to the store holds this while it uses the link.
    std::unique_lock<std::recursive_mutex> Hold() { return std::unique_lock(mutex_); }

    // The connection, whose errors are the client's. A lost one is made again, with growing pauses
    // when that fails at first; after a whole series of failures each call tries once.
    Result<Client*> Ready();

    // For work that changes nothing on the server: when the connection is lost meanwhile, it is
    // done again from the start on a new one.
    Status Read(const std::function<Status(Client&)>& work);

    // Selects the mailbox unless it is selected in a mode that will do. The answer is of the moment
    // of the selecting.
    Result<SelectedMailbox> Open(Client& client, const std::string& mailbox, SelectMode mode);

    // The same; what the server knows then is of now. The answer is waited for: some servers put
    // off what they have to tell until they have done all that they were asked together.
    Result<SelectedMailbox> OpenFresh(Client& client, const std::string& mailbox, SelectMode mode);

    // Selects the mailbox and fetches from it; what comes is of now. `opened` is called with what
    // the server tells of the mailbox before the first message is.
    Status Fetch(Client& client, const std::string& mailbox, const FetchRequest& request,
                 const std::function<void(const SelectedMailbox&)>& opened, const FetchSink& sink);

    // Whether the server tells modification numbers, and which messages went.
    bool has_condstore() const { return has_condstore_; }
    bool has_qresync() const { return has_qresync_; }

    // Rises with every connection that is made.
    std::uint64_t generation() const { return generation_; }

 private:
    Result<Client*> Connect();
    Status TurnOnExtensions();
    Result<SelectedMailbox> Remember(Client& client, const SelectedMailbox& selected,
                                     SelectMode mode);

    std::recursive_mutex mutex_;
    Connector connect_;
    Pause pause_;
    std::unique_ptr<Client> client_;
    SelectedMailbox selected_;
    SelectMode mode_ = SelectMode::kReadOnly;
    bool has_condstore_ = false;
    bool has_qresync_ = false;
    std::uint64_t generation_ = 0;
    bool failed_before_ = false;
};

// Content of a message, spooled when it is large. kGone (8004010A) when the message is not there,
// or its mailbox is not the one that it was listed in; kNotFound when the mailbox is gone
// altogether.
Result<Blob> FetchContent(Link& link, const std::string& mailbox, const MessageIdentity& identity,
                          const SectionRequest& section);

}  // namespace trevix::imap
