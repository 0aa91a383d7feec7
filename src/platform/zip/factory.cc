#include "platform/zip/factory.h"

#include "platform/zip/archive_proof.h"
#include "platform/zip/engine.h"
#include "platform/zip/unzip.h"

namespace trevix::zip_engine {

Factory::Factory() : proof_(std::make_unique<zip_engine::Proof>()) {}

Factory::~Factory() = default;

Result<std::unique_ptr<ZipEngine>> Factory::CreateZipEngine() {
    return std::unique_ptr<ZipEngine>(std::make_unique<Engine>());
}

Result<std::unique_ptr<UnzipEngine>> Factory::CreateUnzipEngine() {
    return std::unique_ptr<UnzipEngine>(std::make_unique<Unzip>());
}

ArchiveProof& Factory::Proof() {
    return *proof_;
}

}  // namespace trevix::zip_engine
