// Rows as a large attachment index has them, for benchmarks.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "platform/recordset/factory.h"

namespace trevix::benchmarks {

inline constexpr int kRowsOfMessage = 3;
inline constexpr int kMessagesOfFolder = 200;

inline void Require(const Status& status) {
    if (!status.ok()) std::abort();
}

// Attachment names are all different, the rest is shared by the rows of a message.
struct Message {
    std::string folder;
    std::string entry_id;
    std::string subject;
    std::string from;
    std::string to;
    std::int16_t folder_key = 0;
};

inline std::string EntryIdOf(int number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(number));
    return "0000000038A1BB1005E5101AA1BB08002B2A56C200006D737073742E646C6C000000000"
           "04E495441F9BFB80100AA0037D96E0000000000000000000000000000" +
           std::string(digits) + "0000";
}

inline Message MessageOf(int number) {
    Message message;
    const int folder = number / kMessagesOfFolder;
    const std::string text = std::to_string(number);
    message.folder = "Top of Personal Folders\\Projects\\Customer " + std::to_string(folder);
    message.entry_id = EntryIdOf(number);
    message.subject = "Re: minutes of the meeting about offer " + text;
    message.from = "Sender " + std::to_string(number % 5000) + " <sender@example.com>";
    message.to = "Group " + std::to_string(number % 700) + "; Somebody Else; A Third Person";
    message.folder_key = static_cast<std::int16_t>(1 + folder % 32000);
    return message;
}

inline std::unique_ptr<RecordSet> NewIndex() {
    recordset::Factory factory;
    auto set = factory.CreateRecordSet();
    RecordSet& index = *set.value();
    const auto text = [&index](const char* name, int size) {
        Require(index.Append(name, FieldType::kBstr, size, kFieldUnspecified));
    };
    const auto other = [&index](const char* name, FieldType type, int attributes) {
        Require(index.Append(name, type, 0, attributes));
    };
    text("FileName", 255);
    other("FileIndex", FieldType::kInteger, kFieldUnspecified);
    other("FileDate", FieldType::kDate, kFieldMayBeNull);
    other("FileSize", FieldType::kInteger, kFieldUnspecified);
    other("ZipIndex", FieldType::kSmallInt, kFieldMayBeNull);
    text("ZipFile", 255);
    text("Folder", 140);
    text("EntryID", 255);
    text("StoreID", 255);
    text("Subject", 255);
    text("From", 140);
    text("Sender", 140);
    text("To", 255);
    text("DisplayTo", 255);
    other("Received", FieldType::kDate, kFieldMayBeNull);
    other("FolderKey", FieldType::kSmallInt, kFieldUnspecified);
    Require(index.Open());
    return std::move(set).value();
}

inline void AddRow(RecordSet& index, const Message& message, int row) {
    Require(index.AddNew());
    Require(index.Set("FileName", "attachment number " + std::to_string(row) + ".pdf"));
    Require(index.Set("FileIndex", std::int32_t{0}));
    Require(index.Set("FileDate", Date{38000 + row / 1e4}));
    Require(index.Set("FileSize", std::int32_t{row * 17}));
    Require(index.Set("ZipIndex", std::int16_t{-1}));
    Require(index.Set("ZipFile", std::string()));
    Require(index.Set("Folder", message.folder));
    Require(index.Set("EntryID", message.entry_id));
    Require(index.Set("StoreID", std::string()));
    Require(index.Set("Subject", message.subject));
    Require(index.Set("From", message.from));
    Require(index.Set("Sender", message.from));
    Require(index.Set("To", message.to));
    Require(index.Set("DisplayTo", message.to));
    Require(index.Set("Received", Date{38000 + row / 1e4}));
    Require(index.Set("FolderKey", message.folder_key));
    Require(index.Update());
}

inline std::unique_ptr<RecordSet> IndexOf(int rows) {
    auto index = NewIndex();
    Message message;
    for (int row = 0; row < rows; ++row) {
        if (row % kRowsOfMessage == 0) message = MessageOf(row / kRowsOfMessage);
        AddRow(*index, message, row);
    }
    return index;
}

}  // namespace trevix::benchmarks
