// Messages that are fetched before they are asked for, so that a distant server is asked seldom.
//
// A flight is a group of requests that are sent together and answered in one go: structures and
// headers of the next messages, and, for the messages whose structure the flight before brought,
// the parts that are wanted of them. It is sent when the messages at hand are running low and taken
// in when they have run out, so the server works while the messages are looked at.
//
// What is held is bounded: so many messages in a flight, and so many bytes.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/imap/link.h"
#include "platform/imap/outline.h"
#include "platform/imap/outline_plan.h"
#include "platform/mail_store.h"

namespace trevix::imap {

class ReadAhead {
 public:
    // Both must outlive this; the link is held by whoever calls.
    explicit ReadAhead(std::shared_ptr<Link> link) : link_(std::move(link)) {}

    // Adds to what was expected before, in the same mailbox and for the same use.
    void Expect(const std::string& mailbox, const std::vector<MailEntry>& entries, MailUse use);

    // The message in outline, from what was fetched ahead or fetched now. kGone.
    Result<MailOutline> Outline(const std::string& mailbox, const MailEntry& entry);

    // The whole message, if just that was fetched ahead.
    std::optional<Blob> TakeWhole(const std::string& mailbox, const MailEntry& entry);

 private:
    // A message on its way: expected, asked for its structure, asked for its parts, ready.
    struct Item {
        std::uint64_t order = 0;  // in which it was expected
        MessageIdentity identity;
        std::uint64_t size_bytes = 0;
        bool answered = false;  // something came: the message is there
        MessageFacts facts;
        OutlinePlan plan;
        std::optional<Error> error;
    };
    using ItemPointer = std::shared_ptr<Item>;
    using Items = std::deque<ItemPointer>;
    struct Flight {
        Items for_structure;
        Items for_parts;
        std::vector<Client::Ticket> tickets;
        bool sent = false;  // all of it
        std::uint64_t generation = 0;
        bool empty() const { return for_structure.empty() && for_parts.empty(); }
    };

    void Forget();
    void ForgetMailbox();
    void Keep(const ItemPointer& item);
    bool TakeStructure(Item& item) const;
    ItemPointer GivenBefore(const std::string& mailbox, const MessageIdentity& identity) const;
    void PassOver(std::uint64_t order);
    Flight NextFlight();
    Items NextForParts();
    std::vector<FetchRequest> RequestsOf(const Flight& flight) const;
    static FetchSink SinkOf(const Flight& flight);
    void Send();
    Status TrySend(Flight& flight);
    Status OpenFor(const Flight& flight, Client& client);
    void TakeIn();
    bool Await(Flight& flight);
    void Fetch(const Flight& flight);
    Status FetchOnce(const Flight& flight, bool& asked);
    void FetchHalves(const Flight& flight);
    void Sort(const Flight& flight);
    void SortStructured(const ItemPointer& item, MailUse use);
    ItemPointer FetchUnexpected(const MailEntry& entry, const MessageIdentity& identity);
    Result<MailOutline> OutlineOf(const Item& item);
    LazyPart LazyPartsOf(const MessageIdentity& identity) const;

    std::shared_ptr<Link> link_;
    std::string mailbox_;
    MailUse use_ = MailUse::kSummary;
    std::map<std::uint32_t, std::uint64_t> order_of_;  // by UID, of all that is still expected
    Items expected_;                                   // nothing asked yet
    Items structured_;                                 // the structure is known, parts are wanted
    std::map<std::uint32_t, ItemPointer> ready_;
    Items given_;  // the last few that were handed out

    // By UID, of messages of the mailbox that were looked at for their summary: whoever took one
    // goes on with some of these messages, as a rule, and their structure is not fetched again.
    std::map<std::uint32_t, ItemPointer> summarized_;
    std::size_t summarized_bytes_ = 0;
    std::deque<Flight> flights_;  // under way, the first to come first
    std::uint64_t last_order_ = 0;
};

}  // namespace trevix::imap
