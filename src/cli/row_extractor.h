// RowExtractor: what a row of the attachment index is about, as a file.
//
// The store is only read. The index may be older than the store: what a row names is looked for
// anew, and compared with what the row says of it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/index_output.h"
#include "platform/file_system.h"
#include "platform/messaging.h"
#include "platform/record_set.h"
#include "platform/result.h"
#include "shell/bas_ci.h"

namespace trevix::cli {

struct WantedRow {
    RowNumber number = 0;
    std::string file_name;
    std::string zip_file;  // empty for an attachment itself
    std::string entry_id;
    std::string store_id;  // empty for the default store
    std::int32_t zip_index = 0;
    std::int64_t size = 0;
    int occurrence = 0;  // how many rows of the message before this one say the same
};

// The rows of `numbers`, which ascend.
std::vector<WantedRow> ReadWantedRows(RecordSet& index, const std::vector<RowNumber>& numbers);

class RowExtractor {
 public:
    // `directory` is an open directory for the files, which stays the caller's.
    RowExtractor(BasCI& state, int directory) : state_(state), directory_(directory) {}
    RowExtractor(const RowExtractor&) = delete;
    RowExtractor& operator=(const RowExtractor&) = delete;

    // The name that the new file got. kGone when the message is not there any more, kNotFound when
    // it has no such attachment, kUnsupported for what is only a link to a file elsewhere,
    // kMalformed for damaged content; kNoSpace and others when writing failed.
    Result<std::string> Save(const WantedRow& row);

 private:
    struct Candidate {
        std::int32_t position = 0;
        std::string name;
        std::int64_t size = 0;
    };

    Status OpenMessage(const WantedRow& row);
    Status ListAttachments();
    std::vector<Candidate> CandidatesFor(const WantedRow& row) const;
    Result<std::string> SaveAttachment(const WantedRow& row);
    Result<std::string> SaveMember(const WantedRow& row);
    Result<std::string> SaveMemberOf(const WantedRow& row, std::int32_t position);

    // The zip attachment as a file of ours.
    Status UnpackArchive(std::int32_t position);

    BasCI& state_;
    int directory_;

    // The message at hand: rows that follow each other mostly are about the same one.
    std::string entry_id_;
    std::string store_id_;
    std::unique_ptr<Message> message_;
    std::unique_ptr<Attachments> attachments_;
    std::vector<Candidate> listed_;
    std::unique_ptr<StagingDirectory> staging_;
    std::int32_t unpacked_ = 0;  // position of the attachment that lies there; 0: none
};

}  // namespace trevix::cli
