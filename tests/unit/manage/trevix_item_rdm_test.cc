#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using fakes::AttachmentData;
using test::World;

struct TrevixItemRDMTest : testing::Test {
    TrevixItemRDMTest() { world.Setting("CombineCompress", "False"); }

    fakes::MessageData& Deliver(std::vector<AttachmentData> attachments) {
        return world.AddMessage(*world.inbox, "note", std::move(attachments));
    }
    const fakes::MessageData& Message() { return world.inbox->messages[0]; }
    std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (const auto& attachment : Message().attachments)
            names.push_back(attachment.name);
        return names;
    }
    bool NoTemporaryFiles() {
        for (const auto& [path, bytes] : world.files.files) {
            if (path.find("/stage-") != std::string::npos) return false;
        }
        return true;
    }
    World world;
};

struct ClassRow {
    const char* name;
    const char* message_class;
    bool custom_items;
    bool treated;
    int lines;  // "skipping" lines
};

class TrevixItemRDMClass : public testing::TestWithParam<ClassRow> {};

TEST_P(TrevixItemRDMClass, DecidesWhetherAMessageIsTreated) {
    World world;
    world.Setting("CustomItems", GetParam().custom_items ? "True" : "False");
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")}).message_class =
        GetParam().message_class;

    world.Run("51,F1");

    EXPECT_EQ(world.inbox->messages[0].updates, GetParam().treated ? 1 : 0);
    EXPECT_EQ(world.TimesLogged(std::string("TrevixItemRDM:skipping note; excluded message "
                                            "class:") +
                                GetParam().message_class),
              GetParam().lines);
}

constexpr ClassRow kClasses[] = {
    {"Note", "IPM.Note", false, true, 0},
    {"NoteInLowerCase", "ipm.note", false, true, 0},
    {"SmimeIsSkipped", "IPM.Note.SMIME", false, false, 1},
    {"SmimeWithCustomItems", "IPM.Note.SMIME", true, true, 0},
    {"MimeMultipartMixed", "IPM.Note.MIME.multipart.mixed", false, true, 0},
    {"MimeMultipartMixedInAnyCase", "ipm.note.mime.MULTIPART.mixed", false, true, 0},
    {"Report", "REPORT.IPM.Note.NDR", false, false, 1},
    {"MeetingRequestNever", "IPM.Schedule.Meeting.Request", true, false, 1},
    {"Post", "IPM.Post", false, true, 0},
    {"PostIsReportedTwice", "IPM.Post.RSS", false, false, 2},
    {"PostWithCustomItems", "IPM.Post.RSS", true, true, 0},
    {"Appointment", "IPM.Appointment", false, true, 0},
    {"AppointmentCustom", "IPM.Appointment.X", false, false, 1},
    {"Contact", "IPM.Contact", false, true, 0},
    {"DistList", "IPM.DistList", false, true, 0},
    {"Task", "IPM.Task", false, true, 0},
    {"TaskCustom", "IPM.Task.Y", true, true, 0},
    {"Activity", "IPM.Activity", false, true, 0},
    {"SomethingElse", "IPM.StickyNote", false, false, 1},
};

INSTANTIATE_TEST_SUITE_P(Classes, TrevixItemRDMClass, testing::ValuesIn(kClasses),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(TrevixItemRDMTest, SeparateModePutsEachAttachmentIntoAnArchiveOfItsOwn) {
    Deliver({World::File("Quarterly figures.xls", "numbers"), World::File("budget.xls", "more")});

    world.Run("51,F1");

    const auto& first = Message().attachments[0];
    EXPECT_EQ(first.name, "Quarterly figures.zip");
    EXPECT_EQ(first.short_name, "QUARTE~1.ZIP");
    EXPECT_EQ(first.long_name, "Quarterly figures.zip");
    EXPECT_EQ(first.extension, ".zip");
    EXPECT_EQ(first.rendering, "picture");
    const auto& second = Message().attachments[1];
    EXPECT_EQ(second.name, "budget.zip");
    EXPECT_EQ(second.short_name, "BUDGET.ZIP");
    EXPECT_EQ(
        world.zip.EntriesOf(first.data),
        (std::vector<std::pair<std::string, std::string>>{{"Quarterly figures.xls", "numbers"}}));
    EXPECT_EQ(Message().updates, 2);
    EXPECT_EQ(Message().subject, "note");
    EXPECT_TRUE(NoTemporaryFiles());
}

TEST_F(TrevixItemRDMTest, LogsTheStepsOfASeparateCompression) {
    Deliver({World::File("a.txt", "data")});

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CManage::TrevixItemRDM: for a.txt on note"));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: separate compression for a.txt; compress in place"));
}

TEST_F(TrevixItemRDMTest, RollupPutsAllIntoOneArchiveInThePlaceOfTheFirst) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("photo.jpg", "p"), World::File("second.txt", "two"),
             World::File("third.doc", "three"), World::File("song.wav", "w"),
             World::File("fifth.xls", "five")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"photo.jpg", "second.zip", "song.wav"}));
    EXPECT_EQ(world.zip.EntriesOf(Message().attachments[1].data),
              (std::vector<std::pair<std::string, std::string>>{
                  {"second.txt", "two"}, {"third.doc", "three"}, {"fifth.xls", "five"}}));
    EXPECT_EQ(Message().updates, 1);
    EXPECT_EQ(world.messaging.state.deleted_attachments,
              (std::vector<std::string>{"fifth.xls", "third.doc"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: RollupIndex=2"));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: rollup attachment= 2"));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: adding third.doc to rollup"));
    EXPECT_TRUE(NoTemporaryFiles());
    const RunSummary& summary = world.session->Manage()->Summary();
    EXPECT_EQ(summary.attachments_zipped, 3);
    EXPECT_EQ(summary.messages_changed, 1);
    EXPECT_EQ(summary.original_bytes, 12);
}

TEST_F(TrevixItemRDMTest, RollupKeepsTwoAttachmentsOfOneName) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("a.txt", "one"), World::File("a.txt", "two")});

    world.Run("51,F1");

    ASSERT_EQ(Names(), (std::vector<std::string>{"a.zip"}));
    EXPECT_EQ(world.zip.EntriesOf(Message().attachments[0].data).size(), 2U);
}

TEST_F(TrevixItemRDMTest, NeverCompressesEmbeddedImagesAndOtherKinds) {
    AttachmentData embedded = World::File("logo.png", "image");
    embedded.content_id = "logo@x";
    AttachmentData message = World::File("forwarded", "mail");
    message.type = kAttachmentEmbeddedMessage;
    Deliver({embedded, message});

    world.Run("51,F1");

    EXPECT_EQ(Message().updates, 0);
    EXPECT_TRUE(world.Logged("TrevixItemRDM: skipping logo.png: embedded image"));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: no compression, wrong file type for forwarded"));
}

TEST_F(TrevixItemRDMTest, SkipsExcludedAndBlockedExtensions) {
    Deliver({World::File("a.ZIP", "z"), World::File("run.bat", "b")});

    world.Run("51,F1");

    EXPECT_EQ(Message().updates, 0);
    EXPECT_TRUE(world.Logged("TrevixItemRDM: skipping a.ZIP: excluded file type"));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: skipping run.bat - excluded file type"));
}

TEST_F(TrevixItemRDMTest, ANameWithoutADotIsItsOwnExtension) {
    world.Setting("ExcludeCompress", ".report");
    Deliver({World::File("Report", "text"), World::File("Reporter", "text")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"Report", "Reporter.zip"}));
    EXPECT_TRUE(world.Logged(" skipping Report: excluded file type"));
}

TEST_F(TrevixItemRDMTest, AnUpperCaseListEntryMatchesNothing) {
    world.Setting("ExcludeCompress", ".TXT");
    Deliver({World::File("a.TXT", "text")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.zip"}));
}

TEST_F(TrevixItemRDMTest, TheBlockListOfTheRegistryReplacesTheBuiltInOne) {
    world.Setting("Block", ".txt");
    Deliver({World::File("a.txt", "text"), World::File("run.bat", "b")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt", "run.zip"}));
}

TEST_F(TrevixItemRDMTest, CompressesExactlyTheThresholdAndSkipsOneByteLess) {
    world.Setting("ZipBytesCompress", "100");
    Deliver({World::File("at.txt", std::string(100, 'a')),
             World::File("below.txt", std::string(99, 'b'))});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"at.zip", "below.txt"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: skipping below.txt; size of 99<100"));
}

struct LogNameRow {
    const char* name;
    const char* file_name;
    const char* combine;
};

class TrevixItemRDMLogName : public testing::TestWithParam<LogNameRow> {};

TEST_P(TrevixItemRDMLogName, IsArchivedFromMemoryByteExactAndNeverWrittenToAFile) {
    World world;
    world.Setting("CombineCompress", GetParam().combine);
    world.AddMessage(*world.inbox, "note", {World::File(GetParam().file_name, "last byte: Z")});
    bool seen = false;
    world.zip.on_action = [&] {
        for (const auto& [path, bytes] : world.files.files) {
            const bool staged = path.find("/stage-") != std::string::npos;
            seen = seen || (staged && path.ends_with(std::string("/") + GetParam().file_name));
        }
    };

    world.Run("51,F1");

    const auto& attachment = world.inbox->messages[0].attachments[0];
    EXPECT_EQ(
        world.zip.EntriesOf(attachment.data),
        (std::vector<std::pair<std::string, std::string>>{{GetParam().file_name, "last byte: Z"}}));
    EXPECT_FALSE(seen);
}

constexpr LogNameRow kLogNames[] = {
    {"LowerCaseSeparate", "trevix.log", "False"},
    {"UpperCaseSeparate", "TREVIX.LOG", "False"},
    {"MixedCaseRollup", "Trevix.Log", "True"},
};

INSTANTIATE_TEST_SUITE_P(Names, TrevixItemRDMLogName, testing::ValuesIn(kLogNames),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(TrevixItemRDMTest, HostileNamesStayInsideTheStagingDirectory) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("../../etc/passwd.txt", "x"), World::File("a\"b.txt", "y"),
             World::File(std::string(300, 'n') + ".txt", "z"), World::File("", "e")});
    std::vector<std::string> outside;
    world.zip.on_action = [&] {
        for (const auto& [path, bytes] : world.files.files) {
            if (bytes == "x" && path.find("/ZipTemp/stage-") == std::string::npos) {
                outside.push_back(path);
            }
        }
    };

    world.Run("51,F1");

    EXPECT_TRUE(outside.empty());
    ASSERT_EQ(Message().attachments.size(), 1U);
    EXPECT_EQ(world.zip.EntriesOf(Message().attachments[0].data).size(), 4U);
}

TEST_F(TrevixItemRDMTest, AnAttachmentThatCannotBeReadExactlyIsLeftAndTheOthersTreated) {
    world.Setting("CombineCompress", "True");
    AttachmentData broken = World::File("broken.txt", "x");
    broken.refuses_reading = true;
    Deliver({broken, World::File("good.txt", "y")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"broken.txt", "good.zip"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: unable to read broken.txt: "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_left, 1);
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 0);
}

TEST_F(TrevixItemRDMTest, AnExtractFileThatIsDeniedIsTriedAgain) {
    Deliver({World::File("a.txt", "x")});
    world.Logon();
    world.plan.FailCalls("attachment.WriteToFile", MessagingError(kNoAccess));

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("TrevixItemRDM: unable to read a.txt: "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_left, 0);
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

TEST_F(TrevixItemRDMTest, ADamagedTrevixLogIsLeftWithAReasonAndTheOthersTreated) {
    for (const char* combine : {"False", "True"}) {
        World damaged;
        damaged.Setting("CombineCompress", combine);
        AttachmentData log = World::File("Trevix.LOG", "x");
        log.refuses_reading = true;
        damaged.AddMessage(*damaged.inbox, "note", {log, World::File("good.txt", "y")});

        damaged.Run("51,F1");

        const auto& attachments = damaged.inbox->messages[0].attachments;
        ASSERT_EQ(attachments.size(), 2U);
        EXPECT_EQ(attachments[0].name, "Trevix.LOG");
        EXPECT_EQ(attachments[1].name, "good.zip");
        EXPECT_TRUE(damaged.Logged("TrevixItemRDM: unable to read Trevix.LOG: "));
        EXPECT_EQ(damaged.session->Manage()->Summary().messages_left, 1);
    }
}

struct UnreadRow {
    const char* name;
    const char* call;
};

class TrevixItemRDMUnread : public testing::TestWithParam<UnreadRow> {};

TEST_P(TrevixItemRDMUnread, WhatCannotBeReadNeverPassesForSomethingElse) {
    World world;
    AttachmentData embedded = World::File("logo.png", "image");
    embedded.content_id = "logo@x";
    world.AddMessage(*world.inbox, "note", {embedded}).message_class = "IPM.Note";
    world.Logon();
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress")) {
            world.plan.FailCalls(GetParam().call, MessagingError(kDiskError));
        }
    };

    world.Run("51,F1");

    EXPECT_EQ(world.inbox->messages[0].updates, 0);
    EXPECT_EQ(world.inbox->messages[0].subject, "note");
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
    EXPECT_TRUE(world.Logged("[Collaboration Data Objects - [MAPI_E_DISK_ERROR"));
}

constexpr UnreadRow kUnreadCalls[] = {
    {"Subject", "message.Subject"}, {"Class", "message.Field"},        {"Name", "attachment.Name"},
    {"Type", "attachment.Type"},    {"ContentId", "attachment.Field"}, {"Item", "attachments.Item"},
};

INSTANTIATE_TEST_SUITE_P(Calls, TrevixItemRDMUnread, testing::ValuesIn(kUnreadCalls),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(TrevixItemRDMTest, AWrongArchiveNeverReplacesAnAttachment) {
    world.zip.proof_error = MessagingError(kCorruptData, "bytes differ");
    Deliver({World::File("a.txt", "data")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(Message().updates, 0);
    EXPECT_TRUE(world.Logged("TrevixItemRDM: archive check failed for a.txt; message left: bytes"));

    World rollup;
    rollup.zip.proof_error = MessagingError(kCorruptData, "bytes differ");
    rollup.AddMessage(*rollup.inbox, "note",
                      {World::File("a.txt", "1"), World::File("b.txt", "2")});
    rollup.Run("51,F1");
    EXPECT_EQ(rollup.inbox->messages[0].attachments.size(), 2U);
    EXPECT_EQ(rollup.inbox->messages[0].updates, 0);
}

TEST_F(TrevixItemRDMTest, ARollupThatLacksItsFirstAttachmentDoesNotTakeItsPlace) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("first.txt", "1"), World::File("second.txt", "2")});
    world.zip.fail_items = {"first.txt"};

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"first.txt", "second.txt"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: failed to add first.txt to "));
    EXPECT_TRUE(world.Logged(" lacks its first attachment; message left"));
}

TEST_F(TrevixItemRDMTest, ALaterAttachmentThatFailsStaysBesideTheRollup) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("first.txt", "1"), World::File("second.txt", "2"),
             World::File("third.txt", "3")});
    world.zip.fail_items = {"second.txt"};

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"first.zip", "second.txt"}));
    EXPECT_EQ(world.zip.EntriesOf(Message().attachments[0].data).size(), 2U);
}

TEST_F(TrevixItemRDMTest, AMissingRollupIsReportedAndNothingChanged) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("a.txt", "1")});
    world.zip.fail_items = {"a.txt"};

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("TrevixItemRDM: missing rollup "));
    EXPECT_EQ(Message().updates, 0);
}

TEST_F(TrevixItemRDMTest, AMessageThatRefusesADeletionIsNotSavedAtAll) {
    world.Setting("CombineCompress", "True");
    AttachmentData stubborn = World::File("b.txt", "2");
    stubborn.refuses_deleting = true;
    Deliver({World::File("a.txt", "1"), stubborn});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(Message().updates, 0);
}

TEST_F(TrevixItemRDMTest, APartThatRefusesToBeWrittenLeavesTheOthersTreated) {
    AttachmentData sealed = World::File("signed.txt", "1");
    sealed.refuses_writing = true;
    Deliver({sealed, World::File("b.txt", "2")});

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"signed.txt", "b.zip"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM: signed.txt left as it was: [Collab"));
}

TEST_F(TrevixItemRDMTest, AFailedSaveIsReportedAndStillCounted) {
    Deliver({World::File("a.txt", "data")});
    world.zip.on_action = [&] { ++world.inbox->messages[0].revision; };

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt"}));
    EXPECT_TRUE(
        world.Logged("TrevixItemRDM: err at save for a.txt [Collaboration Data Objects - "
                     "[MAPI_E_OBJECT_CHANGED(80040109)]]"));
    const RunSummary& summary = world.session->Manage()->Summary();
    EXPECT_EQ(summary.folders[0].compressed_count, 1);
    EXPECT_EQ(summary.attachments_zipped, 0);
    EXPECT_EQ(summary.messages_failed, 1);
}

TEST_F(TrevixItemRDMTest, CancelBetweenAttachmentsLeavesTheRest) {
    Deliver({World::File("a.txt", "1"), World::File("b.txt", "2")});
    int actions = 0;
    world.zip.on_action = [&] {
        // The first action of a run zips the page whose picture archives get.
        if (++actions == 2) world.session->Manage()->Cancel(true);
    };

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM:user cancel, exiting For loop"));
    EXPECT_EQ(world.session->Manage()->Summary().folders[0].compressed_count, 1);
}

TEST_F(TrevixItemRDMTest, CancelAfterTheLastAttachmentLeavesTheMessage) {
    world.Setting("CombineCompress", "True");
    Deliver({World::File("a.txt", "1")});
    int actions = 0;
    world.zip.on_action = [&] {
        if (++actions == 2) world.session->Manage()->Cancel(true);
    };

    world.Run("51,F1");

    EXPECT_EQ(Names(), (std::vector<std::string>{"a.txt"}));
    EXPECT_TRUE(world.Logged("TrevixItemRDM:user cancel after final attachment"));
}

TEST_F(TrevixItemRDMTest, CancelAtTheHeadLeavesTheMessageUntouched) {
    Deliver({World::File("a.txt", "1")});
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress")) world.session->Manage()->Cancel(true);
    };

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("TrevixItemRDM:user Cancel; exiting at head of procedure"));
    EXPECT_EQ(Message().updates, 0);
}

TEST_F(TrevixItemRDMTest, ASecondRunChangesNothing) {
    Deliver({World::File("a.txt", "1"), World::File("b.doc", "2")});
    world.Run("51,F1");
    const int updates = Message().updates;
    world.ci.gFolderRST.reset();
    world.Results()->attachments.clear();
    world.clock.AdvanceMinutes(10);

    world.Run("51,F1");

    EXPECT_EQ(Message().updates, updates);
    EXPECT_TRUE(world.Logged(" skipping a.zip: excluded file type"));
}

TEST_F(TrevixItemRDMTest, WithoutAPrivateDirectoryTheMessageIsLeft) {
    Deliver({World::File("a.txt", "1")});
    world.Logon();
    world.plan.FailCalls("files.MakeStaging", RuntimeError(kDiskFull));

    world.Run("51,F1");

    EXPECT_EQ(Message().updates, 0);
    EXPECT_TRUE(world.Logged("TrevixItemRDM: no private directory in "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

}  // namespace
}  // namespace trevix
