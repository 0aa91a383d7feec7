#include "store/store_helpers.h"

#include "util/convert.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr int kRecipientTo = 1;
constexpr int kRecipientCc = 2;

std::string FieldText(Message& message, PropertyTag tag) {
    PendingError pending;
    return pending.ValueOr(ToText(pending.ValueOr(message.Field(tag), Variant())), std::string());
}

std::string SmtpProperty(Recipient& recipient) {
    PendingError pending;
    const Variant value = pending.ValueOr(recipient.Field(kTagSmtpAddress), Variant());
    return pending.ValueOr(ToText(value), std::string());
}

std::unique_ptr<Recipient> SenderOf(Message& message) {
    PendingError pending;
    return pending.ValueOr(message.Sender(), std::unique_ptr<Recipient>());
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
    const std::string id = rest.substr(0, end);
    state.log.Write("basCI", "GetStationeryID", " found " + id, 8);
    return id;
}

std::string SenderAddress(Message& message) {
    const std::string type = FieldText(message, kTagSenderAddressType);
    const std::unique_ptr<Recipient> sender = SenderOf(message);
    if (sender == nullptr) return {};
    PendingError pending;
    if (type == "SMTP") return pending.ValueOr(sender->Address(), std::string());
    if (type == "EX") return SmtpProperty(*sender);
    return {};
}

std::string SenderDisplayAddress(Message& message) {
    const std::string type = FieldText(message, kTagSenderAddressType);
    const std::unique_ptr<Recipient> sender = SenderOf(message);
    PendingError pending;
    if (sender != nullptr && type == "SMTP")
        return pending.ValueOr(sender->Address(), std::string());
    if (sender != nullptr && type == "EX") return SmtpProperty(*sender);
    return pending.ValueOr(message.SenderName(), std::string());
}

std::string RecipientAddressList(Message& message) {
    PendingError pending;
    std::vector<std::unique_ptr<Recipient>> recipients;
    pending.Assign(recipients, message.Recipients());
    std::string list;
    for (const auto& recipient : recipients) {
        if (recipient->Type() != kRecipientTo && recipient->Type() != kRecipientCc) continue;
        std::string address = pending.ValueOr(recipient->Address(), std::string());
        // A directory name instead of an address: the entry knows its SMTP address.
        if (address.find("CN=") != std::string::npos) address = SmtpProperty(*recipient);
        list += address + "; ";
    }
    if (!list.empty()) list.resize(list.size() - 2);
    return list;
}

}  // namespace trevix
