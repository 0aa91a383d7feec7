// Editing stored mail: what changes, what stays, what is refused.

#include <random>

#include "platform/mime/splice.h"
#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

Status Zip(Attachment& attachment, const std::string& data, const std::string& name) {
    TREVIX_RETURN_IF_ERROR(attachment.SetField(kTagAttachmentData, Bytes(data)));
    TREVIX_RETURN_IF_ERROR(attachment.SetName(name));
    TREVIX_RETURN_IF_ERROR(attachment.SetField(kTagAttachmentExtension, std::string(".zip")));
    TREVIX_RETURN_IF_ERROR(attachment.SetField(kTagAttachmentLongName, name));
    TREVIX_RETURN_IF_ERROR(attachment.SetField(kTagAttachmentShortName, std::string("X~1.ZIP")));
    return attachment.SetField(kTagAttachmentRendering, Bytes(""));
}

// Where two texts differ: what both begin with and end with is the same.
struct Change {
    std::string prefix, before, after, suffix;
};

Change ChangeOf(const std::string& old_text, const std::string& new_text) {
    std::size_t head = 0;
    while (head < std::min(old_text.size(), new_text.size()) && old_text[head] == new_text[head]) {
        ++head;
    }
    std::size_t tail = 0;
    while (tail < std::min(old_text.size(), new_text.size()) - head &&
           old_text[old_text.size() - 1 - tail] == new_text[new_text.size() - 1 - tail]) {
        ++tail;
    }
    return {old_text.substr(0, head), old_text.substr(head, old_text.size() - head - tail),
            new_text.substr(head, new_text.size() - head - tail),
            old_text.substr(old_text.size() - tail)};
}

TEST(MailUpdate, ReplacesOnePartAndNoOtherByte) {
    for (const bool crlf : {false, true}) {
        const std::string old_text = crlf ? Crlf(TwoFiles()) : TwoFiles();
        World world;
        auto message = world.Open(old_text);
        ASSERT_EQ(CountOf(*message), 2);
        auto first = ItemOf(*message, 1);
        ASSERT_TRUE(Zip(*first, "PK-zip-bytes", "one.zip").ok());
        ASSERT_TRUE(message->SetSubject("two").ok());

        const Status updated = message->Update();
        ASSERT_TRUE(updated.ok()) << updated.error().description;

        const std::string expected_part =
            "Content-Type: application/zip;\n\tname=\"one.zip\"\n"
            "Content-Transfer-Encoding: base64\n"
            "X-Part: kept  \n"
            "Content-Disposition: attachment;\n\tfilename=\"one.zip\"\n\n"
            "UEstemlwLWJ5dGVz";
        const std::size_t begin = TwoFiles().find("Content-Type: application/pdf");
        const std::size_t end = TwoFiles().find("\n--b  \n");
        std::string expected = TwoFiles().substr(0, begin) + expected_part + TwoFiles().substr(end);
        if (crlf) expected = Crlf(expected);
        EXPECT_EQ(world.Stored(), expected);
        EXPECT_EQ(DataOf(*first), "PK-zip-bytes");
        EXPECT_EQ(first->Name().value(), "one.zip");
    }
}

TEST(MailUpdate, KeepsTheLineEndsOfEachPlace) {
    // The message has line feeds, the part's header returns and line feeds.
    std::string text = TwoFiles();
    const std::size_t begin = text.find("Content-Type: application/pdf");
    const std::size_t end = text.find("QUJD");
    text = text.substr(0, begin) + Crlf(text.substr(begin, end - begin)) + text.substr(end);
    World world;
    auto message = world.Open(text);
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), std::string(100, 'z'), "one.zip").ok());
    ASSERT_TRUE(message->Update().ok());

    const Change change = ChangeOf(text, world.Stored());
    EXPECT_NE(change.after.find("name=\"one.zip\"\r\n"), std::string::npos);
    EXPECT_EQ(change.after.find("base64\nX"), std::string::npos);
    EXPECT_TRUE(change.suffix.starts_with("\n--b  \nContent-Type: application/msword"));
}

TEST(MailUpdate, WritesNothingWithoutAChange) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(message->SetSubject("two").ok());

    ASSERT_TRUE(message->Update().ok());

    EXPECT_EQ(world.mail.commits, 0);
    for (const std::string& call : world.plan.calls())
        EXPECT_NE(call, "mail.Stage");
    EXPECT_FALSE(message->SetSubject("other").ok());
}

TEST(MailUpdate, GivesTheMessageItsNewIdAndCanBeRepeated) {
    World world;
    auto message = world.Open(TwoFiles());
    const std::string old_id = world.IdOf(message->Field(kTagEntryId).value());
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip1", "one.zip").ok());
    ASSERT_TRUE(message->Update().ok());
    const std::string second_id = world.IdOf(message->Field(kTagEntryId).value());
    ASSERT_TRUE(Zip(*ItemOf(*message, 2), "zip2", "two.zip").ok());
    ASSERT_TRUE(message->Update().ok());
    const std::string third_id = world.IdOf(message->Field(kTagEntryId).value());

    EXPECT_NE(old_id, second_id);
    EXPECT_NE(second_id, third_id);
    EXPECT_EQ(world.utilities->OpenMessage(old_id, "").error().kind, ErrorKind::kNotFound);
    auto again = world.utilities->OpenMessage(third_id, "");
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(DataOf(*ItemOf(*again.value(), 1)), "zip1");
    EXPECT_EQ(DataOf(*ItemOf(*again.value(), 2)), "zip2");
    EXPECT_EQ(world.mail.commits, 2);
}

TEST(MailUpdate, ChangesNothingWhenTheStoreSaysNo) {
    for (const char* call : {"mail.Stage", "mail.Commit"}) {
        for (const std::uint32_t code : {kNotEnoughDisk, kNoAccess, kDiskError, kObjectDeleted}) {
            World world;
            auto message = world.Open(TwoFiles());
            ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip1", "one.zip").ok());
            world.plan.FailCalls(call, MessagingError(code));

            const Status updated = message->Update();

            ASSERT_FALSE(updated.ok());
            EXPECT_EQ(updated.error().number, static_cast<int>(code));
            EXPECT_EQ(world.Stored(), TwoFiles());
            EXPECT_EQ(world.mail.commits, 0);

            // What was asked for is still wanted.
            world.plan.Clear();
            EXPECT_TRUE(message->Update().ok());
            EXPECT_EQ(world.mail.commits, 1);
        }
    }
}

// A store that hands back other bytes than it was given.
class LyingStore final : public MailStore {
 public:
    LyingStore(MailStore& store, std::size_t at) : store_(store), at_(at) {}
    std::string address() const override { return store_.address(); }
    std::string display_name() const override { return store_.display_name(); }
    std::string inbox_path() const override { return store_.inbox_path(); }
    Result<std::vector<MailFolder>> Folders() override { return store_.Folders(); }
    Result<MailChange> List(const std::string& folder, const MailListing* known) override {
        return store_.List(folder, known);
    }
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override {
        return store_.Read(folder, entry);
    }
    HiddenMailStore& Hidden() override { return store_.Hidden(); }
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override {
        std::string bytes = content.ToString().value();
        bytes[at_ % bytes.size()] ^= 1;
        return store_.Stage(folder, entry, Blob::FromString(bytes));
    }

 private:
    MailStore& store_;
    std::size_t at_;
};

TEST(MailUpdate, NeverCommitsBytesThatAreNotWhatWasComposed) {
    for (std::size_t at = 0; at < 500; at += 7) {
        World world;
        LyingStore liar(world.mail, at);
        OneStoreProvider provider(liar);
        auto factory = MessagingFactoryOver(provider, world.cache, world.clock);
        auto session = factory->CreateSession().value();
        ASSERT_TRUE(session->Logon({"fake", ""}).ok());
        world.Deliver(TwoFiles());
        auto messages = session->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
        const auto rows = world.Rows(*messages, {kTagEntryId});
        auto utilities = factory->CreateUtilities().value();
        auto message = std::move(utilities->OpenMessage(world.IdOf(rows[0][0]), "")).value();
        ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", "one.zip").ok());

        EXPECT_EQ(message->Update().error().number, static_cast<int>(kDiskError));

        EXPECT_EQ(world.mail.commits, 0);
        EXPECT_EQ(world.Stored(), TwoFiles());
    }
}

TEST(MailUpdate, SurvivesAFailureOfAnyCall) {
    const std::string zipped = [] {
        World world;
        auto message = world.Open(TwoFiles());
        EXPECT_TRUE(Zip(*ItemOf(*message, 1), "zip", "one.zip").ok());
        EXPECT_TRUE(message->Update().ok());
        return world.Stored();
    }();
    for (int nth = 1; nth < 12; ++nth) {
        for (const auto mode :
             {fakes::FaultPlan::Mode::kOnce, fakes::FaultPlan::Mode::kFromThenOn}) {
            World world;
            auto message = world.Open(TwoFiles());
            world.plan.FailCall(static_cast<int>(world.plan.calls().size()) + nth, mode,
                                MessagingError(kDiskError));
            const bool saved =
                Zip(*ItemOf(*message, 1), "zip", "one.zip").ok() && message->Update().ok();
            EXPECT_EQ(world.Stored(), saved ? zipped : TwoFiles());
        }
    }
}

ReadMessage ReadForProof(const std::string& text) {
    ReadMessage message;
    message.bytes = Blob::FromString(text);
    message.tree = ReadPartTree(message.bytes).value();
    message.shape = ShapeOf(message.tree);
    return message;
}

TEST(SpliceProof, RefusesAnyOtherMessage) {
    const ReadMessage old = ReadForProof(TwoFiles());
    AttachmentEdit edit;
    edit.data = Blob::FromString("zip");
    edit.name = "one.zip";
    const std::vector<Splice> splices = PlanSplices(old, {edit});
    const std::string good = ApplySplices(old.bytes, splices).ToString().value();
    HelperThread helper;
    const auto prove = [&](const std::string& bytes) {
        const Blob blob = Blob::FromString(bytes);
        return ReadBackEdited(old, {edit}, splices, blob, blob, helper).ok();
    };
    ASSERT_TRUE(prove(good));

    const auto replaced = [&good](const std::string& from, const std::string& to) {
        std::string bytes = good;
        bytes.replace(bytes.find(from), from.size(), to);
        return bytes;
    };
    EXPECT_FALSE(prove(replaced("emlw", "emlx")));
    EXPECT_FALSE(prove(replaced("REVG\nRw==", "REVG\nRw=")));
    EXPECT_FALSE(prove(replaced("filename=\"two.doc\"", "filename=\"too.doc\"")));
    EXPECT_FALSE(prove(replaced("filename=\"one.zip\"", "filename=\"own.zip\"")));
    EXPECT_FALSE(prove(replaced("emlw\n", "emlw\n--b\nX: 1\n\nmore\n")));
    EXPECT_FALSE(prove(replaced("\n--b--", "")));
    EXPECT_FALSE(prove(replaced("the text\n--b\n", "the text\n")));
    EXPECT_FALSE(prove(replaced("base64\nX-Part", "7bit\nX-Part")));
    EXPECT_FALSE(prove("Subject: x\n\nnothing"));
}

TEST(MailUpdate, IsRefusedWhenTheMessageWasFlaggedOrIsGone) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip1", "one.zip").ok());
    world.mail.SetFlags("", world.mail.root.messages.back().key, "S");
    EXPECT_EQ(message->Update().error().number, static_cast<int>(kObjectChanged));
    EXPECT_EQ(world.Stored(), TwoFiles());

    World other;
    auto gone = other.Open(TwoFiles());
    ASSERT_TRUE(Zip(*ItemOf(*gone, 1), "zip1", "one.zip").ok());
    other.mail.RemoveMessage("", other.mail.root.messages.back().key);
    EXPECT_EQ(gone->Update().error().number, static_cast<int>(kObjectDeleted));
}

TEST(MailUpdate, WritesNamesThatAreNotAscii) {
    World world;
    auto message = world.Open(TwoFiles());
    const std::string name =
        "\xC3\x9C"
        "bersicht \"2024\" \xE6\x97\xA5\xE6\x9C\xAC.zip";
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", name).ok());
    ASSERT_TRUE(message->Update().ok());

    EXPECT_NE(world.Stored().find(
                  "\tfilename=\"_bersicht _2024_ __.zip\";\n"
                  "\tfilename*=utf-8''%C3%9Cbersicht%20_2024_%20%E6%97%A5%E6%9C%AC.zip\n"),
              std::string::npos)
        << world.Stored();
    EXPECT_EQ(ItemOf(*world.OpenLast(), 1)->Name().value(),
              "\xC3\x9C"
              "bersicht _2024_ \xE6\x97\xA5\xE6\x9C\xAC.zip");
}

TEST(MailUpdate, FoldsLongNames) {
    std::string name;
    for (int i = 0; i < 120; ++i)
        name += "\xC3\xA4";
    name += ".zip";
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", name).ok());
    ASSERT_TRUE(message->Update().ok());

    EXPECT_NE(world.Stored().find("filename*0*=utf-8''"), std::string::npos);
    EXPECT_NE(world.Stored().find("filename*1*="), std::string::npos);
    EXPECT_EQ(ItemOf(*world.OpenLast(), 1)->Name().value(), name);
}

TEST(MailUpdate, RenamesWithoutTouchingTheContent) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(ItemOf(*message, 2)->SetName("a\"b/second.doc").ok());
    const Status updated = message->Update();
    ASSERT_TRUE(updated.ok()) << updated.error().description;

    auto again = world.OpenLast();
    EXPECT_EQ(ItemOf(*again, 2)->Name().value(), "second.doc");
    EXPECT_EQ(DataOf(*ItemOf(*again, 2)), "DEFG");
    EXPECT_NE(world.Stored().find("REVG\nRw=="), std::string::npos);
}

TEST(MailUpdate, DropsFieldsThatDescribeTheOldBytesAndKeepsTheOthers) {
    World world;
    auto message = world.Open(
        "Subject: x\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
        "Content-ID: <a@b>\nContent-MD5: xx\nContent-Description: old name.txt\n"
        "content-type: application/octet-stream; name=\"old name.txt\"; x-unix-mode=0644\n"
        "Content-Location: http://x/\nX-Apple-Part-Url: y\nX-Attachment-Id: f_1\n"
        "Content-Disposition: inline; size=5; filename=\"old name.txt\"\n\nhello\n--b--\n");
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", "old name.zip").ok());
    ASSERT_TRUE(message->Update().ok());

    EXPECT_EQ(world.Stored(),
              "Subject: x\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
              "Content-ID: <a@b>\nContent-Description: old name.zip\n"
              "Content-Type: application/zip;\n\tname=\"old name.zip\"\n"
              "X-Attachment-Id: f_1\n"
              "Content-Disposition: inline;\n\tfilename=\"old name.zip\"\n"
              "Content-Transfer-Encoding: base64\n\nemlw\n--b--\n");
}

TEST(MailUpdate, ReplacesAnAttachmentThatIsTheWholeMessage) {
    World world;
    auto message = world.Open(
        "From x Mon Jan  1 00:00:00 2001\nSubject: pdf\nX-Apple-Auto-Saved: 1\nLines: 3\n"
        "Content-Type: application/pdf; name=a.pdf\nMessage-ID: <1@x>\n\nline\nline\n");
    ASSERT_EQ(CountOf(*message), 1);
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", "a.zip").ok());
    const Status updated = message->Update();
    ASSERT_TRUE(updated.ok()) << updated.error().description;

    EXPECT_EQ(world.Stored(),
              "From x Mon Jan  1 00:00:00 2001\nSubject: pdf\nX-Apple-Auto-Saved: 1\n"
              "Content-Type: application/zip;\n\tname=\"a.zip\"\nMessage-ID: <1@x>\n"
              "MIME-Version: 1.0\nContent-Transfer-Encoding: base64\n"
              "Content-Disposition: attachment;\n\tfilename=\"a.zip\"\n\nemlw\n");
}

TEST(MailUpdate, ReplacesTheLastPartOfAnUnclosedMessage) {
    const std::string head =
        "Subject: x\nContent-Type: multipart/mixed; boundary=b\n\n--b\nX: 1\n\ntext\n--b\n";
    World world;
    auto message = world.Open(head + "Content-Type: application/x; name=a.bin\n\nold content\n");
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", "a.zip").ok());
    ASSERT_TRUE(message->Update().ok());
    EXPECT_TRUE(world.Stored().starts_with(head));
    EXPECT_TRUE(world.Stored().ends_with("\n\nemlw\n"));
}

TEST(MailUpdate, ReplacesAndDeletesInOneGo) {
    World world;
    const std::string text = TwoFiles();
    auto message = world.Open(text);
    auto second = ItemOf(*message, 2);
    ASSERT_TRUE(Zip(*ItemOf(*message, 1), "zip", "one.zip").ok());
    ASSERT_TRUE(second->Delete().ok());
    EXPECT_EQ(CountOf(*message), 1);
    EXPECT_EQ(second->Index(), 0);
    EXPECT_FALSE(second->Delete().ok());
    ASSERT_TRUE(message->Update().ok());

    EXPECT_TRUE(
        world.Stored().starts_with(text.substr(0, text.find("Content-Type: application/pdf"))));
    EXPECT_TRUE(world.Stored().ends_with("emlw\n--b--\nepilogue --b\n")) << world.Stored();
}

TEST(MailDelete, CutsFromBoundaryToBoundary) {
    World world;
    const std::string text = TwoFiles();
    auto message = world.Open(text);
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    EXPECT_EQ(ItemOf(*message, 1)->Name().value(), "two.doc");
    EXPECT_EQ(ItemOf(*message, 1)->Index(), 1);
    ASSERT_TRUE(message->Update().ok());

    const std::size_t begin = text.find("--b\nContent-Type: application/pdf");
    const std::size_t end = text.find("--b  \n");
    EXPECT_EQ(world.Stored(), text.substr(0, begin) + text.substr(end));
}

TEST(MailDelete, LeavesAnEmptyTextInPlaceOfTheLastChild) {
    World world;
    const std::string head =
        "Subject: x\nContent-Type: multipart/mixed; boundary=b\n\npreamble\n--b\n";
    auto message = world.Open(head +
                              "Content-Type: image/png\n\none\n--b\n"
                              "Content-Type: image/gif\n\ntwo\n--b--\nepilogue");
    ASSERT_EQ(CountOf(*message), 2);
    ASSERT_TRUE(ItemOf(*message, 2)->Delete().ok());
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    const Status updated = message->Update();
    ASSERT_TRUE(updated.ok()) << updated.error().description;

    EXPECT_EQ(world.Stored(),
              head + "Content-Type: text/plain; charset=us-ascii\n\n\n--b--\nepilogue");
    EXPECT_EQ(CountOf(*world.OpenLast()), 0);
}

TEST(MailDelete, EmptiesAMessageThatIsItsAttachment) {
    World world;
    auto message = world.Open(
        "Subject: x\r\nContent-Type: application/pdf\r\nContent-Transfer-Encoding: base64\r\n"
        "Content-Disposition: attachment\r\n\r\nQUJD\r\n");
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    ASSERT_TRUE(message->Update().ok());
    EXPECT_EQ(world.Stored(),
              "Subject: x\r\nContent-Type: text/plain; charset=us-ascii\r\n"
              "MIME-Version: 1.0\r\n\r\n");
    EXPECT_EQ(CountOf(*world.OpenLast()), 0);
}

TEST(MailDelete, KeepsThePartBeforeAnUnclosedTailAsItWas) {
    World world;
    const std::string head =
        "Subject: x\nContent-Type: multipart/mixed; boundary=b\n\n--b\nX: 1\n\ntext";
    auto message = world.Open(head +
                              "\n--b\nContent-Type: image/png\n\none\n--b\n"
                              "Content-Type: image/gif\n\ntwo\n");
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    ASSERT_TRUE(message->Update().ok());
    EXPECT_EQ(world.Stored(), head);
}

TEST(MailDelete, KeepsAnOuterBoundaryBehindAnUnclosedMultipart) {
    World world;
    const std::string head =
        "Subject: x\nContent-Type: multipart/mixed; boundary=out\n\n--out\n"
        "Content-Type: multipart/mixed; boundary=in\n\n--in\nX: 1\n\ntext";
    auto message = world.Open(head + "\n--in\nContent-Type: image/png\n\none\n--out--\n");
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    const Status updated = message->Update();
    ASSERT_TRUE(updated.ok()) << updated.error().description;
    EXPECT_EQ(world.Stored(), head + "\n--out--\n");
}

TEST(MailDelete, LeavesTheHeaderOfAnEmptyPartBeforeItWhole) {
    World world;
    const std::string text =
        "Subject: n\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=o\n\n"
        "--o\nContent-Type: multipart/mixed; boundary=i\n\n"
        "--i\nContent-Type: application/pdf; name=empty.pdf\n\n"
        "--o\nContent-Type: application/pdf; name=two.pdf\n\ntwo\n";
    auto message = world.Open(text);
    ASSERT_EQ(CountOf(*message), 2);
    ASSERT_TRUE(ItemOf(*message, 2)->Delete().ok());

    const bool saved = message->Update().ok();

    EXPECT_EQ(world.Stored(), saved ? text.substr(0, text.rfind("--o")) : text);
}

TEST(MailDelete, PlansApartWhereAnEmptyPartEndsTwoLevels) {
    const ReadMessage message = ReadForProof(
        "Content-Type: multipart/mixed; boundary=o\n\n"
        "--o\nContent-Type: multipart/mixed; boundary=i\n\n"
        "--i\nContent-Type: application/pdf; name=empty.pdf\n\n"
        "--o\nContent-Type: application/pdf; name=two.pdf\n\ntwo\n");
    ASSERT_EQ(message.shape.attachments.size(), 2U);
    AttachmentEdit first;
    first.deleted = true;
    AttachmentEdit second;
    second.attachment = 1;
    second.deleted = true;

    const std::vector<Splice> splices = PlanSplices(message, {first, second});

    ASSERT_EQ(splices.size(), 2U);
    EXPECT_LE(splices[0].end, splices[1].begin);
}

TEST(MailDelete, RefusesWhenTheTextWouldBecomeAnotherPart) {
    // The emptied inner multipart would give an empty text before the one that is the body now.
    World world;
    const std::string text =
        "Subject: x\nContent-Type: multipart/mixed; boundary=o\n\n--o\n"
        "Content-Type: multipart/mixed; boundary=i\n\n--i\nContent-Type: image/png\n\none\n--i--\n"
        "--o\nContent-Type: text/html\n\n<p>the text</p>\n--o--\n";
    auto message = world.Open(text);
    ASSERT_TRUE(ItemOf(*message, 1)->Delete().ok());
    EXPECT_EQ(message->Update().error().number, static_cast<int>(kNoAccess));
    EXPECT_EQ(world.Stored(), text);
}

struct RefusalCase {
    const char* name;
    std::string bytes;
    bool replace_refused;
    bool delete_refused;
};

std::string CaseName(const testing::TestParamInfo<RefusalCase>& row) {
    return row.param.name;
}

class MailRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(MailRefusal, LeavesWhatMustNotBeWritten) {
    World world;
    auto message = world.Open(GetParam().bytes);
    ASSERT_GE(CountOf(*message), 1);
    auto attachment = ItemOf(*message, 1);

    const Status replaced = attachment->SetField(kTagAttachmentData, Bytes("zip"));
    EXPECT_EQ(!replaced.ok(), GetParam().replace_refused);
    if (!replaced.ok()) {
        EXPECT_EQ(replaced.error().number, static_cast<int>(kNoAccess));
    }
    const Status deleted = attachment->Delete();
    EXPECT_EQ(!deleted.ok(), GetParam().delete_refused);
    if (!deleted.ok()) {
        EXPECT_EQ(deleted.error().number, static_cast<int>(kNoAccess));
    }

    if (GetParam().replace_refused && GetParam().delete_refused) {
        EXPECT_TRUE(message->Update().ok());
        EXPECT_EQ(world.Stored(), GetParam().bytes);
        EXPECT_EQ(world.mail.commits, 0);
    }
}

std::string Wrap(const std::string& type, const std::string& parts) {
    return "Subject: x\nMIME-Version: 1.0\nContent-Type: multipart/" + type + "; boundary=b\n\n" +
           parts + "--b--\n";
}

constexpr const char* kText = "--b\nContent-Type: text/plain\n\ntext\n";
constexpr const char* kFile =
    "--b\nContent-Type: application/pdf\nContent-Disposition: attachment; filename=a.pdf\n\npdf\n";

INSTANTIATE_TEST_SUITE_P(
    All, MailRefusal,
    testing::Values(
        RefusalCase{"Ordinary", Wrap("mixed", std::string(kText) + kFile), false, false},
        RefusalCase{"Signed", Wrap("signed", std::string(kText) + kFile), true, true},
        RefusalCase{"Encrypted", Wrap("encrypted", std::string(kFile) + kFile), true, true},
        RefusalCase{"SignedBelowAList",
                    Wrap("mixed",
                         "--b\nContent-Type: multipart/signed; boundary=s\n\n"
                         "--s\nContent-Type: application/pdf\n\npdf\n--s\n"
                         "Content-Type: application/pgp-signature\n\nsig\n--s--\n"),
                    true, true},
        RefusalCase{"Opaque",
                    "Subject: x\nContent-Type: application/pkcs7-mime; name=smime.p7m\n\nxx\n",
                    true, true},
        RefusalCase{"OpaqueByName",
                    "Subject: x\nContent-Type: application/octet-stream; name=smime.P7M\n\nxx\n",
                    true, true},
        RefusalCase{"EncryptedInDisguise",
                    Wrap("mixed", std::string("--b\nContent-Type: application/pgp-encrypted\n\n"
                                              "Version: 1\n") +
                                      kFile),
                    true, true},
        RefusalCase{
            "Report",
            Wrap("report", std::string(kText) +
                               "--b\nContent-Type: message/delivery-status\n\nx: y\n" + kFile),
            true, true},
        RefusalCase{"AttachedMessage",
                    Wrap("mixed", std::string(kText) +
                                      "--b\nContent-Type: message/rfc822\n\nSubject: in\n\nx\n"),
                    true, false},
        RefusalCase{"ChildOfAlternative", Wrap("alternative", std::string(kText) + kFile), false,
                    true},
        RefusalCase{"RootOfRelated", Wrap("related", std::string(kFile) + kFile), true, true},
        RefusalCase{"Appledouble",
                    Wrap("mixed",
                         "--b\nContent-Type: multipart/appledouble; boundary=a\n\n"
                         "--a\nContent-Type: application/applefile\n\nres\n--a\n"
                         "Content-Type: image/jpeg; name=a.jpg\n\ndata\n--a--\n"),
                    false, true},
        RefusalCase{"ExternalBody",
                    Wrap("mixed", std::string(kText) +
                                      "--b\nContent-Type: message/external-body; "
                                      "access-type=mail-server\n\nContent-Type: x/y\n\n\n"),
                    true, false},
        RefusalCase{"EmptyContent",
                    Wrap("mixed", std::string(kText) +
                                      "--b\nContent-Type: application/pdf; name=a.pdf\n\n\n"),
                    true, false},
        RefusalCase{
            "Tnef",
            Wrap("mixed", std::string(kText) +
                              "--b\nContent-Type: application/ms-tnef; name=winmail.dat\n\nx\n"),
            true, false},
        RefusalCase{"HeaderCutByBoundary",
                    Wrap("mixed", std::string(kText) + "--b\nContent-Type: application/pdf\n"),
                    true, true},
        RefusalCase{"HeaderLineWithoutColon",
                    Wrap("mixed", std::string(kText) +
                                      "--b\nContent-Type: application/pdf\nnonsense\n\npdf\n"),
                    true, true},
        RefusalCase{
            "TwoEncodings",
            Wrap("mixed", std::string(kText) + "--b\nContent-Type: application/pdf\n"
                                               "Content-Transfer-Encoding: 7bit\n"
                                               "Content-Transfer-Encoding: base64\n\nQUJD\n"),
            true, true}),
    CaseName);

TEST(MailUpdate, KeepsRandomMessagesWholeOutsideTheEdits) {
    std::mt19937 random(7);
    const std::vector<std::string> newlines = {"\n", "\r\n"};
    for (int round = 0; round < 200; ++round) {
        const std::string nl = newlines[random() % 2];
        std::vector<std::string> parts;
        const std::size_t count = 2 + random() % 6;
        for (std::size_t i = 0; i < count; ++i) {
            std::string content;
            for (std::size_t n = 1 + random() % 200; n > 0; --n) {
                content += random() % 20 == 0
                               ? nl
                               : std::string(1, static_cast<char>('!' + random() % 90));
            }
            parts.push_back("Content-Type: application/x" + nl +
                            "Content-Disposition: attachment; "
                            "filename=f" +
                            std::to_string(i) + ".bin" + nl + nl + content);
        }
        std::string text =
            "Subject: r" + nl + "Content-Type: multipart/mixed; boundary=\"=_b\"" + nl + nl;
        for (const std::string& part : parts)
            text += "--=_b" + nl + part + nl;
        text += "--=_b--" + nl + "tail";

        World world;
        auto message = world.Open(text);
        ASSERT_EQ(CountOf(*message), static_cast<int>(count));
        const std::size_t victim = 1 + random() % count;
        const std::size_t second = 1 + random() % count;
        std::vector<std::string> expected = parts;
        ASSERT_TRUE(Zip(*ItemOf(*message, static_cast<int>(victim)),
                        std::string(random() % 300, 'q'), "z.zip")
                        .ok());
        if (second != victim) {
            ASSERT_TRUE(ItemOf(*message, static_cast<int>(second))->Delete().ok());
            expected[second - 1].clear();
        }
        const Status updated = message->Update();
        ASSERT_TRUE(updated.ok()) << updated.error().description << "\n" << text;
        for (std::size_t i = 0; i < count; ++i) {
            if (i + 1 == victim || expected[i].empty()) continue;
            EXPECT_NE(world.Stored().find("--=_b" + nl + parts[i] + nl + "--=_b"),
                      std::string::npos);
        }
        EXPECT_TRUE(world.Stored().ends_with(nl + "--=_b--" + nl + "tail"));
    }
}

}  // namespace
}  // namespace trevix::mime
