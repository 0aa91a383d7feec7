// Staging directories: private places for the temporary files of one message each.
//
// Below `parent` a process has one base directory "stage-XXXXXX" (mkdtemp, 0700) with a file "lock"
// that it keeps locked (flock) as long as it lives; each message gets a sub-directory of it. A base
// directory whose lock can be taken belongs to a dead process and is removed by the sweep.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/file_system.h"
#include "platform/result.h"

namespace trevix::posix {

class StagingBase;

class StagingArea {
 public:
    // Base directories live as long as this object or the last staging directory made by it.
    Result<std::unique_ptr<StagingDirectory>> Make(const std::string& parent);

 private:
    std::map<std::string, std::shared_ptr<StagingBase>> bases_;
};

// Removes the base directories of dead processes, ours only: a directory of another owner, a link
// or a directory whose process lives is left alone.
void SweepStagingBases(const std::string& parent);

// Removes the entry `name` of the open directory, with all that is in it, without ever following a
// link or leaving the file system. What cannot be removed stays.
void RemoveTree(int directory, const std::string& name);

}  // namespace trevix::posix
