#include "store/store_helpers.h"

#include "util/convert.h"
#include "util/failure.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr int kRecipientTo = 1;
constexpr int kRecipientCc = 2;

// Notes a failure that may be over next time.
void Note(const PendingError& pending, bool* failed) {
    if (failed == nullptr || !pending.failed()) return;
    if (!IsLasting({pending.kind(), pending.number(), pending.description()})) *failed = true;
}

std::string SmtpProperty(Recipient& recipient, bool* failed) {
    PendingError pending;
    const Variant value = pending.ValueOr(recipient.Field(kTagSmtpAddress), Variant());
    Note(pending, failed);
    return pending.ValueOr(ToText(value), std::string());
}

// The sender, null when there is none, with the kind of address that it has.
std::unique_ptr<Recipient> SenderOf(Message& message, std::string& type, bool* failed) {
    PendingError pending;
    const Variant value = pending.ValueOr(message.Field(kTagSenderAddressType), Variant());
    Note(pending, failed);
    pending.Clear();
    pending.Assign(type, ToText(value));
    auto sender = pending.ValueOr(message.Sender(), std::unique_ptr<Recipient>());
    Note(pending, failed);
    return sender;
}

// The address of a sender whose type says how to have it; false for any other type.
bool AddressOfSender(Recipient& sender, const std::string& type, std::string& address,
                     bool* failed) {
    PendingError pending;
    if (type == "SMTP") {
        address = pending.ValueOr(sender.Address(), std::string());
        Note(pending, failed);
        return true;
    }
    if (type == "EX") address = SmtpProperty(sender, failed);
    return type == "EX";
}

}  // namespace

std::string GetStationeryID(BasCI& state, Message& message) {
    PendingError pending;
    const std::string body = pending.ValueOr(message.FormattedBody(), std::string());
    if (body.find("\\fromhtml") == std::string::npos) return {};

    const std::string lower = ToLower(body);
    const std::size_t tag_start = lower.find("<body");
    if (tag_start == std::string::npos) return {};
    const std::size_t tag_end = lower.find('>', tag_start);
    const std::string tag = body.substr(tag_start, tag_end - tag_start);
    const std::string lower_tag = lower.substr(tag_start, tag_end - tag_start);

    const std::size_t background = lower_tag.find("background=");
    if (background == std::string::npos) return {};
    const std::size_t cid = lower_tag.find("cid:", background);
    if (cid == std::string::npos) return {};

    const std::string rest = tag.substr(cid + 4);
    std::size_t end = rest.find('"');
    if (end == std::string::npos) end = rest.find('\'');
    std::string id = rest.substr(0, end);
    state.log.Write("basCI", "GetStationeryID", " found " + id, 8);
    return id;
}

std::string SenderAddress(Message& message, bool* failed) {
    std::string type;
    const std::unique_ptr<Recipient> sender = SenderOf(message, type, failed);
    std::string address;
    if (sender != nullptr) AddressOfSender(*sender, type, address, failed);
    return address;
}

std::string SenderDisplayAddress(Message& message, bool* failed) {
    std::string type;
    const std::unique_ptr<Recipient> sender = SenderOf(message, type, failed);
    std::string address;
    if (sender != nullptr && AddressOfSender(*sender, type, address, failed)) return address;
    PendingError pending;
    address = pending.ValueOr(message.SenderName(), std::string());
    Note(pending, failed);
    return address;
}

std::string RecipientAddressList(Message& message, bool* failed) {
    PendingError pending;
    std::vector<std::unique_ptr<Recipient>> recipients;
    pending.Assign(recipients, message.Recipients());
    std::string list;
    for (const auto& recipient : recipients) {
        if (recipient->Type() != kRecipientTo && recipient->Type() != kRecipientCc) continue;
        std::string address = pending.ValueOr(recipient->Address(), std::string());
        // A directory name instead of an address: the entry knows its SMTP address.
        if (address.find("CN=") != std::string::npos) address = SmtpProperty(*recipient, failed);
        list += address + "; ";
    }
    Note(pending, failed);
    if (!list.empty()) list.resize(list.size() - 2);
    return list;
}

}  // namespace trevix
