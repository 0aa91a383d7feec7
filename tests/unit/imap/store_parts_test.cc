// The parts of the store that need no server.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "platform/errors.h"
#include "platform/imap/base64.h"
#include "platform/imap/folder_names.h"
#include "platform/imap/header_lines.h"
#include "platform/imap/hidden_codec.h"
#include "platform/imap/journal.h"
#include "platform/imap/listing.h"
#include "platform/imap/message_identity.h"
#include "platform/imap/outline_plan.h"
#include "platform/imap/part_content.h"
#include "platform/imap/text_escape.h"

namespace trevix::imap {
namespace {

Mailbox Named(const std::string& name, const std::string& delimiter, bool selectable = true) {
    Mailbox mailbox;
    mailbox.name = name;
    mailbox.delimiter = delimiter;
    mailbox.selectable = selectable;
    return mailbox;
}

std::vector<std::string> PathsOf(const ServerFolders& tree) {
    std::vector<std::string> paths;
    for (const MailFolder& folder : tree.folders)
        paths.push_back(folder.path);
    return paths;
}

using Strings = std::vector<std::string>;

TEST(FolderNames, JoinLevelsBySlashesWhateverTheServerUses) {
    EXPECT_EQ(PathOfMailbox("Work.Old", "."), "Work/Old");
    EXPECT_EQ(PathOfMailbox("Work/Old", "/"), "Work/Old");
    EXPECT_EQ(PathOfMailbox("a/b.c", "."), "a&AC8-b/c");
    EXPECT_EQ(PathOfMailbox("inbox", "/"), "INBOX");
    EXPECT_EQ(PathOfMailbox("../x", "/"), "../x");
    EXPECT_EQ(PathOfMailbox("flat/name", ""), "flat&AC8-name");
}

TEST(FolderNames, ComeParentsFirstWithTheInboxAtTheTop) {
    const ServerFolders tree =
        FoldersOf({Named("Work/Old", "/"), Named("Archive", "/"), Named("INBOX/Sub", "/"),
                   Named("Lists", "/", false), Named("InBox", "/")});

    EXPECT_EQ(PathsOf(tree),
              (Strings{"INBOX", "INBOX/Sub", "Archive", "Lists", "Work", "Work/Old"}));
    EXPECT_FALSE(tree.names.contains("Lists"));
    EXPECT_FALSE(tree.names.contains("Work")) << "it is not on the server";
    EXPECT_EQ(tree.names.at("INBOX"), "InBox");
    EXPECT_EQ(tree.folders[5].name, "Old");
}

TEST(FolderNames, AreDecodedForPeople) {
    const ServerFolders tree = FoldersOf({Named("Entw&APw-rfe.a/b", ".")});

    ASSERT_EQ(tree.folders.size(), 2U);
    EXPECT_EQ(tree.folders[0].name, "Entw\xC3\xBCrfe");
    EXPECT_EQ(tree.folders[1].name, "a/b");
    EXPECT_EQ(tree.names.at("Entw&APw-rfe/a&AC8-b"), "Entw&APw-rfe.a/b");
}

TEST(FolderNames, OfOurOwnStandWhereTheServerKeepsOthers) {
    EXPECT_EQ(OwnMailboxNames({Named("INBOX", "."), Named("INBOX.Sent", ".")}, "Own").front(),
              "INBOX.Own");
    EXPECT_EQ(OwnMailboxNames({Named("INBOX", "/"), Named("Sent", "/")}, "Own").front(), "Own");
    EXPECT_EQ(OwnMailboxNames({Named("INBOX", "/")}, "Own"), (Strings{"Own", "INBOX/Own"}));
}

TEST(MessageIdentity, ComesBackFromItsLocator) {
    const MessageIdentity identity{4000000000U, 17, 123456789012345U};
    const auto back = DecodeLocator(EncodeLocator(identity));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->uid_validity, 4000000000U);
    EXPECT_EQ(back->uid, 17U);
    EXPECT_EQ(back->modseq, 123456789012345U);
    EXPECT_FALSE(DecodeLocator(EncodeLocator({1, 2, {}}))->modseq);
    EXPECT_EQ(KeyOf(identity), "4000000000/17");
    for (const char* wrong : {"", "1", "1 2", "0 1 -", "1 0 -", "1 2 x", "1 2 3 ", "a b c", "1 2 "})
        EXPECT_FALSE(DecodeLocator(wrong)) << wrong;
}

TEST(MessageIdentity, ComparesFlagsWithoutRecentAndInOneSpelling) {
    EXPECT_EQ(ComparableFlags({"\\SEEN", "\\recent", "b", "B", "\\Seen"}),
              (Flags{"B", "\\Seen", "b"}));
}

TEST(ListingStamp, ComesBack) {
    MailboxStatus status;
    status.uid_validity = 7;
    status.uid_next = 100;
    status.messages = 42;
    EXPECT_EQ(StampOf(status), "7 100 42 0");
    EXPECT_FALSE(DecodeStamp(StampOf(status))->highest_modseq);
    status.highest_modseq = 5000000000U;
    EXPECT_EQ(DecodeStamp(StampOf(status))->highest_modseq, 5000000000U);
    for (const char* wrong : {"", "7", "7 100", "7 100 42", "x 1 2 3", "7 100 42 "})
        EXPECT_FALSE(DecodeStamp(wrong)) << wrong;
    status.uid_next = 0;
    EXPECT_EQ(StampOf(status), "") << "nothing to go by";
}

TEST(TextEscape, KeepsAnyBytes) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(UnescapeText(EscapeText(all)), all);
    EXPECT_EQ(UnescapeText(EscapeText("")), "");
    EXPECT_EQ(EscapeText(all).find_first_of(" \r\n\t"), std::string::npos);
    for (const char* wrong : {"", "x", "'%", "'%1", "'%zz"})
        EXPECT_FALSE(UnescapeText(wrong)) << wrong;
}

TEST(Base64, ComesBackForEveryLength) {
    for (std::size_t size = 0; size < 200; ++size) {
        std::string bytes;
        for (std::size_t at = 0; at < size; ++at)
            bytes += static_cast<char>(at * 37);
        std::string text;
        AppendBase64(text, bytes.data(), bytes.size());
        EXPECT_EQ(DecodeBase64(text), bytes);
    }
    for (const char* wrong : {"A", "AB", "ABC", "A===", "AB=C", "####"})
        EXPECT_FALSE(DecodeBase64(wrong)) << wrong;
}

// `lines` of that width with a CRLF each, the last one as it is given.
std::string Base64Lines(std::size_t lines, std::size_t width, const std::string& last) {
    std::string text;
    for (std::size_t line = 0; line < lines; ++line)
        text += std::string(width, 'A') + "\r\n";
    return text + last;
}

std::optional<std::uint64_t> SizeByEnding(const std::string& text) {
    const std::size_t from = text.size() > kBase64Ending ? text.size() - kBase64Ending : 0;
    return Base64ContentSize(text.size(), std::string_view(text).substr(from));
}

TEST(Base64, ItsEndTellsTheSizeOfTheContent) {
    for (std::size_t size = 1; size < 1000; ++size) {
        std::string text;
        AppendBase64(text, std::string(size, 'x').data(), size);
        EXPECT_EQ(SizeByEnding(text), size);
        EXPECT_EQ(SizeByEnding(text + "\r\n"), size) << "an empty line at the end";
        EXPECT_EQ(SizeByEnding(text.substr(0, text.size() - 2)), size) << "no line end";
    }
    EXPECT_EQ(SizeByEnding(Base64Lines(20, 60, "AAA=")), 20U * 45 + 2);
    EXPECT_EQ(SizeByEnding(Base64Lines(20, 76, "")), 20U * 57);
    EXPECT_EQ(SizeByEnding(Base64Lines(1, 998, "")), std::nullopt) << "no line is seen whole";
}

TEST(Base64, AnEndThatIsOutOfTheOrdinaryTellsNothing) {
    const std::string usual = Base64Lines(20, 76, "AAAA");
    ASSERT_TRUE(SizeByEnding(usual));
    for (const std::string& odd : {
             "B" + usual,                                // a digit too many before the end
             "\r\n" + usual,                             // an empty line
             Base64Lines(20, 76, "AAA"),                 // no whole group
             Base64Lines(20, 76, "A==="),                // too much padding
             Base64Lines(20, 76, "A=AA"),                // padding inside
             Base64Lines(20, 76, "AA A"),                // a blank
             Base64Lines(20, 76, std::string(80, 'A')),  // the last line is the longest
             Base64Lines(20, 76, "") + Base64Lines(3, 72, "AAAA"),  // another width
             usual.substr(0, 1500) + "=" + usual.substr(1501),      // padding in the line before
             Base64Lines(20, 74, "").substr(0, 1518) + "AA\n" + "AAAA",
             std::string(),
             std::string("\r\n\r\n"),
         }) {
        EXPECT_EQ(SizeByEnding(odd), std::nullopt) << odd.substr(odd.size() / 2);
    }
}

TEST(HeaderLines, KeepFoldsAndPassOverWhatIsNoField) {
    const auto fields = FieldsIn("A: one\r\n two\r\nno field\r\nb : x\n\r\nC: body\r\n");
    ASSERT_EQ(fields.size(), 3U);
    EXPECT_EQ(fields[0].whole, "A: one\r\n two\r\n");
    EXPECT_TRUE(fields[1].name.empty());
    EXPECT_EQ(fields[2].name, "b");
    EXPECT_EQ(FieldsNamed("X: 1\r\nx: 2\r\n\r\n", "x").size(), 2U);
}

TEST(OutlinePlanHeader, FindsTheBoundaryInItsUsualForms) {
    EXPECT_EQ(BoundaryIn("Content-Type: multipart/mixed; boundary=\"a b\"; x=y\r\n\r\n"), "a b");
    EXPECT_EQ(BoundaryIn("Content-Type: multipart/mixed;\r\n BOUNDARY = ab=c; x=y\r\n\r\n"),
              "ab=c");
    EXPECT_EQ(BoundaryIn("Content-Type: multipart/mixed; boundary*0=a\r\n\r\n"), "");
    EXPECT_EQ(BoundaryIn("Subject: x\r\n\r\n"), "");
    EXPECT_EQ(TypeWordIn("content-type:\r\n\tMultipart/Mixed;x\r\n\r\n"), "multipart/mixed");
}

BodyPart Leaf(const std::string& type, const std::string& subtype, const std::string& section,
              std::uint64_t size) {
    BodyPart part;
    part.type = type;
    part.subtype = subtype;
    part.section = section;
    part.size_bytes = size;
    part.encoding = "BASE64";
    part.has_extension = true;
    return part;
}

BodyPart Mixed(std::vector<BodyPart> children) {
    BodyPart part;
    part.type = "MULTIPART";
    part.subtype = "MIXED";
    part.parameters = {{"BOUNDARY", "b1"}};
    part.has_extension = true;
    part.children = std::move(children);
    return part;
}

const std::string kMixedHeader = "Content-Type: multipart/mixed; boundary=b1\r\n\r\n";

TEST(OutlinePlanOfAMessage, FetchesZipsAndAsksTheSizesOfTheRest) {
    BodyPart named = Leaf("APPLICATION", "OCTET-STREAM", "3", 900);
    named.disposition = BodyPart::Disposition{"attachment", {{"FILENAME", "a.ZIP"}}};
    const BodyPart root =
        Mixed({Leaf("TEXT", "PLAIN", "1", 50), Leaf("APPLICATION", "ZIP", "2", 1000), named,
               Leaf("IMAGE", "PNG", "4", 5000)});

    const OutlinePlan plan = PlanOutline(root, kMixedHeader, 8000, MailUse::kIndex);

    EXPECT_FALSE(plan.whole);
    Strings sections;
    for (const SectionRequest& section : plan.sections) {
        sections.push_back(section.section);
        if (section.range) sections.back() += " from " + std::to_string(section.range->first);
    }
    EXPECT_EQ(sections, (Strings{"1.MIME", "2.MIME", "2", "3.MIME", "3", "4.MIME", "4 from 4744"}));
    EXPECT_TRUE(PlanOutline(root, kMixedHeader, 8000, MailUse::kSummary).sections.empty());
}

TEST(OutlinePlanOfAMessage, FetchesItWholeWhereTheStructureTellsTooLittle) {
    const BodyPart fine = Mixed({Leaf("TEXT", "PLAIN", "1", 50)});
    EXPECT_TRUE(IsTrusted(fine, kMixedHeader));
    EXPECT_FALSE(IsTrusted(fine, "Content-Type: text/plain\r\n\r\n"));
    EXPECT_FALSE(IsTrusted(fine, "Content-Type: multipart/mixed; boundary=b12\r\n\r\n"));
    EXPECT_FALSE(IsTrusted(fine, kMixedHeader.substr(0, 44) + kMixedHeader)) << "twice";
    EXPECT_FALSE(IsTrusted(Leaf("TEXT", "PLAIN", "1", 50), kMixedHeader));
    EXPECT_FALSE(IsTrusted(Mixed({}), kMixedHeader));
    EXPECT_FALSE(IsTrusted(Mixed({Leaf("TEXT", "PLAIN", "1", 0)}), kMixedHeader));
    BodyPart bare = fine;
    bare.has_extension = false;
    EXPECT_FALSE(IsTrusted(bare, kMixedHeader));
    EXPECT_FALSE(IsTrusted(Mixed({fine}), kMixedHeader)) << "the same boundary inside";
    BodyPart deep = fine;
    for (int level = 0; level < 200; ++level)
        deep = Mixed({deep});
    EXPECT_FALSE(IsTrusted(deep, kMixedHeader));
}

TEST(PartContent, IsFetchedOnceAndOnlyWhenItIsRead) {
    int fetched = 0;
    const Blob content = MakePartContent(6, Blob::FromString("abc"), [&]() -> Result<Blob> {
        ++fetched;
        return Blob::FromString("abcdef");
    });
    EXPECT_EQ(content.Slice(0, 3).ToString().value(), "abc");
    EXPECT_EQ(fetched, 0);
    EXPECT_EQ(content.ToString().value(), "abcdef");
    EXPECT_EQ(content.ToString().value(), "abcdef");
    EXPECT_EQ(fetched, 1);
}

TEST(PartContent, OfAnotherSizeThanSaidIsMalformed) {
    const Blob content =
        MakePartContent(6, {}, []() -> Result<Blob> { return Blob::FromString("abc"); });
    EXPECT_EQ(content.ToString().error().kind, ErrorKind::kMalformed);
}

TEST(HiddenValue, ComesBackExactly) {
    const std::vector<Variant> values = {Variant(),
                                         Variant(true),
                                         Variant(false),
                                         Variant(std::int16_t{-32768}),
                                         Variant(std::numeric_limits<std::int32_t>::min()),
                                         Variant(0.1),
                                         Variant(-std::numeric_limits<double>::infinity()),
                                         Variant(Date{-1.25}),
                                         Variant(std::string()),
                                         Variant(std::string("a b\r\n\0c", 7)),
                                         Variant(StringArray{}),
                                         Variant(StringArray{"", "x y", "'"}),
                                         Variant(ErrorValue{0x8004010F})};
    for (const Variant& value : values) {
        const std::string text = WriteValue(value).value();
        const auto back = ReadValue(text);
        ASSERT_TRUE(back) << text;
        EXPECT_TRUE(back->index() == value.index()) << text;
        EXPECT_EQ(WriteValue(*back).value(), text);
    }
    const auto bytes = ReadValue(WriteValue(Variant(Blob::FromString("\xFF\n"))).value());
    EXPECT_EQ(std::get<Blob>(*bytes).ToString().value(), "\xFF\n");
    for (const char* wrong : {"", "int16", "int16 10000", "bool 2", "text", "what 1", "double x"})
        EXPECT_FALSE(ReadValue(wrong)) << wrong;
}

TEST(HiddenCodec, RefusesWhatIsDamaged) {
    HiddenMail mail;
    mail.id = "0123456789abcdef";
    mail.revision = 3;
    mail.message_class = std::string(600, 'c');
    mail.properties = {{"s", "n", Variant(std::string("v"))}};
    mail.attachments = {{"a", 1, Blob::FromString("content")}};
    const std::string whole = WriteHidden(mail, std::string(32, 'a')).value();

    const auto back = ReadHidden(whole);

    ASSERT_TRUE(back);
    EXPECT_EQ(back->message_class, mail.message_class);
    EXPECT_EQ(back->revision, 3);
    for (std::size_t size = 0; size + 4 < whole.size(); size += 3)
        EXPECT_FALSE(ReadHidden(whole.substr(0, size))) << size;
    EXPECT_FALSE(ReadHidden("Subject: mail\r\n\r\nof somebody"));
}

class JournalFiles : public testing::Test {
 protected:
    void SetUp() override { ASSERT_NE(::mkdtemp(directory_.data()), nullptr); }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    static JournalRecord Record() {
        JournalRecord record;
        record.mailbox = "Entw&APw-rfe ../x\n";
        record.uid_validity = 4000000000U;
        record.old_uid = 7;
        record.old_flags = {"$Work", "\\Seen"};
        record.least_new_uid = 8;
        record.size_bytes = 1U << 30U;
        record.digest = "abc";
        record.begun_ns = -5;
        return record;
    }

    std::string directory_ = testing::TempDir() + "journal-XXXXXX";
};

TEST_F(JournalFiles, KeepARecordAsALine) {
    const auto back = DecodeRecord(EncodeRecord(Record()));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->mailbox, Record().mailbox);
    EXPECT_EQ(back->old_flags, Record().old_flags);
    EXPECT_EQ(back->begun_ns, -5);
    EXPECT_EQ(back->size_bytes, 1U << 30U);
    const std::string line = EncodeRecord(Record());
    for (std::size_t at = 0; at + 1 < line.size(); ++at) {
        std::string damaged = line;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        EXPECT_FALSE(DecodeRecord(damaged)) << at;
        EXPECT_FALSE(DecodeRecord(line.substr(0, at))) << at;
    }
}

TEST_F(JournalFiles, OfALivingProcessAreLeftAlone) {
    auto journal = Journal::Create(directory_ + "/a/b", "imaps://ann@host").value();
    JournalRecord record = Record();
    ASSERT_TRUE(journal->Begin(record).ok());

    EXPECT_TRUE(LeftJournals(directory_ + "/a/b", "imaps://ann@host").empty());

    journal.reset();  // with its replacement open
    EXPECT_TRUE(LeftJournals(directory_ + "/a/b", "imaps://ben@host").empty());
    auto left = LeftJournals(directory_ + "/a/b", "imaps://ann@host");
    ASSERT_EQ(left.size(), 1U);
    ASSERT_EQ(left[0].open.size(), 1U);
    EXPECT_EQ(left[0].open[0].mailbox, Record().mailbox);
    struct stat about {};
    ASSERT_EQ(::stat(left[0].path.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777U, 0600U);
    Settle(left[0], {});
    EXPECT_NE(::stat(left[0].path.c_str(), &about), 0);
}

TEST_F(JournalFiles, TellOnlyWhatIsOpen) {
    auto journal = Journal::Create(directory_, "store").value();
    JournalRecord first = Record();
    JournalRecord second = Record();
    ASSERT_TRUE(journal->Begin(first).ok());
    ASSERT_TRUE(journal->Begin(second).ok());
    journal->Note(second.number, 99);
    journal->End(first.number);
    journal.reset();

    auto left = LeftJournals(directory_, "store");

    ASSERT_EQ(left.size(), 1U);
    ASSERT_EQ(left[0].open.size(), 1U);
    EXPECT_EQ(left[0].open[0].number, second.number);
    EXPECT_EQ(left[0].open[0].new_uid, 99U);
    Settle(left[0], left[0].open);
    left.clear();
    EXPECT_EQ(LeftJournals(directory_, "store").size(), 1U) << "it waits for another opening";
}

TEST_F(JournalFiles, AreGoneWhenAllIsDone) {
    auto journal = Journal::Create(directory_, "store").value();
    JournalRecord record = Record();
    ASSERT_TRUE(journal->Begin(record).ok());
    journal->End(record.number);
    journal.reset();

    EXPECT_TRUE(std::filesystem::is_empty(directory_));
    EXPECT_EQ(Journal::Create("", "store").error().kind, ErrorKind::kDenied);
}

}  // namespace
}  // namespace trevix::imap
