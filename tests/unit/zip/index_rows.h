// An attachment index as a listing finds it: real record set, the real sixteen columns.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "index/attach_index.h"
#include "platform/recordset/factory.h"
#include "util/convert.h"

namespace trevix::test {

inline std::unique_ptr<RecordSet> OpenIndex() {
    recordset::Factory factory;
    std::unique_ptr<RecordSet> index = factory.CreateRecordSet().value();
    for (const AttachColumn& column : kAttachColumns) {
        EXPECT_TRUE(
            index->Append(column.name, column.type, column.defined_size, column.attributes).ok());
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
