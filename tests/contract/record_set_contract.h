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

TEST_P(RecordSetContract, IsClosedWhenMade) {
    EXPECT_EQ(set_->State(), kStateClosed);
    EXPECT_TRUE(set_->Eof());
    EXPECT_EQ(set_->FieldCount(), 0);
    for (const int number :
         {NumberOf(set_->MoveFirst()), NumberOf(set_->MoveNext()), NumberOf(set_->MoveLast()),
          NumberOf(set_->Find("A=1")), NumberOf(set_->SetFilter("")), NumberOf(set_->AddNew()),
          NumberOf(set_->Update()), NumberOf(set_->CancelUpdate()), NumberOf(set_->Delete()),
          NumberOf(set_->Get("A")), NumberOf(set_->Set("A", std::int32_t{1})),
          NumberOf(set_->Save(world_->PathOf("x"), kPersistAdtg)), NumberOf(set_->Close())}) {
        EXPECT_EQ(number, kObjectClosed);
    }
    EXPECT_EQ(world_->FileCount(), 0U);
}

TEST_P(RecordSetContract, RefusesWhatNeedsAClosedSetWhileOpen) {
    auto set = NewFolders();
    EXPECT_EQ(set->State(), kStateOpen);
    EXPECT_EQ(NumberOf(set->Append("More", FieldType::kInteger, 0, 0)), kObjectOpen);
    EXPECT_EQ(NumberOf(set->Open()), kObjectOpen);
    EXPECT_EQ(NumberOf(set->OpenFile(world_->PathOf("x"))), kObjectOpen);
}

TEST_P(RecordSetContract, ListsFieldsInTheOrderOfAppending) {
    auto set = NewFolders();
    ASSERT_EQ(set->FieldCount(), 4);
    EXPECT_EQ(set->FieldName(0), "FolderKey");
    EXPECT_EQ(set->FieldName(3), "Kind");
    EXPECT_EQ(set->FieldTypeAt(1), FieldType::kBstr);
    EXPECT_EQ(set->FieldTypeAt(2), FieldType::kDate);
}

TEST_P(RecordSetContract, RefusesFieldsThatCannotBe) {
    EXPECT_TRUE(set_->Append("A", FieldType::kInteger, 0, kFieldUnspecified).ok());
    EXPECT_EQ(NumberOf(set_->Append("a", FieldType::kBstr, 0, 0)), kBadArguments);
    EXPECT_EQ(NumberOf(set_->Append("", FieldType::kBstr, 0, 0)), kBadArguments);
    EXPECT_EQ(NumberOf(set_->Append("B", FieldType::kBstr, -1, 0)), kBadArguments);
    EXPECT_EQ(NumberOf(set_->Append("B", FieldType::kOther, 0, 0)), kBadArguments);
    EXPECT_EQ(NumberOf(NewSet()->Open()), kBadArguments);
}

TEST_P(RecordSetContract, StartsOverAfterClose) {
    auto set = FoldersOf({{1, "A"}});
    ASSERT_TRUE(set->Close().ok());
    EXPECT_EQ(set->State(), kStateClosed);
    AppendFolderFields(*set);
    ASSERT_TRUE(set->Open().ok());
    EXPECT_EQ(set->FieldCount(), 4);
    EXPECT_EQ(set->RecordCount(), 0);

    ASSERT_TRUE(set->Close().ok());
    ASSERT_TRUE(set->Open().ok());
    EXPECT_EQ(set->FieldCount(), 4);
}

TEST_P(RecordSetContract, IsEmptyAndAtItsEndWhenOpened) {
    auto set = NewFolders();
    EXPECT_TRUE(set->Eof());
    EXPECT_EQ(set->RecordCount(), 0);
    EXPECT_EQ(NumberOf(set->MoveFirst()), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->MoveNext()), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->MoveLast()), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Find("FolderKey=1")), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Delete()), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Get("FolderKey")), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Set("FolderKey", std::int32_t{1})), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Update()), kNoCurrentRecord);
    EXPECT_TRUE(set->CancelUpdate().ok());
    EXPECT_TRUE(set->SetFilter("FolderKey=1").ok());
    EXPECT_TRUE(set->Eof());
}

TEST_P(RecordSetContract, RefusesAnUnknownField) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_EQ(NumberOf(set->Get("Nothing")), kItemNotFound);
    EXPECT_EQ(NumberOf(set->Set("Nothing", std::int32_t{1})), kItemNotFound);
    EXPECT_EQ(NumberOf(set->Find("Nothing=1")), kItemNotFound);
    EXPECT_EQ(NumberOf(set->SetFilter("Nothing=1")), kItemNotFound);
    EXPECT_EQ(KeyOf(*set), 1);
}

TEST_P(RecordSetContract, FindsFieldsInAnyCase) {
    auto set = FoldersOf({{7, "A"}});
    EXPECT_TRUE(set->Get("folderKEY").ok());
    ASSERT_TRUE(set->Find("FOLDERKEY=7").ok());
    EXPECT_FALSE(set->Eof());
}

TEST_P(RecordSetContract, GivesANewRecordDefaultValues) {
    auto set = NewFolders();
    ASSERT_TRUE(set->AddNew().ok());
    EXPECT_FALSE(set->Eof());
    EXPECT_EQ(set->RecordCount(), 0);
    EXPECT_EQ(KeyOf(*set), 0);
    EXPECT_EQ(TextOf(*set, "FolderID"), "");
    EXPECT_TRUE(IsEmpty(set->Get("LastUpdate").value()));
    EXPECT_TRUE(IsEmpty(set->Get("Kind").value()));
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(set->RecordCount(), 1);
    EXPECT_FALSE(set->Eof());
}

TEST_P(RecordSetContract, GivesEachTypeBackAsItWasSet) {
    ASSERT_TRUE(set_->Append("S", FieldType::kSmallInt, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Append("I", FieldType::kInteger, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Append("R", FieldType::kDouble, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Append("D", FieldType::kDate, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Append("T", FieldType::kBstr, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Append("B", FieldType::kBoolean, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set_->Open().ok());
    ASSERT_TRUE(set_->AddNew().ok());
    ASSERT_TRUE(set_->Set("S", std::int16_t{-3}).ok());
    ASSERT_TRUE(set_->Set("I", std::int32_t{-2000000000}).ok());
    ASSERT_TRUE(set_->Set("R", 0.1).ok());
    ASSERT_TRUE(set_->Set("D", Date{-1.25}).ok());
    ASSERT_TRUE(set_->Set("T", std::string("gr\xC3\xBC\xC3\x9F")).ok());
    ASSERT_TRUE(set_->Set("B", true).ok());
    ASSERT_TRUE(set_->Update().ok());
    const auto get = [this](const char* field) { return set_->Get(field).value(); };
    EXPECT_EQ(std::get<std::int16_t>(get("S")), -3);
    EXPECT_EQ(std::get<std::int32_t>(get("I")), -2000000000);
    EXPECT_EQ(std::get<double>(get("R")), 0.1);
    EXPECT_EQ(std::get<Date>(get("D")).days, -1.25);
    EXPECT_EQ(std::get<std::string>(get("T")), "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(std::get<bool>(get("B")), true);
}

TEST_P(RecordSetContract, ConvertsNumbersThatFit) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_TRUE(set->Set("Kind", std::int32_t{-3}).ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int16_t{5}).ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(std::get<std::int16_t>(set->Get("Kind").value()), -3);
    EXPECT_EQ(KeyOf(*set), 5);
}

TEST_P(RecordSetContract, RefusesAValueOfTheWrongType) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_EQ(NumberOf(set->Set("FolderKey", std::string("many"))), kWrongType);
    EXPECT_EQ(NumberOf(set->Set("FolderKey", StringArray{"1"})), kWrongType);
    EXPECT_EQ(NumberOf(set->Set("FolderID", ErrorValue{5})), kWrongType);
    EXPECT_EQ(NumberOf(set->Set("LastUpdate", std::string("soon"))), kWrongType);
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(KeyOf(*set), 1);
    EXPECT_EQ(TextOf(*set, "FolderID"), "A");
}

TEST_P(RecordSetContract, DropsANewRecordWithAnOverlongText) {
    auto set = FoldersOf({{1, "A"}});
    ASSERT_TRUE(set->AddNew().ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{2}).ok());
    EXPECT_EQ(NumberOf(set->Set("FolderID", std::string(11, 'x'))), kMultipleStep);
    EXPECT_EQ(NumberOf(set->Update()), kMultipleStep);
    EXPECT_EQ(Keys(*set), KeyList({1}));

    ASSERT_TRUE(set->AddNew().ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{3}).ok());
    EXPECT_TRUE(set->Set("FolderID", std::string(10, 'x')).ok());
    EXPECT_TRUE(set->Update().ok());
    EXPECT_EQ(Keys(*set), KeyList({1, 3}));
}

TEST_P(RecordSetContract, LeavesAnOldRecordAsItWasWhenAValueIsRefused) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{2}).ok());
    EXPECT_EQ(NumberOf(set->Set("Kind", std::int32_t{40000})), kMultipleStep);
    EXPECT_EQ(NumberOf(set->Set("Kind", std::int32_t{-32769})), kMultipleStep);
    EXPECT_EQ(NumberOf(set->Update()), kMultipleStep);
    EXPECT_EQ(KeyOf(*set), 1);
    EXPECT_TRUE(set->Update().ok());
}

TEST_P(RecordSetContract, CountsTheLengthOfTextsInUtf16Units) {
    auto set = FoldersOf({{1, "A"}});
    std::string five;  // five characters of two units
    for (int i = 0; i < 5; ++i)
        five += "\xF0\x9F\x98\x80";
    EXPECT_TRUE(set->Set("FolderID", five).ok());
    EXPECT_EQ(NumberOf(set->Set("FolderID", five + "x")), kMultipleStep);
    EXPECT_TRUE(set->CancelUpdate().ok());
    std::string ten;  // ten characters of three bytes
    for (int i = 0; i < 10; ++i)
        ten += "\xE2\x82\xAC";
    EXPECT_TRUE(set->Set("FolderID", ten).ok());
    EXPECT_TRUE(set->Update().ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), ten);
}

TEST_P(RecordSetContract, HoldsEmptyOnlyWhereAFieldMayBeNull) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_TRUE(set->Set("Kind", std::int16_t{4}).ok());
    EXPECT_TRUE(set->Set("Kind", Empty()).ok());
    EXPECT_TRUE(set->Update().ok());
    EXPECT_TRUE(IsEmpty(set->Get("Kind").value()));
    EXPECT_EQ(NumberOf(set->Set("FolderKey", Empty())), kMultipleStep);
    EXPECT_TRUE(set->CancelUpdate().ok());
    EXPECT_EQ(KeyOf(*set), 1);
}

TEST_P(RecordSetContract, CancelUpdateForgetsWhatWasSet) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{9}).ok());
    EXPECT_EQ(KeyOf(*set), 9);
    EXPECT_TRUE(set->CancelUpdate().ok());
    EXPECT_EQ(KeyOf(*set), 1);

    ASSERT_TRUE(set->AddNew().ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{9}).ok());
    EXPECT_TRUE(set->CancelUpdate().ok());
    EXPECT_EQ(KeyOf(*set), 1);  // current again
    EXPECT_EQ(Keys(*set), KeyList({1, 2}));
}

TEST_P(RecordSetContract, MovingKeepsWhatWasSet) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    EXPECT_TRUE(set->Set("FolderKey", std::int32_t{9}).ok());
    EXPECT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(Keys(*set), KeyList({9, 2}));
}

TEST_P(RecordSetContract, MovesThroughAllRecordsAndStopsAtTheEnd) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {3, "C"}});
    EXPECT_EQ(Keys(*set), KeyList({1, 2, 3}));
    EXPECT_TRUE(set->Eof());
    EXPECT_EQ(NumberOf(set->MoveNext()), kNoCurrentRecord);
    ASSERT_TRUE(set->MoveLast().ok());
    EXPECT_EQ(KeyOf(*set), 3);
    EXPECT_FALSE(set->Eof());
}

TEST_P(RecordSetContract, ShowsCellsByPositionWithoutACopy) {
    auto set = FoldersOf({{7, "ab"}, {8, "ab"}});
    EXPECT_TRUE(set->MoveFirst().ok());
    EXPECT_TRUE(set->Set("LastUpdate", Date{38000.5}).ok());
    EXPECT_TRUE(set->Update().ok());

    EXPECT_EQ(set->NumberAt(0), 7);
    EXPECT_EQ(set->TextAt(1), "ab");
    EXPECT_EQ(set->NumberAt(2), 38000.5);
    EXPECT_EQ(set->NumberAt(3), std::nullopt) << "Null";
    const std::string_view first = set->TextAt(1);
    EXPECT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(set->NumberAt(0), 8);
    EXPECT_EQ(set->NumberAt(2), std::nullopt);
    EXPECT_EQ(first, "ab") << "a text stays while the set is only moved in";
}

TEST_P(RecordSetContract, HasNoCellOfAnotherKindOrPlaceByPosition) {
    EXPECT_EQ(set_->TextAt(0), "");
    EXPECT_EQ(set_->NumberAt(0), std::nullopt);
    auto set = FoldersOf({{7, "ab"}});
    EXPECT_EQ(set->TextAt(0), "");
    EXPECT_EQ(set->NumberAt(1), std::nullopt);
    for (const int outside : {-1, 4}) {
        EXPECT_EQ(set->TextAt(outside), "");
        EXPECT_EQ(set->NumberAt(outside), std::nullopt);
    }
    EXPECT_TRUE(set->MoveLast().ok());
    EXPECT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(set->TextAt(1), "");
    EXPECT_EQ(set->NumberAt(0), std::nullopt);
}

TEST_P(RecordSetContract, DeletesTheCurrentRecord) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {3, "C"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->MoveNext().ok());
    ASSERT_TRUE(set->Delete().ok());
    EXPECT_EQ(set->RecordCount(), 2);
    EXPECT_FALSE(set->Eof());
    EXPECT_EQ(NumberOf(set->Get("FolderKey")), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->Delete()), kNoCurrentRecord);
    ASSERT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(KeyOf(*set), 3);
    EXPECT_EQ(Keys(*set), KeyList({1, 3}));
}

TEST_P(RecordSetContract, DeletesAllRecordsOneByOne) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {3, "C"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    for (int i = 0; i < 3; ++i) {
        ASSERT_FALSE(set->Eof());
        ASSERT_TRUE(set->Delete().ok());
        ASSERT_TRUE(set->MoveNext().ok());
    }
    EXPECT_TRUE(set->Eof());
    EXPECT_EQ(set->RecordCount(), 0);
    EXPECT_EQ(NumberOf(set->MoveFirst()), kNoCurrentRecord);
    Add(*set, 4, "D");
    EXPECT_EQ(Keys(*set), KeyList({4}));
}

TEST_P(RecordSetContract, FindsForwardFromTheCurrentRecord) {
    auto set = FoldersOf({{5, "A"}, {6, "B"}, {5, "C"}, {6, "D"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderKey=5").ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "A");  // the current record counts
    ASSERT_TRUE(set->MoveNext().ok());
    ASSERT_TRUE(set->Find("FolderKey=5").ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "C");
    ASSERT_TRUE(set->MoveNext().ok());
    ASSERT_TRUE(set->Find("FolderKey=5").ok());
    EXPECT_TRUE(set->Eof());
    EXPECT_EQ(NumberOf(set->Find("FolderKey=5")), kNoCurrentRecord);
}

TEST_P(RecordSetContract, TakesAPlainHexadecimalValueOfATextFieldAsText) {
    auto set = FoldersOf({{1, "0000"}, {2, "000000AB"}, {3, "1E5"}, {4, "100000"}, {5, "12"}});
    const std::pair<const char*, std::int32_t> rows[] = {
        {"FolderID=000000AB", 2}, {"FolderID=000000ab", 2}, {"FolderID=1E5", 3},
        {"FolderID=100000", 4},   {"FolderID='1e5'", 3},    {"FolderID = 0000 ", 1},
        {"FolderID=012", -1}};
    for (const auto& [criterion, key] : rows) {
        ASSERT_TRUE(set->MoveFirst().ok());
        ASSERT_TRUE(set->Find(criterion).ok()) << criterion;
        EXPECT_EQ(KeyOf(*set), key) << criterion;
    }
}

TEST_P(RecordSetContract, UnderstandsEveryFormOfCriterion) {
    auto set = FoldersOf({{1, "it's"}, {2, "a b"}, {3, "C"}, {4, ""}});
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Set("LastUpdate", Date{38000.5}).ok());  // 2004-01-14 12:00
    ASSERT_TRUE(set->Set("Kind", std::int16_t{-1}).ok());
    ASSERT_TRUE(set->Update().ok());
    const std::pair<const char*, KeyList> rows[] = {
        {"FolderID='it''s'", {1}},
        {"folderid = 'A B'", {2}},
        {"FolderID=''", {4}},
        {"[FolderID]='c'", {3}},
        {"FolderKey=3", {3}},
        {"FolderKey='3'", {3}},
        {"FolderKey<>3", {1, 2, 4}},
        {"FolderKey<3", {1, 2}},
        {"FolderKey<=3", {1, 2, 3}},
        {"FolderKey>3", {4}},
        {"FolderKey >= 3", {3, 4}},
        {"FolderKey > -1", {1, 2, 3, 4}},
        {"FolderKey=1.5", {}},
        {"FolderID>'b'", {1, 3}},
        {"FolderKey>1 AND FolderKey<4", {2, 3}},
        {"FolderKey=2 and FolderID='a b'", {2}},
        {"FolderKey=2 AND FolderID='AND'", {}},
        {"FolderID='a b' AND FolderKey=3", {}},
        {"LastUpdate=#1/14/2004 12:00:00 PM#", {1}},
        {"LastUpdate=#2004-01-14 12:00#", {1}},
        {"LastUpdate>#1/14/2004#", {1}},
        {"LastUpdate>#2004-01-15#", {}},
        {"LastUpdate<>#1/1/2000#", {1}},
        {"Kind=-1", {1}},
        {"Kind<>-1", {}},
        {"Kind=Null", {2, 3, 4}},
        {"Kind<>Null", {1}},
    };
    for (const auto& [criterion, keys] : rows) {
        ASSERT_TRUE(set->SetFilter(criterion).ok()) << criterion;
        EXPECT_EQ(Keys(*set), keys) << criterion;
        EXPECT_EQ(set->RecordCount(), static_cast<std::int64_t>(keys.size())) << criterion;
    }
}

TEST_P(RecordSetContract, RefusesCriteriaThatCannotBeUnderstood) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=2").ok());
    for (const char* const criterion :
         {"FolderKey", "FolderKey=", "=1", "FolderKey=x", "FolderKey=1 2", "FolderKey==1",
          "FolderKey=1 AND", "FolderKey=1 AND 2", "FolderKey=1 OR FolderKey=2", "FolderID='A",
          "FolderID='A' B", "FolderID LIKE 'A'", "LastUpdate=#2004-13-01#", "LastUpdate=#1/1/2004",
          "LastUpdate=#soon#", "FolderKey=#1/1/2004#", "Kind>Null", "[FolderKey=1"}) {
        EXPECT_EQ(NumberOf(set->SetFilter(criterion)), kBadArguments) << criterion;
    }
    EXPECT_EQ(Keys(*set), KeyList({2}));  // the filter stays
    ASSERT_TRUE(set->MoveFirst().ok());
    EXPECT_EQ(NumberOf(set->Find("FolderKey=1 AND FolderID='A'")), kBadArguments);
    EXPECT_EQ(NumberOf(set->Find("")), kBadArguments);
}

TEST_P(RecordSetContract, ShowsOnlyWhatMeetsTheFilterInRecordOrder) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {1, "C"}, {2, "D"}, {1, "E"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=1").ok());
    EXPECT_EQ(set->RecordCount(), 3);
    EXPECT_EQ(TextOf(*set, "FolderID"), "A");
    ASSERT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "C");
    ASSERT_TRUE(set->MoveLast().ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "E");
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderID='D'").ok());
    EXPECT_TRUE(set->Eof());
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderID='E'").ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "E");

    ASSERT_TRUE(set->SetFilter("").ok());
    EXPECT_EQ(set->RecordCount(), 5);
    EXPECT_EQ(TextOf(*set, "FolderID"), "A");
}

TEST_P(RecordSetContract, IsAtItsEndWhenNothingMeetsTheFilter) {
    auto set = FoldersOf({{1, "A"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=7").ok());
    EXPECT_TRUE(set->Eof());
    EXPECT_EQ(set->RecordCount(), 0);
    EXPECT_EQ(NumberOf(set->MoveFirst()), kNoCurrentRecord);
    ASSERT_TRUE(set->SetFilter("").ok());
    EXPECT_EQ(Keys(*set), KeyList({1}));
}

TEST_P(RecordSetContract, DeletesWhatTheFilterShowsAndNothingElse) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {1, "C"}, {2, "D"}, {1, "E"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=1").ok());
    ASSERT_TRUE(set->MoveFirst().ok());
    while (!set->Eof()) {
        ASSERT_TRUE(set->Delete().ok());
        ASSERT_TRUE(set->MoveNext().ok());
    }
    EXPECT_EQ(set->RecordCount(), 0);
    EXPECT_EQ(NumberOf(set->MoveFirst()), kNoCurrentRecord);
    EXPECT_EQ(NumberOf(set->MoveLast()), kNoCurrentRecord);
    ASSERT_TRUE(set->SetFilter("").ok());
    EXPECT_EQ(Keys(*set), KeyList({2, 2}));
    ASSERT_TRUE(set->SetFilter("FolderKey=1").ok());
    EXPECT_TRUE(set->Eof());
}

TEST_P(RecordSetContract, SearchesSeeWhatWasAddedChangedAndDeleted) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {3, "C"}});
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderID='A'").ok());
    ASSERT_TRUE(set->Set("FolderID", std::string("C")).ok());
    ASSERT_TRUE(set->Update().ok());
    ASSERT_TRUE(set->SetFilter("FolderID='C'").ok());
    EXPECT_EQ(Keys(*set), KeyList({1, 3}));  // in record order
    ASSERT_TRUE(set->SetFilter("FolderID='A'").ok());
    EXPECT_EQ(Keys(*set), KeyList({}));
    ASSERT_TRUE(set->SetFilter("").ok());
    Add(*set, 4, "A");
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderID='A'").ok());
    EXPECT_EQ(KeyOf(*set), 4);
    ASSERT_TRUE(set->Delete().ok());
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Find("FolderID='A'").ok());
    EXPECT_TRUE(set->Eof());
}

TEST_P(RecordSetContract, HidesWhatNoLongerMeetsTheFilter) {
    auto set = FoldersOf({{1, "A"}, {1, "B"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=1").ok());
    ASSERT_TRUE(set->Set("FolderKey", std::int32_t{2}).ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(set->RecordCount(), 1);
    EXPECT_EQ(KeyOf(*set), 2);  // still current
    ASSERT_TRUE(set->MoveNext().ok());
    EXPECT_EQ(TextOf(*set, "FolderID"), "B");
    Add(*set, 1, "C");
    Add(*set, 2, "D");
    EXPECT_EQ(set->RecordCount(), 2);
    EXPECT_EQ(TextOf(*set, "FolderID"), "D");
    EXPECT_EQ(Keys(*set), KeyList({1, 1}));
    ASSERT_TRUE(set->SetFilter("").ok());
    EXPECT_EQ(Keys(*set), KeyList({2, 1, 1, 2}));
}

TEST_P(RecordSetContract, LoadsWhatItSaved) {
    auto set = FoldersOf({{1, "A"}, {2, "gr\xC3\xBC\xC3\x9F"}, {3, ""}});
    ASSERT_TRUE(set->MoveFirst().ok());
    ASSERT_TRUE(set->Set("LastUpdate", Date{38000.25}).ok());
    ASSERT_TRUE(set->Set("Kind", std::int16_t{-3}).ok());
    const std::string path = world_->PathOf("folders.adtg");
    ASSERT_TRUE(set->Save(path, kPersistAdtg).ok());
    EXPECT_EQ(KeyOf(*set), 1);
    EXPECT_EQ(world_->FileCount(), 1U);

    auto loaded = NewSet();
    ASSERT_TRUE(loaded->OpenFile(path).ok());
    EXPECT_EQ(loaded->State(), kStateOpen);
    ASSERT_EQ(loaded->FieldCount(), 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(loaded->FieldName(i), set->FieldName(i));
        EXPECT_EQ(loaded->FieldTypeAt(i), set->FieldTypeAt(i));
    }
    EXPECT_EQ(KeyOf(*loaded), 1);
    EXPECT_EQ(std::get<Date>(loaded->Get("LastUpdate").value()).days, 38000.25);
    EXPECT_EQ(std::get<std::int16_t>(loaded->Get("Kind").value()), -3);
    EXPECT_EQ(Keys(*loaded), KeyList({1, 2, 3}));
    ASSERT_TRUE(loaded->SetFilter("FolderKey=2").ok());
    EXPECT_EQ(TextOf(*loaded, "FolderID"), "gr\xC3\xBC\xC3\x9F");
    EXPECT_TRUE(IsEmpty(loaded->Get("LastUpdate").value()));

    // And the loaded set saves the same bytes.
    ASSERT_TRUE(loaded->SetFilter("").ok());
    const std::string again = world_->PathOf("again.adtg");
    ASSERT_TRUE(loaded->Save(again, kPersistAdtg).ok());
    EXPECT_EQ(world_->Read(again), world_->Read(path));
}

TEST_P(RecordSetContract, LoadsWhatItSavedFromBytesAsWell) {
    const std::string path = world_->PathOf("folders.adtg");
    EXPECT_TRUE(FoldersOf({{1, "a"}, {2, "b"}})->Save(path, kPersistAdtg).ok());
    const std::string bytes = world_->Read(path);

    ASSERT_TRUE(set_->OpenBlob(Blob::FromString(bytes)).ok());
    EXPECT_EQ(set_->State(), kStateOpen);
    EXPECT_EQ(TextOf(*set_, "FolderID"), "a");
    EXPECT_EQ(Keys(*set_), (KeyList{1, 2}));
    EXPECT_EQ(NumberOf(set_->OpenBlob(Blob::FromString(bytes))), kObjectOpen);
}

TEST_P(RecordSetContract, StaysClosedWhenBytesCannotBeRead) {
    const std::string path = world_->PathOf("folders.adtg");
    EXPECT_TRUE(FoldersOf({{1, "a"}, {2, "b"}})->Save(path, kPersistAdtg).ok());
    const std::string bytes = world_->Read(path);
    for (const std::string& content :
         {std::string(), std::string("no record set"), bytes.substr(0, bytes.size() - 3)}) {
        const Status opened = set_->OpenBlob(Blob::FromString(content));
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().kind, ErrorKind::kMalformed);
        EXPECT_EQ(set_->State(), kStateClosed);
    }

    class Unreadable final : public Blob::Source {
     public:
        std::uint64_t size_bytes() const override { return 1000; }
        Status ReadAt(std::uint64_t, char*, std::size_t) const override {
            return RuntimeError(kDiskFull, "why");
        }
    };
    const Status opened = set_->OpenBlob(Blob(std::make_shared<Unreadable>()));
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().number, kDiskFull);
    EXPECT_EQ(set_->State(), kStateClosed);
}

TEST_P(RecordSetContract, SavesOnlyWhatTheFilterShows) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}, {1, "C"}});
    ASSERT_TRUE(set->SetFilter("FolderKey=1").ok());
    ASSERT_TRUE(set->Save(world_->PathOf("some"), kPersistAdtg).ok());
    auto loaded = NewSet();
    ASSERT_TRUE(loaded->OpenFile(world_->PathOf("some")).ok());
    EXPECT_EQ(Keys(*loaded), KeyList({1, 1}));
    EXPECT_EQ(Keys(*set), KeyList({1, 1}));
}

TEST_P(RecordSetContract, SavesAnEmptySet) {
    auto set = NewFolders();
    ASSERT_TRUE(set->Save(world_->PathOf("none"), kPersistAdtg).ok());
    auto loaded = NewSet();
    ASSERT_TRUE(loaded->OpenFile(world_->PathOf("none")).ok());
    EXPECT_EQ(loaded->FieldCount(), 4);
    EXPECT_TRUE(loaded->Eof());
    Add(*loaded, 1, "A");
    EXPECT_EQ(Keys(*loaded), KeyList({1}));
}

TEST_P(RecordSetContract, NeverReplacesAFile) {
    auto set = FoldersOf({{1, "A"}});
    world_->Put(world_->PathOf("taken"), "precious");
    const Status saved = set->Save(world_->PathOf("taken"), kPersistAdtg);
    EXPECT_EQ(NumberOf(saved), kFileExists);
    EXPECT_EQ(saved.error().kind, ErrorKind::kExists);
    EXPECT_EQ(world_->Read(world_->PathOf("taken")), "precious");
    EXPECT_EQ(world_->FileCount(), 1U);
}

TEST_P(RecordSetContract, LeavesNoFileWhenSavingFails) {
    auto set = FoldersOf({{1, "A"}});
    EXPECT_EQ(NumberOf(set->Save(world_->PathOf("x"), 1)), kBadArguments);
    EXPECT_FALSE(set->Save(world_->PathOf("missing/x"), kPersistAdtg).ok());
    EXPECT_EQ(world_->FileCount(), 0U);
    EXPECT_EQ(Keys(*set), KeyList({1}));
}

TEST_P(RecordSetContract, StaysClosedWhenAFileCannotBeOpened) {
    AppendFolderFields(*set_);
    const Status missing = set_->OpenFile(world_->PathOf("missing"));
    EXPECT_EQ(NumberOf(missing), kFileCouldNotBeOpened);
    EXPECT_EQ(missing.error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(set_->State(), kStateClosed);

    world_->Put(world_->PathOf("damaged"), "no record set at all");
    const Status damaged = set_->OpenFile(world_->PathOf("damaged"));
    EXPECT_EQ(NumberOf(damaged), kFileCouldNotBeRead);
    EXPECT_EQ(damaged.error().kind, ErrorKind::kMalformed);
    EXPECT_THAT(damaged.error().description, testing::HasSubstr("offset"));
    EXPECT_EQ(set_->State(), kStateClosed);

    // A set that could not be loaded is built anew.
    AppendFolderFields(*set_);
    ASSERT_TRUE(set_->Open().ok());
    EXPECT_EQ(set_->FieldCount(), 4);
}

TEST_P(RecordSetContract, KeepsDefinedSizesOfFieldsThatWereAppendedBeforeLoading) {
    auto set = FoldersOf({{1, "A"}});
    const std::string path = world_->PathOf("folders.adtg");
    ASSERT_TRUE(set->Save(path, kPersistAdtg).ok());

    ASSERT_TRUE(set->Close().ok());
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(set->OpenFile(path).ok());
        EXPECT_EQ(NumberOf(set->Set("FolderID", std::string(11, 'x'))), kMultipleStep);
        EXPECT_EQ(NumberOf(set->Update()), kMultipleStep);
        EXPECT_TRUE(set->Set("FolderID", std::string(10, 'x')).ok());
        EXPECT_TRUE(set->Update().ok());
        ASSERT_TRUE(set->Close().ok());
    }

    auto without = NewSet();
    ASSERT_TRUE(without->OpenFile(path).ok());
    EXPECT_TRUE(without->Set("FolderID", std::string(11, 'x')).ok());
    EXPECT_TRUE(without->Update().ok());
}

TEST_P(RecordSetContract, IsCountedAgainAfterUpdateOfALoadedRecord) {
    auto set = FoldersOf({{1, "A"}, {2, "B"}});
    ASSERT_TRUE(set->Save(world_->PathOf("a"), kPersistAdtg).ok());
    auto loaded = NewSet();
    ASSERT_TRUE(loaded->OpenFile(world_->PathOf("a")).ok());
    ASSERT_TRUE(loaded->Set("FolderKey", std::int32_t{7}).ok());
    ASSERT_TRUE(loaded->Update().ok());
    ASSERT_TRUE(loaded->MoveNext().ok());
    ASSERT_TRUE(loaded->Delete().ok());
    Add(*loaded, 8, "C");
    ASSERT_TRUE(loaded->Save(world_->PathOf("b"), kPersistAdtg).ok());
    auto again = NewSet();
    ASSERT_TRUE(again->OpenFile(world_->PathOf("b")).ok());
    EXPECT_EQ(Keys(*again), KeyList({7, 8}));
}

}  // namespace trevix::contract
