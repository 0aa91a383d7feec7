// Summaries: what is known of each message of a folder without opening it again.
#pragma once

#include <vector>

#include "platform/mail_store.h"
#include "platform/mime/splice.h"
#include "platform/summary_cache.h"

namespace trevix::mime {

// One message to summarise and what came of it.
struct SummaryTask {
    MessageSummary summary;  // entry and first_seen_ns are given, the rest is filled in
    bool gone = false;       // not there any more
    bool failed = false;     // could not be read now: to be tried again at the next listing
};

// Fills in what the parts of a message say.
void FillSummary(const ReadMessage& message, MessageSummary* summary);

// Reads the messages, in parallel when there are many. Messages are opened on the calling thread
// only; the helper threads see nothing but their bytes.
//
// A message that cannot be read, or that passes a limit, counts as one with attachments: the run
// then opens it, meets the error, and reports it, instead of passing it over in silence.
void Summarize(MailStore& store, const std::string& folder, std::vector<SummaryTask>* tasks);

// The time that the message was last changed in its folder.
std::int64_t ModifiedNs(const MessageSummary& summary);

}  // namespace trevix::mime
