// Replies as Dovecot, Cyrus and others send them, and as nobody should.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/imap/parsed.h"

namespace trevix::imap {
namespace {

using test::Parsed;
using test::ParseOne;
using namespace std::string_literals;
using Words = std::vector<std::string>;

std::string TextOf(const FetchedMessage& message, const std::string& section) {
    const FetchedSection* const found = message.Find(section);
    if (found == nullptr) return "missing";
    if (!found->content) return "nil";
    return found->content->ToString().value();
}

TEST(ReplyParserCondition, ReadsAnswersWithTheirCodes) {
    const auto reply = Parsed<TaggedReply>(
        "T7 OK [APPENDUID 38505 3955] Append completed (0.001 + 0.000 secs).\r\n");
    EXPECT_EQ(reply.tag, "T7");
    EXPECT_EQ(reply.condition.kind, Condition::Kind::kOk);
    EXPECT_EQ(reply.condition.code, "APPENDUID");
    EXPECT_EQ(reply.condition.arguments, "38505 3955");
    EXPECT_EQ(reply.condition.text, "Append completed (0.001 + 0.000 secs).");
}

TEST(ReplyParserCondition, TakesWordsThatAreMissingOrOdd) {
    EXPECT_EQ(Parsed<TaggedReply>("a OK\r\n").condition.text, "");
    EXPECT_EQ(Parsed<TaggedReply>("a no [alert]\n").condition.code, "ALERT");
    EXPECT_EQ(Parsed<TaggedReply>("a NO [x\r\n").condition.text, "[x");
    EXPECT_EQ(Parsed<ConditionReply>("* BYE it's \"over {5}\r\n").condition.text,
              "it's \"over {5}");
    EXPECT_EQ(Parsed<ConditionReply>("* OK [PERMANENTFLAGS (\\Deleted \\*)] Limited\r\n")
                  .condition.arguments,
              "(\\Deleted \\*)");
}

TEST(ReplyParserCondition, AnAnswerIsOkNoOrBad) {
    EXPECT_FALSE(ParseOne("T1 BYE\r\n").ok());
    EXPECT_FALSE(ParseOne("T1 MAYBE\r\n").ok());
    EXPECT_FALSE(ParseOne("\r\n").ok());
}

TEST(ReplyParserData, ReadsCapabilities) {
    EXPECT_EQ(
        Parsed<CapabilityReply>("* CAPABILITY IMAP4rev1 SASL-IR AUTH=PLAIN \r\n").capabilities,
        (Words{"IMAP4rev1", "SASL-IR", "AUTH=PLAIN"}));
    EXPECT_EQ(Parsed<EnabledReply>("* ENABLED QRESYNC\r\n").capabilities, Words{"QRESYNC"});
    EXPECT_TRUE(Parsed<EnabledReply>("* ENABLED\r\n").capabilities.empty());
}

TEST(ReplyParserData, ReadsListsOfMailboxes) {
    const auto dovecot = Parsed<ListReply>("* LIST (\\HasNoChildren \\Sent) \".\" Sent\r\n");
    EXPECT_EQ(dovecot.attributes, (Words{"\\HasNoChildren", "\\Sent"}));
    EXPECT_EQ(dovecot.delimiter, ".");
    EXPECT_EQ(dovecot.name, "Sent");
    const auto cyrus = Parsed<ListReply>(
        "* LIST (\\NonExistent \\HasChildren) \"/\" \"a \\\"b\\\" c\" (\"CHILDINFO\" "
        "(\"SUBSCRIBED\"))\r\n");
    EXPECT_EQ(cyrus.name, "a \"b\" c");
    EXPECT_EQ(Parsed<ListReply>("* LIST () NIL {5}\r\na\r\nb{\r\n").name, "a\r\nb{");
    EXPECT_EQ(Parsed<ListReply>("* LIST () \"/\" nil\r\n").name, "nil");
    EXPECT_EQ(Parsed<ListReply>("* LIST () NIL ../x\r\n").delimiter, "");
}

TEST(ReplyParserData, ReadsStatus) {
    const auto status = Parsed<StatusReply>(
        "* STATUS \"Entw&APw-rfe\" (MESSAGES 231 UIDNEXT 44292 UIDVALIDITY 3 HIGHESTMODSEQ "
        "18446744073709551615 SIZE (1 2) UNSEEN 3 )\r\n");
    EXPECT_EQ(status.mailbox, "Entw&APw-rfe");
    EXPECT_EQ(status.messages, 231U);
    EXPECT_EQ(status.uid_next, 44292U);
    EXPECT_EQ(status.uid_validity, 3U);
    EXPECT_EQ(status.highest_modseq, 18446744073709551615U);
    EXPECT_FALSE(Parsed<StatusReply>("* STATUS a (HIGHESTMODSEQ 0)\r\n").highest_modseq);
}

TEST(ReplyParserData, ReadsSearches) {
    EXPECT_EQ(Parsed<SearchReply>("* SEARCH 9 2 3 (MODSEQ 917162500)\r\n").uids.ToText(), "2:3,9");
    EXPECT_TRUE(Parsed<SearchReply>("* SEARCH\r\n").uids.empty());
    EXPECT_EQ(
        Parsed<SearchReply>("* ESEARCH (TAG \"T4\") UID COUNT 5 ALL 4:19,21,28\r\n").uids.ToText(),
        "4:19,21,28");
    EXPECT_TRUE(Parsed<SearchReply>("* ESEARCH (TAG \"T4\") UID\r\n").uids.empty());
}

TEST(ReplyParserData, ReadsWhatBecomesOfMessages) {
    EXPECT_EQ(Parsed<ExistsReply>("* 172 EXISTS\r\n").count, 172U);
    EXPECT_EQ(Parsed<ExpungeReply>("* 44 EXPUNGE\r\n").sequence, 44U);
    const auto vanished = Parsed<VanishedReply>("* VANISHED (EARLIER) 41,43:116,118\r\n");
    EXPECT_TRUE(vanished.earlier);
    EXPECT_EQ(vanished.uids.ToText(), "41,43:116,118");
    EXPECT_FALSE(Parsed<VanishedReply>("* VANISHED 405\r\n").earlier);
    Parsed<OtherReply>("* 3 RECENT\r\n");
}

TEST(ReplyParserData, PassesOverWhatItDoesNotKnow) {
    Parsed<OtherReply>("* METADATA \"\" (/shared/comment {12}\r\n* 1 EXISTS\r\n)\r\n");
    Parsed<OtherReply>("* XYZ it's \"half quoted\r\n");
    Parsed<OtherReply>("* XYZ {not a length}\r\n");
    Parsed<OtherReply>("* NAMESPACE ((\"\" \"/\")) NIL NIL\r\n");
}

TEST(ReplyParserFetch, ReadsAllItems) {
    const auto message =
        Parsed<FetchReply>(
            "* 12 FETCH (UID 77 MODSEQ (624140003) FLAGS (\\Seen $Label1 \\Recent) "
            "INTERNALDATE \" 3-Feb-2021 04:05:06 +0100\" RFC822.SIZE 4286 "
            "EMAILID (M6d99ac3275bb4e) SAVEDATE \"18-Jul-1996 02:44:25 -0700\" "
            "BINARY.SIZE[2] 1000 BINARY.SIZE[2.1] 7 X-GM-MSGID 99 ENVELOPE (NIL \"(\" "
            "((NIL NIL \"a\" {1}\r\n)))))\r\n")
            .message;
    EXPECT_EQ(message.sequence, 12U);
    EXPECT_EQ(message.uid, 77U);
    EXPECT_EQ(message.modseq, 624140003U);
    EXPECT_EQ(message.flags, (Words{"\\Seen", "$Label1", "\\Recent"}));
    EXPECT_EQ(message.internal_date, (DateTime{1612321506, 60}));
    EXPECT_EQ(message.size_bytes, 4286U);
    EXPECT_EQ(message.email_id, "M6d99ac3275bb4e");
    EXPECT_EQ(message.save_date, (DateTime{837683065, -420}));
}

TEST(ReplyParserFetch, ReadsContentInAllForms) {
    const auto message =
        Parsed<FetchReply>(
            "* 1 FETCH (BODY[1] \"qu\\\"oted\" BODY[2] NIL BODY[3] {5}\r\n)\"\r\n( "
            "BODY[]<100> {2}\r\nab BINARY[4] ~{3}\r\na\0b BODY[5] {0}\r\n UID 5)\r\n"s)
            .message;
    EXPECT_EQ(message.uid, 5U);
    EXPECT_EQ(TextOf(message, "1"), "qu\"oted");
    EXPECT_EQ(TextOf(message, "2"), "nil");
    EXPECT_EQ(TextOf(message, "3"), ")\"\r\n(");
    EXPECT_EQ(TextOf(message, "5"), "");
    EXPECT_EQ(message.sections[3].offset, 100U);
    EXPECT_EQ(message.Find("4"), nullptr) << "not asked for";
}

TEST(ReplyParserFetch, FindsListedFieldsInAnySpelling) {
    const auto message = Parsed<FetchReply>(
                             "* 1 FETCH (BODY[HEADER.FIELDS (\"To\"  From)] \"x\" "
                             "BODY[2.header.fields (SUBJECT)] \"y\")\r\n")
                             .message;
    EXPECT_EQ(TextOf(message, "header.fields (From To)"), "x");
    EXPECT_EQ(TextOf(message, "2.HEADER.FIELDS (Subject)"), "y");
    EXPECT_EQ(TextOf(message, "HEADER"), "missing");
}

TEST(ReplyParserFetch, LargeContentIsReadFromItsFile) {
    std::string large(200'000, 'x');
    large[199'999] = 'y';
    const auto message = Parsed<FetchReply>("* 1 FETCH (UID 1 BODY[1] {200000}\r\n" + large +
                                            " BODY[2] {200000}\r\n" + large + ")\r\n")
                             .message;
    const Blob& first = *message.Find("1")->content;
    EXPECT_EQ(first.in_memory(), nullptr);
    std::uint64_t offset = 1;
    EXPECT_GE(first.descriptor(&offset), 0);
    EXPECT_EQ(first.ToString().value(), large);
    EXPECT_EQ(TextOf(message, "2"), large);
}

TEST(ReplyParserFetch, KeepsTheFirstOfWhatComesTwice) {
    const auto message =
        Parsed<FetchReply>("* 1 FETCH (BODY[1] a BODY[1] b BODY[1] {1}\r\nc)\r\n").message;
    EXPECT_EQ(message.sections.size(), 1U);
    EXPECT_EQ(TextOf(message, "1"), "a");
}

TEST(ReplyParserFetch, TakesNilForEveryItem) {
    const auto message = Parsed<FetchReply>(
                             "* 1 FETCH (UID 5 FLAGS NIL INTERNALDATE NIL SAVEDATE NIL EMAILID NIL "
                             "ENVELOPE NIL BODYSTRUCTURE NIL BODY[] NIL BODY NIL)\r\n")
                             .message;
    EXPECT_EQ(message.uid, 5U);
    EXPECT_FALSE(message.internal_date);
    EXPECT_FALSE(message.save_date);
    EXPECT_FALSE(message.email_id);
    EXPECT_EQ(message.structure, nullptr);
    EXPECT_FALSE(message.structure_problem.empty());
    EXPECT_EQ(TextOf(message, ""), "nil");
}

TEST(ReplyParserFetch, RefusesWhatCannotBeRead) {
    for (const char* const bytes : {"* 1 FETCH UID 5)\r\n",
                                    "* 1 FETCH (UID)\r\n",
                                    "* 1 FETCH (UID x)\r\n",
                                    "* 1 FETCH (UID 4294967296)\r\n",
                                    "* 1 FETCH (UID 5\r\n",
                                    "* 1 FETCH (BODY[1 {1}\r\na)\r\n",
                                    "* 1 FETCH (BODY[1] {x}\r\na)\r\n",
                                    "* 1 FETCH (BODY[1] {5 }\r\nabcde)\r\n",
                                    "* 1 FETCH (BODY[1] {18446744073709551616}\r\n)\r\n",
                                    "* 1 FETCH (BODY[1] \"a\r\nb\")\r\n",
                                    "* 1 FETCH (BODY[1] {2000000}\r\n",
                                    "* 99999999999 EXISTS\r\n",
                                    "* \r\n",
                                    "*\r\n",
                                    "",
                                    "* LIST (\r\n",
                                    "* STATUS a (MESSAGES)\r\n",
                                    "* VANISHED x\r\n",
                                    "* VANISHED 1,,2\r\n",
                                    "* 1 FETCH (MODSEQ 5)\r\n",
                                    "* 1 FETCH ((((\r\n",
                                    "* 1 FETCH (ENVELOPE )\r\n"}) {
        EXPECT_FALSE(ParseOne(bytes).ok()) << bytes;
        EXPECT_FALSE(ParseOne(bytes, 1).ok()) << bytes;
    }
}

TEST(ReplyParserLimits, CutAnywhereIsAnError) {
    const std::string whole =
        "* 12 FETCH (UID 77 FLAGS (\\Seen) BODYSTRUCTURE (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" "
        "3 "
        "1) BODY[1] {3}\r\nabc BODY[2] \"x\")\r\n";
    ASSERT_TRUE(ParseOne(whole).ok());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(ParseOne(whole.substr(0, size)).ok()) << size;
    }
}

TEST(ReplyParserLimits, AReplyWithoutEndIsGivenUp) {
    for (const std::string& piece : {"("s, ")"s, "a"s, " "s, "\""s, "\\"s, "1"s, "NIL "s, "{"s}) {
        std::string endless = "* 1 FETCH (UID 5 ENVELOPE (";
        while (endless.size() < 400'000) {
            endless += piece;
        }
        const Result<Reply> reply = ParseOne(endless, 1 << 20, 1'000, 100'000);
        ASSERT_FALSE(reply.ok()) << piece;
        EXPECT_NE(reply.error().description, "the end") << piece;
    }
}

TEST(ReplyParserLimits, AMillionNestedListsCostNoStack) {
    const std::string open(1'000'000, '(');
    const std::string close(1'000'000, ')');
    const auto message =
        Parsed<FetchReply>("* 1 FETCH (BODYSTRUCTURE " + open + close + " UID 5)\r\n").message;
    EXPECT_EQ(message.uid, 5U);
    EXPECT_EQ(message.structure, nullptr);
    EXPECT_EQ(message.structure_problem, "the structure is too deep or too large");
}

TEST(ReplyParserLimits, AStructureThatIsTooLargeIsPassedOver) {
    std::string parts;
    for (int part = 0; part < 30'000; ++part) {
        parts += "(\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 3 1)";
    }
    const auto message =
        Parsed<FetchReply>("* 1 FETCH (BODYSTRUCTURE (" + parts + " \"MIXED\") UID 5)\r\n").message;
    EXPECT_EQ(message.uid, 5U);
    EXPECT_FALSE(message.structure_problem.empty());
}

TEST(ReplyParserLimits, ManyContentsTogetherDoNotStayInMemory) {
    std::string bytes = "* 1 FETCH (UID 5";
    const std::string content(60'000, 'z');
    for (int part = 1; part <= 100; ++part) {
        bytes += " BODY[" + std::to_string(part) + "] {60000}\r\n" + content;
    }
    const auto message = Parsed<FetchReply>(bytes + ")\r\n").message;
    ASSERT_EQ(message.sections.size(), 100U);
    std::size_t in_memory = 0;
    for (const FetchedSection& section : message.sections) {
        EXPECT_EQ(section.content->ToString().value(), content);
        if (section.content->in_memory() != nullptr) in_memory += section.content->size_bytes();
    }
    EXPECT_LE(in_memory, std::size_t{1} << 20);
}

}  // namespace
}  // namespace trevix::imap
