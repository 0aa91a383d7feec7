// The messages of a mailbox, and whether they have changed since they were last listed.
//
// The stamp is what the server says of the mailbox: UIDVALIDITY, UIDNEXT, the number of messages
// and HIGHESTMODSEQ. UIDs only rise, so with the same UIDNEXT nothing has come, and with the same
// number besides nothing has gone. A change of flags shows in HIGHESTMODSEQ; where the mailbox has
// none it does not show, and need not: flags are no part of a message's content, and whoever
// replaces a message reads them first.
#pragma once

#include <optional>
#include <string>

#include "platform/imap/client.h"
#include "platform/imap/link.h"
#include "platform/mail_store.h"
#include "platform/result.h"

namespace trevix::imap {

std::string StampOf(const MailboxStatus& status);
std::optional<MailboxStatus> DecodeStamp(const std::string& stamp);

// Lists a mailbox whose status was just asked. With what `known` (may be null) holds only the
// changes are fetched, where the server can tell them. kNotFound when there is no such mailbox.
Result<MailListing> ReadListing(Link& link, const std::string& mailbox, const MailboxStatus& status,
                                const MailListing* known);

}  // namespace trevix::imap
