// The contract of record sets: finding and filtering.
#pragma once

#include "contract/record_set_contract.h"

namespace trevix::contract {

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

}  // namespace trevix::contract
