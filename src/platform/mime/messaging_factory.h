// The messaging objects over any mail store: the entry of this adapter.
//
// Messages are MIME; this folder maps their structure to properties and attachments, and edits them
// by splicing byte ranges. The store below only moves bytes.
#pragma once

#include <memory>

#include "platform/clock.h"
#include "platform/mail_store.h"
#include "platform/messaging.h"
#include "platform/summary_cache.h"

namespace trevix::mime {

// What is handed in outlives the factory and all of its objects.
std::unique_ptr<MessagingFactory> MessagingFactoryOver(MailStoreProvider& provider,
                                                       SummaryCache& cache, Clock& clock);

}  // namespace trevix::mime
