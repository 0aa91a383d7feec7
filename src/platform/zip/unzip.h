// The unzip engine: counting, stepping and extracting, without libzip, whose memory grows with the
// number of entries.
#pragma once

#include <memory>

#include "platform/zip/archive_directory.h"
#include "platform/zip/error_codes.h"
#include "platform/zip_engine.h"

namespace trevix::zip_engine {

class Unzip final : public UnzipEngine {
 public:
    void Action(std::int16_t action) override;

 private:
    Code Run(std::int16_t action);
    Code Count();
    Code Next();
    Code Extract();
    void ClearEntry();
    void ShowEntry(const DirectoryEntry& entry);

    // What a listing goes on with; no descriptor stays open between two steps.
    std::unique_ptr<ReopeningBytes> listed_;
    DirectoryCursor cursor_;
    std::int32_t next_number_ = 0;
};

}  // namespace trevix::zip_engine
