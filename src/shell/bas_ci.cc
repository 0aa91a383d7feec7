#include "shell/bas_ci.h"

#include "util/pending_error.h"

namespace trevix {

BasCI::BasCI(const Ports& process_ports) : ports(process_ports), log(*this) {}

// The runs hold references into the state, so they go first.
BasCI::~BasCI() {
    gManage.reset();
    gIndex.reset();
}

bool BasCI::Main() {
    // A failing start must reach the log file before any setting was read.
    ErrorLogLevel = 4;
    gAddinMode = true;

    PendingError pending;
    pending.Assign(gMAPISession, ports.messaging.CreateSession());
    if (pending.failed() || gMAPISession == nullptr) {
        log.Write("basCI", "Main",
                  "instantiate CDO error " + std::to_string(pending.number()) + " " +
                      pending.description(),
                  1);
        return false;
    }

    pending.Assign(gUtils, ports.messaging.CreateUtilities());
    if (pending.failed() || gUtils == nullptr) {
        log.Write("basCI", "Main", " unable to instantiate QMUtils object " + pending.description(),
                  1);
        return false;
    }
    return true;
}

std::string BasCI::TemporaryPath() const {
    constexpr std::size_t kBufferSize = 255;
    const std::string path = ports.files.TemporaryPath().substr(0, kBufferSize);
    return path.substr(0, path.find('\0'));
}

void BasCI::GetZipTemp() {
    if (!gZipTemp.empty()) return;
    gZipTemp = TemporaryPath() + "ZipTemp/";

    PendingError pending;
    if (!ports.files.DirectoryExists(gZipTemp)) pending.Step(ports.files.MakeDirectory(gZipTemp));
    if (!ports.files.DirectoryExists(gZipTemp)) {
        log.Write("basCI", "GetZipTemp",
                  " error creating directory " + std::to_string(pending.number()) + " " +
                      pending.description(),
                  1);
        return;
    }
    ports.files.SweepStaging(gZipTemp);
}

}  // namespace trevix
