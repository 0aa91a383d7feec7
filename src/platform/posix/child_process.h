// ChildProcess: another process that this one has started, and that reports to it.
//
// The child does not depend on its parent: it outlives a parent that is killed, unless it calls
// EndWithParent().
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

    // What the child reports through: that descriptor, the only one besides standard input, output
    // and error that it gets; or its standard output, and then it has no input.
    enum class Report { kDescriptor, kOutput };

    // Starts `program` with no signal blocked.
    static Result<std::unique_ptr<ChildProcess>> Start(const std::string& program,
                                                       const std::vector<std::string>& arguments,
                                                       Report through = Report::kDescriptor);

    // Readable when there is something to read of the report, or its end.
    int report_descriptor() const { return report_.get(); }

    // Reads what is there without waiting. True while more may come.
    bool ReadReport(std::string& text);

    // Readable from when the child has ended. Reap() is due then.
    int end_descriptor() const { return end_.get(); }
    // The exit status, or minus the number of the signal that ended it.
    int Reap();

    // Asks it to end (SIGTERM).
    void Terminate();

 private:
    ChildProcess(pid_t process, UniqueDescriptor report, UniqueDescriptor end)
        : process_(process), report_(std::move(report)), end_(std::move(end)) {}

    pid_t process_;  // 0 when reaped
    UniqueDescriptor report_;
    UniqueDescriptor end_;
};

// For a program that was started by this class's owner: has SIGTERM sent to it when the process
// `parent` ends, however that ends. False when it has ended already.
bool EndWithParent(pid_t parent);

}  // namespace trevix::posix
