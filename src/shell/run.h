// The two kinds of run that the hidden form's timers start, as the shell knows them.
//
// CManage and CIndex implement these; a run asks for the other one only through the module state.
#pragma once

#include <string>

namespace trevix {

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
