// Reads the items of a FETCH reply.
#pragma once

#include "platform/imap/fetch.h"
#include "platform/imap/reply_parser.h"
#include "platform/imap/scanner.h"
#include "platform/imap/spool.h"

namespace trevix::imap {

// From the opening parenthesis to the closing one. What goes wrong is the scanner's failure.
FetchedMessage ReadFetchItems(Scanner& scanner, Spool& spool, const ContentRules& rules);

}  // namespace trevix::imap
