// DryRunHidden: the hidden messages of a store, with every change kept in memory.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/mail_store.h"

namespace trevix::cli {

// What a reader is shown of a run lock that another process holds. A dry run touches nothing that
// the lock protects, so it must not be refused by it; a status report wants to see it.
enum class HeldLock { kShown, kConcealed };

class DryRunHidden final : public HiddenMailStore {
 public:
    DryRunHidden(HiddenMailStore& behind, Clock& clock, HeldLock lock)
        : behind_(behind), clock_(clock), lock_(lock) {}

    Result<std::vector<HiddenMail>> List() override;
    Result<HiddenMail> Read(const std::string& id) override;
    Status Write(HiddenMail& mail) override;
    Status Remove(const std::string& id) override;

 private:
    HiddenMailStore& behind_;
    Clock& clock_;
    HeldLock lock_;
    std::map<std::string, std::optional<HiddenMail>> changed_;  // empty: removed
    int made_ = 0;
};

}  // namespace trevix::cli
