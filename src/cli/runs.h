// The two runs of a store as the command line drives them, wherever they go on: in this process
// (local_runs.h) or in the automation service (service_runs.h).
#pragma once

#include <string>

#include "cli/console.h"
#include "index/cindex.h"
#include "manage/cmanage.h"
#include "platform/clock.h"
#include "platform/posix/poll_loop.h"

namespace trevix::cli {

class Runs {
 public:
    virtual ~Runs() = default;

    struct Compression {
        bool compress = true;
        bool html = false;
        std::string folder_ids;
        bool indexes = false;  // an index run follows
    };
    // Starts a run that goes on while the loop is served.
    virtual void StartCompression(const Compression& plan) = 0;
    virtual void CancelCompression() = 0;
    virtual bool IsCompressing() = 0;
    virtual const RunSummary& CompressionSummary() const = 0;
    // Null for nobody; borrowed.
    virtual void CompressionEvents(CManageEvents* events) = 0;

    // `store_ids` empty: as the store's settings say.
    virtual void StartIndexing(const std::string& store_ids, bool anew) = 0;
    virtual void CancelIndexing() = 0;
    virtual bool IsIndexing() = 0;
    // Whether the compression run that has ended was followed by an index run. To be asked once.
    virtual bool IndexingFollows() = 0;
    virtual const IndexSummary& IndexingSummary() const = 0;
    virtual void IndexingEvents(CIndexEvents* events) = 0;

    virtual posix::PollLoop& loop() = 0;
    virtual Clock& clock() = 0;

    // Why the runs can no longer be followed; empty while they can. The loop ends then.
    virtual std::string Loss() const { return {}; }
};

// For the person who waits for such a run.
Complaint LossComplaint(const std::string& loss);

}  // namespace trevix::cli
