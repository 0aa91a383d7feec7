#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexRow;
using test::IndexWorld;
using test::World;
using test::Zips;

struct SafeIndexAttachmentsTest : testing::Test {
    fakes::MessageData& Add(std::vector<fakes::AttachmentData> attachments) {
        return world.AddMessage(*world.inbox, "subject", std::move(attachments));
    }
    IndexRow OnlyRow() {
        world.Rebuild();
        const auto rows = world.Rows();
        EXPECT_EQ(rows.size(), 1U);
        return rows.empty() ? IndexRow() : rows.front();
    }
    // Rows in memory, saved or not.
    std::vector<std::vector<Variant>>& KeptRows() {
        return static_cast<fakes::FakeRecordSet&>(*world.ci.gAttachRST).rows;
    }
    IndexWorld world;
};

TEST_F(SafeIndexAttachmentsTest, AWholeAttachmentHasOneRowThatSaysAllOfItsMessage) {
    fakes::MessageData& message = Add({World::File("a.txt", "alpha")});
    message.received = Date{39300.25};
    message.sender_type = "SMTP";
    message.sender_address = "eva@example.org";
    message.recipients = {{1, "anna@example.org"}, {2, "ben@example.org"}, {3, "hidden@x"}};
    message.display_to = "Anna";
    message.display_cc = "Ben";
    message.attachments[0].modified = Date{39200.5};
    const std::string id = message.id;

    const IndexRow row = OnlyRow();

    const IndexRow wanted = {{"FileName", "a.txt"},
                             {"FileIndex", "0"},
                             {"FileDate", "39200.5"},
                             {"FileSize", "5"},
                             {"ZipIndex", "-1"},
                             {"ZipFile", ""},
                             {"Folder", "Inbox"},
                             {"EntryID", id},
                             {"StoreID", ""},
                             {"Subject", "subject"},
                             {"From", "eva@example.org"},
                             {"Sender", "eva@example.org"},
                             {"To", "anna@example.org; ben@example.org"},
                             {"DisplayTo", "Anna; Ben"},
                             {"Received", "39300.25"},
                             {"FolderKey", "2"}};
    EXPECT_EQ(row, wanted);
    EXPECT_TRUE(world.Logged("CIndex::SafeIndexAttachments:for subject"));
    EXPECT_TRUE(world.Logged("CIndex::SafeIndexAttachments:Attachment count for 'subject'=1"));
}

TEST_F(SafeIndexAttachmentsTest, OnlyNotesHaveRecipients) {
    fakes::MessageData& message = Add({World::File("a.txt", "alpha")});
    message.message_class = "IPM.Post";
    message.recipients = {{1, "anna@example.org"}};
    message.display_to = "Anna";

    const IndexRow row = OnlyRow();

    EXPECT_EQ(row.at("To"), "");
    EXPECT_EQ(row.at("DisplayTo"), "");
}

TEST_F(SafeIndexAttachmentsTest, AnyClassThatContainsNoteIsOneWhateverItsCase) {
    fakes::MessageData& message = Add({World::File("a.txt", "alpha")});
    message.message_class = "REPORT.ipm.note.NDR";
    message.display_to = "Anna";

    EXPECT_EQ(OnlyRow().at("DisplayTo"), "Anna");
}

TEST_F(SafeIndexAttachmentsTest, AMessageWithoutAttachmentsAddsNoRowAndWritesOnlyTheForLine) {
    Add({World::File("a.txt", "alpha")});
    // It loses them between the listing and the look.
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event == "Progress Inbox 1") world.inbox->messages[0].attachments.clear();
    };

    world.Rebuild();

    EXPECT_TRUE(world.Rows().empty());
    EXPECT_EQ(world.TimesLogged("CIndex::SafeIndexAttachments:"), 1);
    EXPECT_TRUE(world.Logged("CIndex::SafeIndexAttachments:for subject"));
}

TEST_F(SafeIndexAttachmentsTest, AZipAttachmentYieldsOnlyTheRowsOfTheFilesInIt) {
    Add({World::File("Two.ZIP", Zips::Archive({{"one.txt", "1234"}, {"two.txt", "12"}}))});

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"one.txt", "two.txt"}));
    EXPECT_EQ(world.Column("ZipFile"), (std::vector<std::string>{"Two.ZIP", "Two.ZIP"}));
    EXPECT_EQ(world.Column("ZipIndex"), (std::vector<std::string>{"0", "1"}));
    EXPECT_EQ(world.Column("FileSize"), (std::vector<std::string>{"4", "2"}));
    for (const auto& [path, bytes] : world.files.files) {
        EXPECT_EQ(path.find("Two"), std::string::npos) << path;
    }
}

TEST_F(SafeIndexAttachmentsTest, AZipAttachmentWithAHostileNameIsSavedInItsOwnDirectoryOnly) {
    Add({World::File("../../up.zip", Zips::Archive({{"one.txt", "1"}}))});
    world.Logon();
    const auto before = world.files.files;
    bool escaped = false;
    world.loop.on_pump = [&](int) {
        for (const auto& [path, bytes] : world.files.files) {
            const bool new_zip = path.ends_with("zip") && !before.contains(path);
            if (new_zip && path.find("/ZipTemp/stage-") == std::string::npos) escaped = true;
            if (path.find("/../") != std::string::npos) escaped = true;
        }
    };

    world.Rebuild();

    EXPECT_FALSE(escaped);
    EXPECT_EQ(world.Column("ZipFile"), (std::vector<std::string>{"../../up.zip"}));
}

TEST_F(SafeIndexAttachmentsTest, ADamagedZipAttachmentHasNoRow) {
    Add({World::File("bad.zip", "no archive"), World::File("a.txt", "alpha")});

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.index().Summary().messages_failed, 0);
}

TEST_F(SafeIndexAttachmentsTest, AnAttachmentWithNeitherNameNorShortNameIsSkippedSilently) {
    Add({World::File("", "x"), World::File("a.txt", "alpha")});
    const int lines = 2;  // "for" and the count

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.TimesLogged("CIndex::SafeIndexAttachments:"), lines);
}

TEST_F(SafeIndexAttachmentsTest, WithoutANameTheShortNameCounts) {
    fakes::AttachmentData attachment = World::File("", "x");
    attachment.short_name = "REPORT~1.DOC";
    Add({attachment});

    EXPECT_EQ(OnlyRow().at("FileName"), "REPORT~1.DOC");
}

TEST_F(SafeIndexAttachmentsTest, ReferencesAreNamedByTheirDisplayName) {
    fakes::AttachmentData reference = World::File("ignored", "");
    reference.method = 2;
    reference.display_name = "plan.zip";
    fakes::AttachmentData only = reference;
    only.method = 4;
    only.display_name = "list.doc";
    fakes::AttachmentData nameless = only;
    nameless.display_name.clear();
    fakes::AttachmentData embedded = World::File("m", "x");
    embedded.type = kAttachmentEmbeddedMessage;
    Add({reference, only, nameless, embedded});

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"plan.zip", "list.doc"}));
    EXPECT_EQ(world.Column("ZipIndex"), (std::vector<std::string>{"-3", "-2"}));
}

TEST_F(SafeIndexAttachmentsTest, WithoutATimeOfItsOwnAnAttachmentHasTheMessages) {
    fakes::AttachmentData dated = World::File("b.txt", "b");
    dated.modified = Date{2};  // 1900-01-01 stands for none
    Add({World::File("a.txt", "a"), dated}).received = Date{39300.25};

    world.Rebuild();

    EXPECT_EQ(world.Column("FileDate"), (std::vector<std::string>{"39300.25", "39300.25"}));
}

TEST_F(SafeIndexAttachmentsTest, CancellingDuringAMessagesAttachmentsLeavesTheRowsInPlace) {
    Add({World::File("a.txt", "alpha"), World::File("z.zip", Zips::Archive({{"one.txt", "1"}})),
         World::File("b.txt", "b")});
    world.Logon();
    int pumps = 0;
    world.loop.on_pump = [&](int) {
        // The scan pumps before the message, the listing for the entry.
        if (KeptRows().size() == 1) world.index().Cancel(true);
        ++pumps;
    };

    world.Rebuild();

    EXPECT_TRUE(world.Logged("CIndex::SafeIndexAttachments: user Cancel"));
    EXPECT_EQ(KeptRows().size(), 2U);
    EXPECT_TRUE(world.End().starts_with("Abort Attachment index canceled for:"));
}

TEST_F(SafeIndexAttachmentsTest, ACancelBeforeAMessageLeavesItAlone) {
    Add({World::File("a.txt", "alpha")});
    world.Logon();
    world.loop.on_pump = [&](int) { world.index().Cancel(true); };

    world.Rebuild();

    EXPECT_TRUE(KeptRows().empty());
    EXPECT_FALSE(world.Logged("Attachment count for"));
    EXPECT_FALSE(world.Logged(" user Cancel"));
}

TEST_F(SafeIndexAttachmentsTest, ADescriptionThatDoesNotFitIsLeftOutAndTheRowStays) {
    fakes::MessageData& message = Add({World::File("a.txt", "alpha"), World::File("b.txt", "b")});
    message.subject = std::string(256, 's');
    message.recipients = {{1, std::string(256, 't')}};
    message.display_to = "Anna";

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(world.Column("Subject"), (std::vector<std::string>{"", ""}));
    EXPECT_EQ(world.Column("To"), (std::vector<std::string>{"", ""}));
    EXPECT_EQ(world.Column("DisplayTo"), (std::vector<std::string>{"Anna", "Anna"}));
    EXPECT_TRUE(world.Logged("CIndex::SafeIndexAttachments: 'a.txt' on 'sss"));
    EXPECT_TRUE(world.Logged("': Subject left out: "));
    EXPECT_TRUE(world.Logged("': To left out: "));
    EXPECT_EQ(world.index().Summary().messages_failed, 0);
}

TEST_F(SafeIndexAttachmentsTest, ANameThatDoesNotFitHasNoRowAndSpoilsNoOther) {
    Add({World::File(std::string(300, 'n') + ".txt", "x"), World::File("b.txt", "b")});

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt"}));
    EXPECT_EQ(world.Column("FileSize"), (std::vector<std::string>{"1"}));
    EXPECT_TRUE(world.Logged(": FileName not written, no row: "));
}

TEST_F(SafeIndexAttachmentsTest, ValuesThatCannotBeReadStayEmpty) {
    Add({World::File("a.txt", "alpha")});
    world.Logon();
    world.index_recorder.on_event = [&](const std::string&) {
        world.plan.FailCalls("message.Field", MessagingError(kNoAccess));
    };
    world.index().Events(&world.index_recorder);
    world.index().Index(true);
    world.loop.FireTimers();

    ASSERT_EQ(KeptRows().size(), 1U);
    EXPECT_EQ(std::get<std::string>(KeptRows()[0][0]), "a.txt");
    EXPECT_TRUE(IsEmpty(KeptRows()[0][14]));
}

TEST_F(SafeIndexAttachmentsTest, AZipAttachmentThatCannotBeListedThisTimeIsTriedAgain) {
    Add({World::File("a.txt", "alpha"), World::File("z.zip", Zips::Archive({{"one.txt", "1"}}))});
    world.Logon();
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event == "Progress Inbox 1") {
            world.plan.FailCalls("attachment.WriteToFile", MessagingError(kNotEnoughDisk));
        }
        if (event.starts_with("Progress Updating")) world.plan.Clear();
    };
    world.Rebuild();
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.index().Summary().messages_failed, 1);
    world.index_recorder.on_event = nullptr;
    world.clock.AdvanceMinutes(10);

    world.Update();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt", "one.txt"}));
}

}  // namespace
}  // namespace trevix
