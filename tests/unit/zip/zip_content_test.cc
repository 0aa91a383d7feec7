// CZIP's listing of an archive for the attachment index, over the fake engine and a real record
// set.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "fakes/fake_file_system.h"
#include "fakes/fake_log.h"
#include "fakes/fake_message_loop.h"
#include "fakes/fake_record_set.h"
#include "fakes/fake_zip_engine.h"
#include "index_rows.h"
#include "util/format.h"
#include "zip/czip.h"

namespace trevix {
namespace {

using fakes::FakeArchive;
using fakes::FakeEntry;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

AttachedTo Message() {
    AttachedTo message;
    message.entry_id = "00AB";
    message.store_id = "00CD";
    message.folder = "Inbox/Work";
    message.folder_key = 7;
    message.from = "ann@example.com";
    message.sender = "bob@example.com";
    message.to = "eve@example.com";
    message.display_to = "Eve";
    message.subject = "Minutes";
    message.received = DateFromCivil({2007, 10, 5, 15, 4, 5});
    return message;
}

struct World {
    World() { files.PutDirectory("/w"); }

    void Put(const std::vector<FakeEntry>& entries) {
        factory.PutArchive("/w/a.zip", FakeArchive{"", entries});
    }

    bool List(const AttachedTo& message = Message()) {
        return zip.GetZIPContent("/w/a.zip", "minutes.zip", message, index, loop);
    }

    std::vector<std::string> Column(const std::string& name) {
        return test::ColumnOf(*index, name);
    }

    fakes::FaultPlan plan;
    fakes::FakeFileSystem files{plan};
    fakes::FakeLog log;
    fakes::FakeZipFactory factory{plan, files};
    CZIP zip{factory, files, log, 5};
    fakes::FakeMessageLoop loop;
    std::unique_ptr<RecordSet> index = test::OpenIndex();
};

TEST(CZIPGetZIPContent, AddsARowForEachFileAndNoneForAFolder) {
    World world;
    world.Put({{"a.txt", "a", 0}, {"docs/", "", 0}, {"docs/b.txt", "b", 0}});

    EXPECT_FALSE(world.List());

    EXPECT_THAT(world.Column("FileName"), ElementsAre("a.txt", "b.txt"));
    EXPECT_THAT(world.Column("ZipIndex"), ElementsAre("0", "2"));
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kComplete);
}

TEST(CZIPGetZIPContent, AnArchiveWithoutEntriesAddsNoRowAndStillReturnsFalse) {
    World world;
    world.Put({});

    EXPECT_FALSE(world.List());

    EXPECT_EQ(world.index->RecordCount(), 0);
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kComplete);
    EXPECT_EQ(world.loop.pumps, 1);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPGetZIPContent, ADamagedArchiveAddsNoRow) {
    World world;
    world.Put({{"a.txt", "a", 0}});
    world.factory.next_code = 3;

    EXPECT_FALSE(world.List());

    EXPECT_EQ(world.index->RecordCount(), 0);
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kDamaged);
    EXPECT_EQ(world.loop.pumps, 0);
}

TEST(CZIPGetZIPContent, SaysAtTheTraceLevelAloneWhyAnArchiveWasNotListed) {
    World world;
    world.Put({{"a.txt", "a", 0}});
    world.factory.next_code = 3;

    world.List();

    ASSERT_EQ(world.log.lines.size(), 1U);
    EXPECT_EQ(world.log.lines[0],
              (fakes::LogLine{"CZIP", "GetZIPContent",
                              " 'minutes.zip' on 'Minutes': not listed: 3 Zip file structure error",
                              12}));
}

TEST(CZIPGetZIPContent, TellsWhatWillNeverBeListedFromWhatFailedThisTime) {
    for (const std::int16_t code : std::array<std::int16_t, 4>{2, 3, 13, 21}) {
        World world;
        world.Put({{"a.txt", "a", 0}});
        world.factory.next_code = code;
        world.List();
        EXPECT_EQ(world.zip.LastListing(), ZipListing::kDamaged) << code;
    }
    for (const std::int16_t code : std::array<std::int16_t, 4>{4, 11, 17, 18}) {
        World world;
        world.Put({{"a.txt", "a", 0}});
        world.factory.next_code = code;
        world.List();
        EXPECT_EQ(world.zip.LastListing(), ZipListing::kFailed) << code;
    }
    World vanished;
    vanished.List();
    EXPECT_EQ(vanished.zip.LastListing(), ZipListing::kFailed);
}

TEST(CZIPGetZIPContent, FileIndexIsTheCompressedSizeAndFileSizeTheOther) {
    World world;
    world.Put({{"a.txt", "12345678", 5}, {"b.txt", "123", 0}});

    world.List();

    EXPECT_THAT(world.Column("FileIndex"), ElementsAre("4", "3"));
    EXPECT_THAT(world.Column("FileSize"), ElementsAre("8", "3"));
}

TEST(CZIPGetZIPContent, DescribesTheMessageInEachRow) {
    World world;
    world.Put({{"a.txt", "a", 0}, {"b.txt", "b", 0}});

    world.List();

    const std::pair<const char*, const char*> columns[] = {
        {"FileDate", "1/2/2003 4:05:06 AM"},
        {"ZipFile", "minutes.zip"},
        {"EntryID", "00AB"},
        {"StoreID", "00CD"},
        {"Folder", "Inbox/Work"},
        {"FolderKey", "7"},
        {"From", "ann@example.com"},
        {"Sender", "bob@example.com"},
        {"To", "eve@example.com"},
        {"DisplayTo", "Eve"},
        {"Subject", "Minutes"},
        {"Received", "10/5/2007 3:04:05 PM"},
    };
    for (const auto& [column, text] : columns)
        EXPECT_THAT(world.Column(column), ElementsAre(text, text)) << column;
}

TEST(CZIPGetZIPContent, LeavesOutADateThatIsNone) {
    for (const char* date : {"", "02/30/2003 04:05:06", "sometime"}) {
        World world;
        world.factory.entry_date = date;
        world.Put({{"a.txt", "a", 0}});
        world.List();
        EXPECT_THAT(world.Column("FileDate"), ElementsAre("(null)")) << date;
    }
}

TEST(CZIPGetZIPContent, ServesTheLoopOncePerEntry) {
    World world;
    world.Put({{"a", "1", 0}, {"d/", "", 0}, {"c", "3", 0}});

    world.List();

    EXPECT_EQ(world.loop.pumps, 3);
}

TEST(CZIPGetZIPContent, ARowThatIsRefusedDoesNotSpoilTheNext) {
    World world;
    world.Put({{"a.txt", "a", 0}, {std::string(256, 'x'), "b", 0}, {"c.txt", "c", 0}});

    world.List();

    EXPECT_THAT(world.Column("FileName"), ElementsAre("a.txt", "c.txt"));
    EXPECT_THAT(world.Column("Subject"), ElementsAre("Minutes", "Minutes"));
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kComplete);
    ASSERT_EQ(world.log.lines.size(), 1U);
    EXPECT_THAT(world.log.lines[0].message, HasSubstr("'Minutes'"));
    EXPECT_THAT(world.log.lines[0].message, HasSubstr("FileName"));
    EXPECT_GE(world.log.lines[0].level, 8);
}

TEST(CZIPGetZIPContent, ADescriptionThatDoesNotFitIsLeftOutOfTheRow) {
    World world;
    world.Put({{"a.txt", "a", 0}, {"b.txt", "b", 0}});
    AttachedTo message = Message();
    message.to = std::string(256, 'x');

    world.List(message);

    EXPECT_THAT(world.Column("FileName"), ElementsAre("a.txt", "b.txt"));
    EXPECT_THAT(world.Column("To"), Each(""));
    EXPECT_THAT(world.Column("DisplayTo"), Each("Eve"));
    EXPECT_THAT(world.Column("ZipIndex"), ElementsAre("0", "1"));
    ASSERT_EQ(world.log.lines.size(), 2U);
    EXPECT_THAT(world.log.lines[0].message, HasSubstr("To"));
}

TEST(CZIPGetZIPContent, CountsCharactersAsTheColumnDoes) {
    World world;
    std::string name;
    for (int i = 0; i < 255; ++i)
        name += "\xC3\xA9";
    world.Put({{name, "a", 0}});

    world.List();

    EXPECT_THAT(world.Column("FileName"), ElementsAre(name));
}

TEST(CZIPGetZIPContent, KeepsTheRowsBeforeADamagedEntry) {
    World world;
    world.Put({{"a", "1", 0}, {"b", "2", 0}, {"c", "3", 0}});
    world.loop.on_pump = [&](int pump) {
        if (pump == 2) world.factory.next_code = 3;
    };

    world.List();

    EXPECT_THAT(world.Column("FileName"), ElementsAre("a"));
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kDamaged);
    EXPECT_THAT(world.log.MessagesOfLevel(12),
                ElementsAre(" 'minutes.zip' on 'Minutes': listed up to entry 1: 3 Zip file "
                            "structure error"));
}

TEST(CZIPGetZIPContent, ARecordSetThatFailsOnceCostsOneRowAndIsTold) {
    World world;
    world.Put({{"a", "1", 0}, {"b", "2", 0}, {"c", "3", 0}});
    auto made = std::make_unique<fakes::FakeRecordSet>(world.plan, world.files);
    fakes::FakeRecordSet& index = *made;
    for (const char* name : {"FileName", "FileIndex", "FileDate", "FileSize", "ZipFile", "ZipIndex",
                             "EntryID", "StoreID", "Folder", "FolderKey", "From", "Sender", "To",
                             "DisplayTo", "Subject", "Received"}) {
        ASSERT_TRUE(index.Append(name, FieldType::kBstr, 0, kFieldUnspecified).ok());
    }
    ASSERT_TRUE(index.Open().ok());
    world.loop.on_pump = [&](int pump) {
        world.plan.Clear();
        if (pump == 2) world.plan.FailCalls("recordset.Update", RuntimeError(kOutOfMemory));
    };

    world.index = std::move(made);
    world.List();

    ASSERT_EQ(index.rows.size(), 2U);
    EXPECT_EQ(std::get<std::string>(index.rows[0][0]), "a");
    EXPECT_EQ(std::get<std::string>(index.rows[1][0]), "c");
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kFailed);
}

TEST(CZIPGetZIPContent, EndsWhenTheIndexIsDroppedOrClosedBetweenTwoEntries) {
    for (const bool dropped : {true, false}) {
        World world;
        world.Put({{"a", "1", 0}, {"b", "2", 0}, {"c", "3", 0}});
        world.loop.on_pump = [&](int pump) {
            if (pump != 2) return;
            EXPECT_EQ(world.index->RecordCount(), 1);
            if (dropped) {
                world.index.reset();
            } else {
                EXPECT_TRUE(world.index->Close().ok());
            }
        };

        EXPECT_FALSE(world.List());

        EXPECT_EQ(world.loop.pumps, 2);
        EXPECT_EQ(world.zip.LastListing(), ZipListing::kFailed);
        EXPECT_THAT(world.log.MessagesOfLevel(12),
                    ElementsAre(" 'minutes.zip' on 'Minutes': listed up to entry 1: the index was "
                                "closed"));
    }
}

TEST(CZIPGetZIPContent, ListsAsManyEntriesAsHaveANumber) {
    World world;
    std::vector<FakeEntry> entries(40000);
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i].name = std::to_string(i);
    world.Put(entries);

    world.List();

    EXPECT_EQ(world.index->RecordCount(), 32767);
    EXPECT_EQ(world.zip.LastListing(), ZipListing::kComplete);
    EXPECT_THAT(world.log.MessagesOfLevel(12), ElementsAre(HasSubstr("up to entry 32767")));
}

TEST(CZIPGetZIPContent, DoesNothingWithoutAnEngine) {
    fakes::FaultPlan plan;
    plan.FailCalls("zip.Create", RuntimeError(kCannotCreateObject));
    fakes::FakeFileSystem files(plan);
    fakes::FakeLog log;
    fakes::FakeZipFactory factory(plan, files);
    CZIP zip(factory, files, log, 5);
    fakes::FakeMessageLoop loop;
    const auto index = test::OpenIndex();

    EXPECT_FALSE(zip.GetZIPContent("/w/a.zip", "z", Message(), index, loop));

    EXPECT_EQ(index->RecordCount(), 0);
    EXPECT_EQ(zip.LastListing(), ZipListing::kFailed);
}

}  // namespace
}  // namespace trevix
