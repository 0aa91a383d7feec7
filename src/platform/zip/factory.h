// The zip engines and the proof of archives.
#pragma once

#include <memory>

#include "platform/zip_engine.h"

namespace trevix::zip_engine {

class Factory final : public ZipFactory {
 public:
    Factory();
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
    ~Factory() override;

    Result<std::unique_ptr<ZipEngine>> CreateZipEngine() override;
    Result<std::unique_ptr<UnzipEngine>> CreateUnzipEngine() override;
    ArchiveProof& Proof() override;

 private:
    std::unique_ptr<ArchiveProof> proof_;
};

}  // namespace trevix::zip_engine
