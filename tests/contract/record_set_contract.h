// What every RecordSet must do, in executable form. Each implementation instantiates the suite with
// a factory of record sets and a folder that is empty.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/record_set.h"

namespace trevix::contract {

class RecordSetWorld {
 public:
    virtual ~RecordSetWorld() = default;
    virtual RecordSetFactory& factory() = 0;

    // A path in the folder of this world.
    virtual std::string PathOf(const std::string& name) = 0;
    // Puts a file there that no record set wrote.
    virtual void Put(const std::string& path, const std::string& bytes) = 0;
    // The bytes of a file, and how many files the folder holds.
    virtual std::string Read(const std::string& path) = 0;
    virtual std::size_t FileCount() = 0;
};

struct RecordSetCase {
    const char* name;
    std::function<std::unique_ptr<RecordSetWorld>()> make;
};

inline std::string RecordSetCaseName(const testing::TestParamInfo<RecordSetCase>& row) {
    return row.param.name;
}

class RecordSetContract : public testing::TestWithParam<RecordSetCase> {
 protected:
    void SetUp() override {
        world_ = GetParam().make();
        ASSERT_NE(world_, nullptr);
        set_ = NewSet();
    }

    std::unique_ptr<RecordSet> NewSet() {
        auto set = world_->factory().CreateRecordSet();
        EXPECT_TRUE(set.ok());
        return std::move(set).value();
    }

    // An open set of folders: a key, an identifier of at most ten units, a time that may be Null.
    std::unique_ptr<RecordSet> NewFolders() {
        auto set = NewSet();
        AppendFolderFields(*set);
        EXPECT_TRUE(set->Open().ok());
        return set;
    }
    static void AppendFolderFields(RecordSet& set) {
        EXPECT_TRUE(set.Append("FolderKey", FieldType::kInteger, 0, kFieldKeyColumn).ok());
        EXPECT_TRUE(set.Append("FolderID", FieldType::kBstr, 10, kFieldUnspecified).ok());
        EXPECT_TRUE(set.Append("LastUpdate", FieldType::kDate, 0, kFieldMayBeNull).ok());
        EXPECT_TRUE(set.Append("Kind", FieldType::kSmallInt, 0, kFieldMayBeNull).ok());
    }
    static void Add(RecordSet& set, std::int32_t key, const std::string& id) {
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Set("FolderKey", key).ok());
        ASSERT_TRUE(set.Set("FolderID", id).ok());
        ASSERT_TRUE(set.Update().ok());
    }
    std::unique_ptr<RecordSet> FoldersOf(
        std::initializer_list<std::pair<std::int32_t, const char*>> rows) {
        auto set = NewFolders();
        for (const auto& [key, id] : rows)
            Add(*set, key, id);
        return set;
    }

    static std::int32_t KeyOf(const RecordSet& set) {
        const auto value = set.Get("FolderKey");
        if (!value.ok()) return -1;
        const auto* const key = std::get_if<std::int32_t>(&value.value());
        return key != nullptr ? *key : -2;
    }
    static std::string TextOf(const RecordSet& set, const std::string& field) {
        const auto value = set.Get(field);
        if (!value.ok()) return "error " + std::to_string(value.error().number);
        const auto* const text = std::get_if<std::string>(&value.value());
        return text != nullptr ? *text : "no text";
    }
    // The keys of the records shown, from first to last.
    static std::vector<std::int32_t> Keys(RecordSet& set) {
        std::vector<std::int32_t> keys;
        // An empty set refuses to move and is at its end.
        Drop(set.MoveFirst());
        while (!set.Eof()) {
            keys.push_back(KeyOf(set));
            EXPECT_TRUE(set.MoveNext().ok());
        }
        return keys;
    }
    static int NumberOf(const Status& status) { return status.ok() ? 0 : status.error().number; }
    static int NumberOf(const Result<Variant>& value) {
        return value.ok() ? 0 : value.error().number;
    }

    using KeyList = std::vector<std::int32_t>;

    std::unique_ptr<RecordSetWorld> world_;
    std::unique_ptr<RecordSet> set_;
};

}  // namespace trevix::contract
