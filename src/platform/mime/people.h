// The sender and the recipients of a message, from its header.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/messaging.h"

namespace trevix::mime {

// The Sender, without one the first author; null when there is neither.
std::unique_ptr<Recipient> SenderOf(std::string_view header);

// To, Cc and Bcc in the order of the header.
std::vector<std::unique_ptr<Recipient>> RecipientsOf(std::string_view header);

// The names of a field's mailboxes, joined by "; ".
std::string DisplayNames(std::string_view header, std::string_view field);

}  // namespace trevix::mime
