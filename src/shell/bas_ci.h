// basCI: the state that all classes of one process share, and the process's start.
//
// One object, made in main() and passed by reference. Member names are those that the settings, the
// results message and the log use for them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/ports.h"
#include "shell/log_writer.h"
#include "shell/run.h"

namespace trevix {

inline constexpr const char* kDefaultExcludeCompress =
    ".zip:.exe:.cab:.vcf:.vcs:.ics:.xnk:.url:.lnk:.jpeg:.jpg:.gif:.efx:.wav";

class BasCI {
 public:
    explicit BasCI(const Ports& process_ports);
    BasCI(const BasCI&) = delete;
    BasCI& operator=(const BasCI&) = delete;
    ~BasCI();

    // Creates the messaging session and the helper object. False when either cannot be had: one
    // line was logged at level 1 and the process must end without serving anything.
    bool Main();

    // Makes sure the zip work directory exists. The path stays set even when it does not.
    void GetZipTemp();

    // The system's temporary path as the component uses it, at most 255 characters.
    std::string TemporaryPath() const;

    Ports ports;

    // What runs log to: a line goes to the event log and, in add-in mode, to trevix.log.
    LogWriter log;

    std::unique_ptr<MessagingSession> gMAPISession;
    std::unique_ptr<Utilities> gUtils;
    std::string gStoreID;  // the store of the logged-on mailbox's Inbox
    // From log-on until the Session object ends; a run that is on the stack then ends first.
    std::shared_ptr<IndexRun> gIndex;
    std::shared_ptr<ManageRun> gManage;
    std::unique_ptr<RecordSet> gFolderRST;  // closed by the Session object's end
    std::unique_ptr<RecordSet> gAttachRST;  // likewise

    // A run is on the stack, perhaps serving the message loop. No other one may begin on top of it.
    bool is_running = false;

    // Running totals and results of the results message.
    std::int32_t gDeletedStationery = 0;
    std::int32_t gCompressedBytes = 0;
    std::int32_t gOriginalBytes = 0;
    std::string gLastIndex;
    std::string gStoreIDs;
    std::string gIndexCreated;  // when the index was made, for people

    // Settings.
    std::string ExcludeCompress;
    std::int16_t Level = 5;  // zip compression level
    bool CustomItems = false;
    std::int32_t ZipBytesCompress = 0;
    bool CombineCompress = false;
    std::int32_t ErrorLogSize = 0;
    std::int16_t ErrorLogLevel = 4;

    std::string gZipTemp;    // zip work directory, ends in "/"
    std::string gIndexDir;   // index directory, ends in "/"
    std::string gLogonName;  // log-on name, made safe for file names
    bool gAddinMode = true;  // running under the mail-client add-in
};

}  // namespace trevix
