// The contract of record sets: saving and loading.
#pragma once

#include "contract/record_set_contract.h"

namespace trevix::contract {

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
