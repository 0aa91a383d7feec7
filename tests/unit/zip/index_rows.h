// An attachment index as a listing finds it: real record set, the real sixteen columns.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/recordset/factory.h"
#include "util/convert.h"

namespace trevix::test {

inline std::unique_ptr<RecordSet> OpenIndex() {
    struct Column {
        const char* name;
        FieldType type;
        int size;
        int attributes;
    };
    const Column columns[] = {
        {"FileName", FieldType::kBstr, 255, kFieldUnspecified},
        {"FileIndex", FieldType::kInteger, 0, kFieldUnspecified},
        {"FileDate", FieldType::kDate, 0, kFieldMayBeNull},
        {"FileSize", FieldType::kInteger, 0, kFieldUnspecified},
        {"ZipIndex", FieldType::kSmallInt, 0, kFieldMayBeNull},
        {"ZipFile", FieldType::kBstr, 255, kFieldUnspecified},
        {"Folder", FieldType::kBstr, 140, kFieldUnspecified},
        {"EntryID", FieldType::kBstr, 255, kFieldUnspecified},
        {"StoreID", FieldType::kBstr, 255, kFieldUnspecified},
        {"Subject", FieldType::kBstr, 255, kFieldUnspecified},
        {"From", FieldType::kBstr, 140, kFieldUnspecified},
        {"Sender", FieldType::kBstr, 140, kFieldUnspecified},
        {"To", FieldType::kBstr, 255, kFieldUnspecified},
        {"DisplayTo", FieldType::kBstr, 255, kFieldUnspecified},
        {"Received", FieldType::kDate, 0, kFieldMayBeNull},
        {"FolderKey", FieldType::kSmallInt, 0, kFieldUnspecified},
    };
    recordset::Factory factory;
    std::unique_ptr<RecordSet> index = factory.CreateRecordSet().value();
    for (const Column& column : columns) {
        EXPECT_TRUE(index->Append(column.name, column.type, column.size, column.attributes).ok());
    }
    EXPECT_TRUE(index->Open().ok());
    return index;
}

// One column of every row as text; "(null)" where there is no value.
inline std::vector<std::string> ColumnOf(RecordSet& index, const std::string& name) {
    std::vector<std::string> texts;
    if (index.RecordCount() == 0) return texts;
    EXPECT_TRUE(index.MoveFirst().ok());
    while (!index.Eof()) {
        const Variant value = index.Get(name).value();
        texts.push_back(IsEmpty(value) ? "(null)" : ToText(value).value());
        EXPECT_TRUE(index.MoveNext().ok());
    }
    return texts;
}

}  // namespace trevix::test
