// An attachment index that a test fills itself.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "index/attach_index.h"
#include "platform/recordset/factory.h"
#include "util/format.h"

namespace trevix::cli::test {

struct IndexRow {
    std::string file_name = "report.doc";
    std::int32_t file_index = 0;
    Variant file_date = DateFromCivil({2007, 10, 4, 8, 0, 0});
    std::int32_t file_size = 1000;
    std::int16_t zip_index = -1;
    std::string zip_file;
    std::string folder = "Inbox";
    std::string entry_id = "AB01";
    std::string store_id;
    std::string subject = "The report";
    std::string from = "ann@example.org";
    std::string sender = "Ann Archer";
    std::string to = "ben@example.org";
    std::string display_to = "Ben Baker; Cy";
    Variant received = DateFromCivil({2007, 10, 5, 9, 30, 0});
    std::int16_t folder_key = 1;
};

inline std::unique_ptr<RecordSet> NewIndex() {
    recordset::Factory factory;
    auto set = factory.CreateRecordSet();
    EXPECT_TRUE(AppendAttachColumns(*set.value()).ok());
    EXPECT_TRUE(set.value()->Open().ok());
    return std::move(set).value();
}

inline void Add(RecordSet& index, const IndexRow& row) {
    EXPECT_TRUE(index.AddNew().ok());
    const auto set = [&index](const char* name, const Variant& value) {
        EXPECT_TRUE(index.Set(name, value).ok()) << name;
    };
    set("FileName", row.file_name);
    set("FileIndex", row.file_index);
    if (!IsEmpty(row.file_date)) set("FileDate", row.file_date);
    set("FileSize", row.file_size);
    set("ZipIndex", row.zip_index);
    set("ZipFile", row.zip_file);
    set("Folder", row.folder);
    set("EntryID", row.entry_id);
    set("StoreID", row.store_id);
    set("Subject", row.subject);
    set("From", row.from);
    set("Sender", row.sender);
    set("To", row.to);
    set("DisplayTo", row.display_to);
    if (!IsEmpty(row.received)) set("Received", row.received);
    set("FolderKey", row.folder_key);
    EXPECT_TRUE(index.Update().ok());
}

}  // namespace trevix::cli::test
