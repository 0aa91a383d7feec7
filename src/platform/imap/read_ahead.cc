#include "platform/imap/read_ahead.h"

#include <algorithm>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/part_content.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kFlightMessages = 500;
constexpr std::size_t kWholeMessages = 64;

// Structures that are kept: of some thousand ordinary messages.
constexpr std::size_t kMostSummarizedBytes = std::size_t{16} * 1024 * 1024;

// Two, so that the server is not idle while the answers of one are taken in.
constexpr std::size_t kFlights = 2;

// With so few left at hand, what is under way is taken in and the next is sent.
constexpr std::size_t kFewLeft = 32;

// Whoever looks ahead himself asks for a message once more soon after.
constexpr std::size_t kKept = 2;
constexpr std::uint64_t kFlightBytes = std::uint64_t{8} * 1024 * 1024;

// Messages that want the same are asked for together.
std::string WishOf(const OutlinePlan& plan) {
    std::string text;
    for (const SectionRequest& section : plan.sections) {
        text += section.section +
                (section.range ? "<" + std::to_string(section.range->first) + "." +
                                     std::to_string(section.range->second) + ">"
                               : "") +
                " ";
    }
    return text;
}

FetchRequest RequestFor(const OutlinePlan& plan) {
    FetchRequest request;
    request.sections = plan.sections;
    return request;
}

// Failures of this machine are everybody's.
bool IsLocal(const Error& error) {
    return error.kind == ErrorKind::kNoSpace || error.kind == ErrorKind::kTooMany ||
           error.kind == ErrorKind::kGone;
}

OutlinePlan WholePlan(std::uint64_t size_bytes) {
    OutlinePlan plan;
    plan.whole = true;
    plan.sections.push_back({"", {}});
    plan.bytes = size_bytes;
    return plan;
}

}  // namespace

void ReadAhead::Forget() {
    order_of_.clear();
    expected_.clear();
    structured_.clear();
    ready_.clear();
    given_.clear();
    // Its answers come all the same, and are dropped.
    for (Flight& flight : flights_)
        Await(flight);
    flights_.clear();
}

void ReadAhead::ForgetMailbox() {
    Forget();
    summarized_.clear();
    summarized_bytes_ = 0;
}

void ReadAhead::Expect(const std::string& mailbox, const std::vector<MailEntry>& entries,
                       MailUse use) {
    if (mailbox != mailbox_) {
        ForgetMailbox();
    } else if (use != use_ || ready_.size() > 4 * kFlightMessages) {
        Forget();
    }
    mailbox_ = mailbox;
    use_ = use;
    for (const MailEntry& entry : entries) {
        const auto identity = DecodeLocator(entry.locator);
        if (!identity || order_of_.contains(identity->uid)) continue;
        auto item = std::make_shared<Item>();
        item->order = ++last_order_;
        item->identity = *identity;
        item->size_bytes = entry.size_bytes;
        order_of_[identity->uid] = item->order;
        if (use == MailUse::kIndex && TakeStructure(*item)) {
            SortStructured(item, use);
        } else {
            expected_.push_back(std::move(item));
        }
    }
    Send();
}

// Without the parts that were fetched for the summary, which are looked at once.
void ReadAhead::Keep(const ItemPointer& item) {
    if (item->error || item->facts.structure == nullptr) return;
    const std::size_t bytes =
        item->facts.structure->held_bytes() + item->facts.header.value_or("").size();
    if (summarized_bytes_ + bytes > kMostSummarizedBytes) return;
    summarized_bytes_ += bytes;
    auto kept = std::make_shared<Item>();
    kept->identity = item->identity;
    kept->facts.structure = item->facts.structure;
    kept->facts.header = item->facts.header;
    summarized_[item->identity.uid] = std::move(kept);
}

bool ReadAhead::TakeStructure(Item& item) const {
    const auto known = summarized_.find(item.identity.uid);
    if (known == summarized_.end()) return false;
    if (known->second->identity.uid_validity != item.identity.uid_validity) return false;
    item.answered = true;
    item.facts = known->second->facts;
    return true;
}

// What was expected earlier and not asked for is forgotten: whoever wants it after all says so
// anew, or has it fetched alone.
void ReadAhead::PassOver(std::uint64_t order) {
    const auto passed = [order](const ItemPointer& item) { return item->order < order; };
    std::erase_if(expected_, passed);
    std::erase_if(structured_, passed);
    std::erase_if(ready_, [&passed](const auto& one) { return passed(one.second); });
    std::erase_if(order_of_, [order](const auto& one) { return one.second < order; });
}

ReadAhead::ItemPointer ReadAhead::GivenBefore(const std::string& mailbox,
                                              const MessageIdentity& identity) const {
    if (mailbox != mailbox_) return nullptr;
    for (const ItemPointer& item : given_) {
        const bool same = item->identity.uid == identity.uid &&
                          item->identity.uid_validity == identity.uid_validity;
        if (same && !item->error) return item;
    }
    return nullptr;
}

Result<MailOutline> ReadAhead::Outline(const std::string& mailbox, const MailEntry& entry) {
    const auto identity = DecodeLocator(entry.locator);
    if (!identity) return MessagingError(kInvalidEntryId, entry.key);
    if (const ItemPointer again = GivenBefore(mailbox, *identity)) return OutlineOf(*again);
    const auto order = mailbox == mailbox_ ? order_of_.find(identity->uid) : order_of_.end();
    if (order == order_of_.end()) {
        if (mailbox != mailbox_) ForgetMailbox();
        mailbox_ = mailbox;
        return OutlineOf(*FetchUnexpected(entry, *identity));
    }
    PassOver(order->second);
    order_of_.erase(order);
    while (!ready_.contains(identity->uid)) {
        Send();
        if (flights_.empty()) return OutlineOf(*FetchUnexpected(entry, *identity));
        TakeIn();
    }
    const ItemPointer item = ready_.at(identity->uid);
    ready_.erase(identity->uid);
    if (item->identity.uid_validity != identity->uid_validity) {
        return MessagingError(kObjectDeleted);
    }
    if (use_ == MailUse::kSummary) Keep(item);
    given_.push_back(item);
    if (given_.size() > kKept) given_.pop_front();
    if (ready_.size() <= kFewLeft && !flights_.empty()) TakeIn();
    Send();
    return OutlineOf(*item);
}

std::optional<Blob> ReadAhead::TakeWhole(const std::string& mailbox, const MailEntry& entry) {
    const auto identity = DecodeLocator(entry.locator);
    if (!identity || mailbox != mailbox_ || use_ != MailUse::kChange ||
        !order_of_.contains(identity->uid)) {
        return std::nullopt;
    }
    Result<MailOutline> outline = Outline(mailbox, entry);
    if (!outline.ok() || !outline.value().exact) return std::nullopt;
    return outline.value().skeleton;
}

ReadAhead::Items ReadAhead::NextForParts() {
    Items& from = use_ == MailUse::kChange ? expected_ : structured_;
    const std::size_t most = use_ == MailUse::kChange ? kWholeMessages : kFlightMessages;
    Items items;
    std::uint64_t bytes = 0;
    while (!from.empty() && items.size() < most) {
        Item& item = *from.front();
        if (use_ == MailUse::kChange) item.plan = WholePlan(item.size_bytes);
        bytes += item.plan.bytes;
        if (!items.empty() && bytes > kFlightBytes) break;
        items.push_back(std::move(from.front()));
        from.pop_front();
    }
    return items;
}

ReadAhead::Flight ReadAhead::NextFlight() {
    Flight flight;
    flight.for_parts = NextForParts();
    const bool wants_structure = use_ != MailUse::kChange && structured_.size() < kFlightMessages;
    while (wants_structure && !expected_.empty() && flight.for_structure.size() < kFlightMessages) {
        flight.for_structure.push_back(std::move(expected_.front()));
        expected_.pop_front();
    }
    return flight;
}

std::vector<FetchRequest> ReadAhead::RequestsOf(const Flight& flight) const {
    std::vector<FetchRequest> requests;
    std::map<std::string, std::size_t> by_wish;
    for (const ItemPointer& item : flight.for_parts) {
        const auto [wish, is_new] = by_wish.try_emplace(WishOf(item->plan), requests.size());
        if (is_new) requests.push_back(RequestFor(item->plan));
        requests[wish->second].uids.Add(item->identity.uid);
    }
    if (flight.for_structure.empty()) return requests;
    FetchRequest request;
    request.body_structure = true;
    request.sections.push_back({kHeaderSection, {}});
    for (const ItemPointer& item : flight.for_structure)
        request.uids.Add(item->identity.uid);
    requests.push_back(std::move(request));
    return requests;
}

FetchSink ReadAhead::SinkOf(const Flight& flight) {
    auto items = std::make_shared<std::map<std::uint32_t, ItemPointer>>();
    for (const Items* group : {&flight.for_structure, &flight.for_parts}) {
        for (const ItemPointer& item : *group)
            (*items)[item->identity.uid] = item;
    }
    return [items](FetchedMessage&& message) -> Status {
        const auto found = items->find(message.uid);
        if (found == items->end()) return {};
        Item& item = *found->second;
        // Flags that come unasked say nothing; what was asked for says that the message is there.
        item.answered = item.answered || message.structure != nullptr ||
                        !message.structure_problem.empty() || !message.sections.empty();
        return item.facts.Take(std::move(message));
    };
}

// Sends what comes next. When that fails, the flight counts as one that was lost under way.
void ReadAhead::Send() {
    while (flights_.size() < kFlights) {
        Flight flight = NextFlight();
        if (flight.empty()) return;
        flight.sent = TrySend(flight).ok();
        flights_.push_back(std::move(flight));
    }
}

Status ReadAhead::TrySend(Flight& flight) {
    const Result<Client*> client = link_->Ready();
    if (!client.ok()) return client.error();
    flight.generation = link_->generation();
    TREVIX_RETURN_IF_ERROR(OpenFor(flight, *client.value()));
    const FetchSink sink = SinkOf(flight);
    for (const FetchRequest& request : RequestsOf(flight)) {
        const auto ticket = client.value()->StartFetch(request, sink);
        if (!ticket.ok()) return ticket.error();
        flight.tickets.push_back(ticket.value());
    }
    return {};
}

// UIDs mean nothing in a mailbox that has been made anew.
Status ReadAhead::OpenFor(const Flight& flight, Client& client) {
    const auto opened = link_->Open(client, mailbox_, SelectMode::kReadOnly);
    if (!opened.ok()) return opened.error();
    for (const Items* group : {&flight.for_structure, &flight.for_parts}) {
        for (const ItemPointer& item : *group) {
            if (item->identity.uid_validity != opened.value().uid_validity) {
                return MessagingError(kObjectDeleted);
            }
        }
    }
    return {};
}

// Whether everything that was sent was answered well.
bool ReadAhead::Await(Flight& flight) {
    if (flight.generation != link_->generation()) return false;
    const Result<Client*> client = link_->Ready();
    if (!client.ok() || flight.generation != link_->generation()) return false;
    bool good = flight.sent;
    for (const Client::Ticket ticket : flight.tickets)
        good = client.value()->Finish(ticket).ok() && good;
    return good;
}

void ReadAhead::TakeIn() {
    Flight flight = std::move(flights_.front());
    flights_.pop_front();
    if (!Await(flight)) Fetch(flight);
    Sort(flight);
}

// Everything once more, and in halves as long as that fails: one message may hold what its server
// cannot take apart, and some servers end the connection over it.
void ReadAhead::Fetch(const Flight& flight) {
    bool asked = false;
    Status fetched = FetchOnce(flight, asked);
    if (fetched.ok()) return;
    const std::size_t count = flight.for_structure.size() + flight.for_parts.size();
    if (asked && !IsLocal(fetched.error())) {
        if (count > 1) return FetchHalves(flight);
        // Its structure is what fails; the message itself need not.
        if (!flight.for_structure.empty()) {
            flight.for_structure.front()->answered = true;
            return;
        }
    }
    for (const Items* group : {&flight.for_structure, &flight.for_parts}) {
        for (const ItemPointer& item : *group)
            item->error = fetched.error();
    }
}

// `asked` tells whether it came so far that messages were asked for.
Status ReadAhead::FetchOnce(const Flight& flight, bool& asked) {
    const Result<Client*> client = link_->Ready();
    if (!client.ok()) return client.error();
    TREVIX_RETURN_IF_ERROR(OpenFor(flight, *client.value()));
    asked = true;
    return client.value()->Fetch(RequestsOf(flight), SinkOf(flight));
}

void ReadAhead::FetchHalves(const Flight& flight) {
    Flight first;
    Flight second;
    const std::size_t half = (flight.for_structure.size() + flight.for_parts.size()) / 2;
    std::size_t at = 0;
    for (const ItemPointer& item : flight.for_structure)
        (at++ < half ? first : second).for_structure.push_back(item);
    for (const ItemPointer& item : flight.for_parts)
        (at++ < half ? first : second).for_parts.push_back(item);
    Fetch(first);
    Fetch(second);
}

void ReadAhead::Sort(const Flight& flight) {
    for (const ItemPointer& item : flight.for_structure)
        SortStructured(item, use_);
    for (const ItemPointer& item : flight.for_parts)
        ready_[item->identity.uid] = item;
}

void ReadAhead::SortStructured(const ItemPointer& item, MailUse use) {
    const bool known = item->facts.structure != nullptr && item->facts.header.has_value();
    if (!item->error && !item->answered) item->error = MessagingError(kObjectDeleted);
    if (item->error) {
        ready_[item->identity.uid] = item;
        return;
    }
    item->plan =
        known ? PlanOutline(*item->facts.structure, *item->facts.header, item->size_bytes, use)
              : WholePlan(item->size_bytes);
    for (const SectionRequest& section : item->plan.sections) {
        if (section.range && section.range->first == 0) item->facts.partial.insert(section.section);
    }
    if (item->plan.sections.empty()) {
        ready_[item->identity.uid] = item;
    } else {
        structured_.push_back(item);
    }
}

ReadAhead::ItemPointer ReadAhead::FetchUnexpected(const MailEntry& entry,
                                                  const MessageIdentity& identity) {
    auto item = std::make_shared<Item>();
    item->identity = identity;
    item->size_bytes = entry.size_bytes;
    if (use_ == MailUse::kChange) {
        item->plan = WholePlan(item->size_bytes);
        return item;
    }
    Flight flight;
    flight.for_structure = {item};
    Fetch(flight);
    // Nobody has said what for; whoever opens a message may look at all of it.
    SortStructured(item, MailUse::kIndex);
    ready_.erase(identity.uid);
    if (std::erase(structured_, item) == 0) return item;
    flight.for_structure.clear();
    flight.for_parts = {item};
    Fetch(flight);
    return item;
}

Result<MailOutline> ReadAhead::OutlineOf(const Item& item) {
    if (item.error) return *item.error;
    if (!item.plan.whole) {
        const auto outline = MakeOutline(item.facts, LazyPartsOf(item.identity));
        if (!outline.ok()) return outline.error();
        if (outline.value()) return *outline.value();
    }
    const auto whole = item.facts.sections.find("");
    if (item.plan.whole && whole != item.facts.sections.end()) return WholeOutline(whole->second);
    Result<Blob> content = FetchContent(*link_, mailbox_, item.identity, {"", {}});
    if (!content.ok()) return content.error();
    return WholeOutline(std::move(content).value());
}

LazyPart ReadAhead::LazyPartsOf(const MessageIdentity& identity) const {
    return
        [link = link_, mailbox = mailbox_, identity](
            const std::string& section, std::uint64_t size_bytes, std::optional<Blob> beginning) {
            return MakePartContent(size_bytes, std::move(beginning), [=]() -> Result<Blob> {
                const auto hold = link->Hold();
                return FetchContent(*link, mailbox, identity, {section, {}});
            });
        };
}

}  // namespace trevix::imap
