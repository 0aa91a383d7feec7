// The runs of a world of this process.
#pragma once

#include <string>

#include "cli/runs.h"
#include "cli/world.h"

namespace trevix::cli {

class LocalRuns final : public Runs {
 public:
    explicit LocalRuns(World& world) : world_(world) {}

    void StartCompression(const Compression& plan) override;
    void CancelCompression() override { manage().Cancel(true); }
    bool IsCompressing() override { return manage().InProcess(); }
    const RunSummary& CompressionSummary() const override { return manage().Summary(); }
    void CompressionEvents(CManageEvents* events) override { manage().Events(events); }

    void StartIndexing(const std::string& store_ids, bool anew) override;
    void CancelIndexing() override { index().Cancel(true); }
    bool IsIndexing() override { return index().InProcess(); }
    bool IndexingFollows() override { return IsIndexing(); }
    const IndexSummary& IndexingSummary() const override { return index().Summary(); }
    void IndexingEvents(CIndexEvents* events) override { index().Events(events); }

    posix::PollLoop& loop() override { return world_.loop(); }
    Clock& clock() override { return world_.state().ports.clock; }

 private:
    CManage& manage() const { return *world_.session().Manage(); }
    CIndex& index() const { return *world_.session().Index(); }

    World& world_;
};

}  // namespace trevix::cli
