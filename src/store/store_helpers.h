// What several runs ask of a message: its stationery, its sender, its recipients. All of them give
// an empty text when something fails; where `failed` is not null, it is set when the same may
// succeed another time.
#pragma once

#include <string>

#include "shell/bas_ci.h"

namespace trevix {

// The content identifier of the stationery's background image in a message whose formatted body
// wraps HTML; empty when there is none.
std::string GetStationeryID(BasCI& state, Message& message);

// The sender's address for an SMTP sender, its SMTP property for an EX sender, else empty.
std::string SenderAddress(Message& message, bool* failed = nullptr);

// As above, but anything else (and a missing sender) gives the sender's name.
std::string SenderDisplayAddress(Message& message, bool* failed = nullptr);

// Addresses of the To and Cc recipients, joined with "; ".
std::string RecipientAddressList(Message& message, bool* failed = nullptr);

}  // namespace trevix
