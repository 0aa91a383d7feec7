// The contract of record sets: fields, records and moving through them.
#pragma once

#include "contract/record_set_contract.h"

namespace trevix::contract {

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

}  // namespace trevix::contract
