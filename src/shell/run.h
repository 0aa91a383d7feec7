// The two kinds of run that the hidden form's timers start, as the shell knows them.
//
// CManage and CIndex implement these; a run asks for the other one only through the module state.
#pragma once

#include <string>

namespace trevix {

// Holds the mark of a run that is on the stack, from where the run lock let it pass to its end.
class RunMark {
 public:
    explicit RunMark(bool& is_running) : is_running_(is_running) { is_running_ = true; }
    RunMark(const RunMark&) = delete;
    RunMark& operator=(const RunMark&) = delete;
    ~RunMark() { is_running_ = false; }

 private:
    bool& is_running_;
};

class ManageRun {
 public:
    virtual ~ManageRun() = default;
    virtual bool InProcess() const = 0;
    virtual void StartManage() = 0;

    // Its client is gone: a run under way stops at the next cancel point and tells nobody.
    virtual void Abandon() = 0;
};

class IndexRun {
 public:
    virtual ~IndexRun() = default;
    virtual bool InProcess() const = 0;
    virtual void TargetStoreIDs(const std::string& ids) = 0;
    virtual void Refresh(bool refresh) = 0;
    virtual void Index(bool recreate) = 0;
    virtual void StartIndex() = 0;
    virtual void Abandon() = 0;  // as above

    // The directory of the index files, ending in "/"; empty when it cannot be made.
    virtual std::string GetZipIndexDir() = 0;
};

}  // namespace trevix
