// Hidden messages and the Outbox.

#include <unistd.h>

#include <fstream>

#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

constexpr const char* kClass = "IPM.Post.Trevix Compression Results";

std::string MakeFile(const std::string& name, const std::string& bytes) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

std::unique_ptr<Messages> HiddenItems(World& world) {
    auto inbox = world.session->GetDefaultFolder(kInboxFolder).value();
    return world.utilities->HiddenItems(inbox->Id().value()).value();
}

std::unique_ptr<Message> OpenOnlyHidden(World& world) {
    auto items = HiddenItems(world);
    const auto rows = world.Rows(*items, {kTagLongTermEntryId});
    EXPECT_EQ(rows.size(), 1U);
    return world.utilities->OpenMessage(world.IdOf(rows[0][0]), "").value();
}

TEST(HiddenMessage, KeepsPropertiesSubjectAndAttachments) {
    World world;
    auto message = HiddenItems(world)->Add(kClass).value();
    ASSERT_TRUE(message->SetSubject("Trevix Compression Results").ok());
    const auto start = message->NamedProperty(kPublicStrings, "StartCI", kTypeTime).value();
    EXPECT_GE(start, 0x80000000U);
    EXPECT_EQ(message->Field(start).error().number, static_cast<int>(kNotFound));
    ASSERT_TRUE(message->SetField(start, Date{39360.5}).ok());
    const auto level = message->NamedProperty(kPublicStrings, "Level", kTypeInteger16).value();
    ASSERT_TRUE(message->SetField(level, std::int16_t{9}).ok());
    const std::string path = MakeFile("trevix-txfolders.zip", "zipped");
    ASSERT_TRUE(message->AttachmentList().value()->Add("txfolders.zip", 0, 1, path).ok());
    ::unlink(path.c_str());
    EXPECT_TRUE(world.mail.hidden.mails.empty());
    ASSERT_TRUE(message->Update().ok());

    auto again = OpenOnlyHidden(world);
    EXPECT_EQ(again->Subject().value(), "Trevix Compression Results");
    EXPECT_EQ(std::get<std::string>(again->Field(kTagMessageClass).value()), kClass);
    // The set in the byte order of memory names the same set.
    const auto same =
        again->NamedProperty("2903020000000000C000000000000046", "StartCI", kTypeTime).value();
    EXPECT_EQ(std::get<Date>(again->Field(same).value()).days, 39360.5);
    const auto other_case = again->NamedProperty(kPublicStrings, "startci", kTypeTime).value();
    EXPECT_FALSE(again->Field(other_case).ok());
    ASSERT_EQ(CountOf(*again), 1);
    EXPECT_EQ(ItemOf(*again, 1)->Name().value(), "txfolders.zip");
    EXPECT_EQ(DataOf(*ItemOf(*again, 1)), "zipped");
}

TEST(HiddenMessage, ConvertsOnReading) {
    World world;
    auto message = HiddenItems(world)->Add(kClass).value();
    const auto as = [&](const char* name, std::uint16_t type) {
        return message->Field(message->NamedProperty(kPublicStrings, name, type).value());
    };
    const auto put = [&](const char* name, std::uint16_t type, const Variant& value) {
        EXPECT_TRUE(
            message->SetField(message->NamedProperty(kPublicStrings, name, type).value(), value)
                .ok());
    };
    put("date", kTypeString8, std::string("10/5/2007 12:00:00 PM"));
    EXPECT_EQ(std::get<Date>(as("date", kTypeTime).value()).days, 39360.5);
    put("when", kTypeTime, Date{39360.5});
    EXPECT_EQ(std::get<std::string>(as("when", kTypeString8).value()), "10/5/2007 12:00:00 PM");
    put("number", kTypeInteger32, std::int32_t{70000});
    EXPECT_EQ(std::get<std::string>(as("number", kTypeString8).value()), "70000");
    EXPECT_EQ(as("number", kTypeInteger16).error().number, kOverflowNumber);
    put("flag", kTypeBoolean, true);
    EXPECT_EQ(std::get<std::int32_t>(as("flag", kTypeInteger32).value()), -1);
    put("text", kTypeString8, std::string("no number"));
    EXPECT_EQ(as("text", kTypeInteger32).error().number, kTypeMismatch);
    put("text", kTypeString8, std::string(" 12 "));
    EXPECT_EQ(std::get<std::int16_t>(as("text", kTypeInteger16).value()), 12);
    EXPECT_EQ(std::get<bool>(as("number", kTypeBoolean).value()), true);
}

TEST(HiddenMessage, RefusesToOverwriteAnothersChange) {
    World world;
    auto first = HiddenItems(world)->Add(kClass).value();
    ASSERT_TRUE(first->Update().ok());
    auto second = OpenOnlyHidden(world);
    ASSERT_TRUE(second->SetSubject("mine").ok());
    ASSERT_TRUE(second->Update().ok());

    ASSERT_TRUE(first->SetSubject("too late").ok());
    EXPECT_EQ(first->Update().error().number, static_cast<int>(kObjectChanged));
    EXPECT_EQ(OpenOnlyHidden(world)->Subject().value(), "mine");
    // The winner can go on.
    EXPECT_TRUE(second->Update().ok());
}

TEST(HiddenMessage, DeletesAttachmentsAndItself) {
    World world;
    auto message = HiddenItems(world)->Add(kClass).value();
    const std::string path = MakeFile("trevix-hidden-a", "bytes");
    auto attachments = message->AttachmentList().value();
    ASSERT_TRUE(attachments->Add("a", 0, 1, path).ok());
    ASSERT_TRUE(attachments->Add("b", 0, 1, path).ok());
    EXPECT_EQ(attachments->Add("c", 0, 1, path + "-missing").error().number, kFileNotFound);
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    ASSERT_TRUE(message->Update().ok());
    EXPECT_EQ(CountOf(*OpenOnlyHidden(world)), 1);
    EXPECT_EQ(ItemOf(*message, 1)->Name().value(), "b");

    ASSERT_TRUE(message->Delete().ok());
    EXPECT_TRUE(world.mail.hidden.mails.empty());
    EXPECT_EQ(message->Delete().error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(message->Update().error().kind, ErrorKind::kGone);
    ::unlink(path.c_str());
}

TEST(HiddenTable, RestrictsByClassWithoutRegardToCaseAndSorts) {
    World world;
    for (const char* subject : {"one", "two"}) {
        world.mail.hidden.now_ns += 1'000'000'000;
        auto message = HiddenItems(world)->Add(kClass).value();
        ASSERT_TRUE(message->SetSubject(subject).ok());
        ASSERT_TRUE(message->Update().ok());
    }
    ASSERT_TRUE(HiddenItems(world)->Add("IPM.Other").value()->Update().ok());

    auto table = world.utilities->CreateTable().value();
    auto items = HiddenItems(world);
    ASSERT_TRUE(table->SetSource(*items).ok());
    ASSERT_TRUE(table
                    ->SetColumns({kTagLongTermEntryId, kTagEntryId, kTagLastModification,
                                  kTagMessageClass, kTagSubject, kTagArticleNumber})
                    .ok());
    ASSERT_TRUE(
        table->Restrict(kTagMessageClass, std::string("ipm.post.trevix compression RESULTS")).ok());
    ASSERT_TRUE(table->Sort(kSortDescending, kTagLastModification).ok());
    EXPECT_EQ(table->RowCount().value(), 2);
    const auto rows = table->GetRows(1).value();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(std::get<std::string>(rows[0][4]), "two");
    EXPECT_TRUE(std::holds_alternative<ErrorValue>(rows[0][5]));
    EXPECT_EQ(world.IdOf(rows[0][0]).size(), 140U);
    EXPECT_EQ(table->GetRows(10).value().size(), 1U);
}

TEST(HiddenMessages, AreOfTheInboxOnly) {
    World world;
    world.mail.AddFolder("Archive", "Archive");
    ASSERT_TRUE(HiddenItems(world)->Add(kClass).value()->Update().ok());
    auto root = world.session->GetInfoStore("").value()->RootFolder().value();
    auto archive = std::move(root->Folders().value()[1]);
    auto hidden = archive->HiddenMessages().value();
    EXPECT_EQ(hidden->Count().value(), 0);
    EXPECT_EQ(hidden->Add(kClass).error().kind, ErrorKind::kUnsupported);
    auto inbox = world.session->GetDefaultFolder(kInboxFolder).value();
    EXPECT_EQ(inbox->HiddenMessages().value()->Count().value(), 1);
    EXPECT_EQ(inbox->MessageList().value()->Count().value(), 0);
}

TEST(Outbox, KeepsItsMessagesFromEveryStore) {
    World world;
    auto outbox = world.session->GetDefaultFolder(kOutboxFolder).value();
    auto messages = outbox->MessageList().value();
    auto message = messages->Add("IPM.Note").value();
    const std::string path = MakeFile("trevix-outbox.zip", "zip");
    ASSERT_TRUE(message->AttachmentList().value()->Add("", 0, 1, path).ok());
    ASSERT_TRUE(message->Update().ok());
    EXPECT_EQ(messages->Count().value(), 1);
    const auto rows = world.Rows(*messages, {kTagEntryId});
    auto opened = world.utilities->OpenMessage(world.IdOf(rows[0][0]), "");
    ASSERT_TRUE(opened.ok()) << opened.error().description;
    auto again = std::move(opened).value();
    EXPECT_EQ(ItemOf(*again, 1)->Name().value(), "trevix-outbox.zip");
    const auto picture = ItemOf(*again, 1)->Field(kTagAttachmentRendering);
    EXPECT_TRUE(std::get<Blob>(picture.value()).empty());
    ASSERT_TRUE(again->Delete().ok());
    EXPECT_EQ(messages->Count().value(), 0);

    EXPECT_TRUE(world.mail.hidden.mails.empty());
    EXPECT_TRUE(world.mail.root.messages.empty());
    EXPECT_EQ(world.session->GetDefaultFolder(5).error().kind, ErrorKind::kNotFound);
    ::unlink(path.c_str());
}

}  // namespace
}  // namespace trevix::mime
