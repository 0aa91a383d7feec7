// ChildProcess: another process that this one has started, and that reports to it once.
//
// The child does not depend on its parent: it outlives a parent that is killed.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::posix {

class ChildProcess {
 public:
    // The child's descriptor for its report.
    static constexpr int kReportDescriptor = 3;

    // Starts `program` with no signal blocked and, besides standard input, output and error, only
    // that descriptor open.
    static Result<std::unique_ptr<ChildProcess>> Start(const std::string& program,
                                                       const std::vector<std::string>& arguments);

    // Readable when there is something to read of the report, or its end.
    int report_descriptor() const { return report_.get(); }

    // Reads what is there without waiting. True while more may come.
    bool ReadReport(std::string& text);

    // Readable from when the child has ended. Reap() is due then.
    int end_descriptor() const { return end_.get(); }
    void Reap();

    // Asks it to end (SIGTERM).
    void Terminate();

 private:
    ChildProcess(pid_t process, UniqueDescriptor report, UniqueDescriptor end)
        : process_(process), report_(std::move(report)), end_(std::move(end)) {}

    pid_t process_;  // 0 when reaped
    UniqueDescriptor report_;
    UniqueDescriptor end_;
};

}  // namespace trevix::posix
