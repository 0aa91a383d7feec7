// CIndex: the attachment index of a store.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "shell/bas_ci.h"

namespace trevix {

class CIndex final : public IndexRun {
 public:
    explicit CIndex(BasCI& state) : state_(state) {}

    bool InProcess() const override { return in_process_; }

    // IDs of the stores to index, separated by ";".
    void TargetStoreIDs(const std::string& ids) override { target_store_ids_ = ids; }
    const std::string& TargetStoreIDs() const { return target_store_ids_; }

    // Whether a folder's scan stops at the first message that was indexed before.
    void Refresh(bool refresh) override { refresh_ = refresh; }
    bool Refresh() const { return refresh_; }

    // Where the text of an aborted run goes; empty for nowhere.
    void OnAbort(std::function<void(const std::string&)> on_abort) {
        on_abort_ = std::move(on_abort);
    }

    // Building the index is not part of this version: the call ends at once with an abort that says
    // so, and changes nothing.
    void Index(bool recreate) override;
    void StartIndex() override;

    std::string GetZipIndexDir() override;

    // Asks the run lock; true when the run must give way, after the abort was raised.
    bool CheckInProcess();

 private:
    BasCI& state_;
    bool in_process_ = false;
    bool refresh_ = false;
    std::string target_store_ids_;
    std::string index_dir_;
    std::function<void(const std::string&)> on_abort_;
};

}  // namespace trevix
