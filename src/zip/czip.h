// CZIP: the component's only gateway to zip archives.
//
// Owns one zip engine and one unzip engine and drives them by setting properties, running an action
// and reading the error code. An engine that could not be created is simply not there: operations
// on it do nothing and report the code 0, so the failure shows as missing results.
//
// Properties of the zip engine that one call sets stay set for the next; the compression level is
// the one that matters: it changes with InitZIPCmdStruct, ZIPFiles, ZipMemToFileStream and the two
// warnings only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/blob.h"
#include "platform/file_system.h"
#include "platform/message_loop.h"
#include "platform/record_set.h"
#include "platform/variant.h"
#include "platform/zip_engine.h"
#include "util/log.h"
#include "zip/attachment_row.h"

namespace trevix {

// How listing the content of a zip attachment went.
enum class ZipListing {
    kComplete,  // every file of the archive has its row, but for rows that no record set would take
    kDamaged,   // no archive, or one that cannot be read to its end; it will be the same next time
    kFailed,    // the engine or the record set failed this time
};

class CZIP {
 public:
    // Creates both engines and sets them up with the configured compression level.
    CZIP(ZipFactory& factory, FileSystem& files, Log& log, std::int16_t configured_level);
    CZIP(const CZIP&) = delete;
    CZIP& operator=(const CZIP&) = delete;
    ~CZIP();

    // Puts every property of an engine into its neutral state.
    void InitZIPCmdStruct(std::int16_t level);
    void InitUNZIPCmdStruct();

    // The text of an engine's error code; "Unknown error" for what is no failure code.
    static std::string GetErrorDesc(std::int16_t code);

    // Add the files `items` to the archive: one path, or several that are each in double quotes.
    // Both return the engine's error code. ZIPFiles trims and quotes the caller's `items` and sets
    // the level; ZIPAttach takes the level that is set, `level` is deliberately not used.
    std::int16_t ZIPFiles(const std::string& archive, std::string& items, std::int16_t level);
    std::int16_t ZIPAttach(const std::string& archive, const std::string& items,
                           std::int16_t level);

    // Extracts everything and replaces existing files. The caller's `destination` gains a final "/"
    // when it has none.
    std::int16_t ZIPExtract(const std::string& archive, std::string& destination);

    // Adds the sizes of all entries to the caller's sums, which it has set to 0. A sum that would
    // leave its 32 bits stays as it is.
    void GetZIPBytes(const std::string& archive, std::int32_t& original_bytes,
                     std::int32_t& compressed_bytes);

    // The position of the entry with that base name; 0 also when there is none.
    std::int32_t GetZIPIndex(const std::string& archive, const std::string& file_name);

    // The compressed size of the entry with that base name; 0 when there is none.
    std::int32_t GetZIPCompressedBytes(const std::string& archive, const std::string& file_name);

    // Adds one row to the attachment index for every file inside the zip attachment saved at
    // `file_path`; `zip_file` is the attachment's name, `message` what the rows say of the message
    // that holds it. Serves the loop between entries; what is served may close or drop the index,
    // which is why its owner's place is passed, and the listing then ends. Always False, callers
    // look at the rows.
    bool GetZIPContent(const std::string& file_path, const std::string& zip_file,
                       const AttachedTo& message, const std::unique_ptr<RecordSet>& index,
                       MessageLoop& loop);

    // How the last GetZIPContent went.
    ZipListing LastListing() const { return last_listing_; }

    // Whether the archive holds files of the kinds in `block` (".exe:.bat", compared as it is
    // spelled). If so, it gets a readme and a comment that warn of them; the level is 5 then.
    bool CheckZIPContent(const std::string& file_path, const std::string& block);

    // Warns of the files in `file_list`, each ended by CR LF; an empty list is no reason to. False
    // when the engine failed.
    bool ZipAddWarning(const std::string& zip_path, const std::string& file_list,
                       std::int16_t level);

    // Zips bytes (a Blob) into the archive as the entry `file_name`, which gets quoted in place.
    // Returns the engine's error code, 12 when `input` holds no bytes at all.
    // The engine is served all bytes but the last one: whoever must not lose it appends one more.
    std::int16_t ZipMemToFileStream(const Variant& input, std::string& file_name,
                                    const std::string& archive, std::int16_t level,
                                    const std::string& comment = {});

    // Zips bytes (a Blob) to bytes; empty on failure. The last byte of the input is treated as by
    // ZipMemToFileStream, and one zero byte follows the archive.
    Blob ZipMemToMem(const Variant& input, const std::string& file_name,
                     const std::string& archive);

    // A file's content; empty for a file of 0 or 1 byte and for one that cannot be read.
    Blob ReadFileBinary(const std::string& path);

    // The zip engine's question during the memory actions.
    void OnZipMemory(ZipMemoryCall& call);

 private:
    struct Entry {
        bool found = false;
        std::int32_t position = 0;
        std::int32_t compressed_bytes = 0;
    };

    // Sets the archive and the items and adds. 0 without an engine.
    std::int16_t AddItems(const std::string& archive, const std::string& items);

    // The first entry with that base name.
    Entry FindEntry(const std::string& archive, const std::string& file_name);

    // Runs the count action; false when there is no engine or it failed.
    bool CountEntries(const std::string& archive);

    // The entry name without its folders, if it has any.
    std::string EntryBaseName() const;

    // The row of the entry that the unzip engine stands on. False when it may succeed next time.
    bool AddContentRow(const std::string& zip_file, const AttachedTo& message, RecordSet& index,
                       const RowLog& log);

    // Puts the warning into the archive, in place of an older one. 0 without an engine.
    std::int16_t AddWarning(const std::string& archive, const std::string& text);

    static std::string CodeAndText(std::int16_t code);
    void LogError(const char* procedure, const std::string& message);

    FileSystem& files_;
    Log& log_;
    std::unique_ptr<ZipEngine> zip_engine_;
    std::unique_ptr<UnzipEngine> unzip_engine_;
    ZipListing last_listing_ = ZipListing::kComplete;

    // What the callback serves from and collects into during the memory actions; empty between
    // them, so that no archive ever gets bytes of an earlier message.
    Blob input_;
    std::string output_;
};

}  // namespace trevix
