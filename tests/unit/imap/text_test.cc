// Sets of UIDs, dates, names of mailboxes.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "platform/imap/date_time.h"
#include "platform/imap/mailbox_name.h"
#include "platform/imap/uid_set.h"
#include "platform/modified_utf7.h"

namespace trevix::imap {
namespace {

TEST(UidSetText, PutsTogetherWhatTouches) {
    UidSet set;
    for (const std::uint32_t uid : {3U, 1U, 2U, 9U, 8U, 2U, 20U}) {
        set.Add(uid);
    }
    EXPECT_EQ(set.ToText(), "1:3,8:9,20");
    EXPECT_EQ(set.count(), 6U);
    EXPECT_TRUE(set.Contains(8));
    EXPECT_FALSE(set.Contains(7));
    EXPECT_FALSE(set.Contains(21));
}

TEST(UidSetText, ReadsRangesInAnyOrderAndDirection) {
    const auto set = UidSet::Parse("9:7,1,2:*", 10);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->ToText(), "1:*");
    EXPECT_EQ(UidSet::Parse("5:3", 10)->ToText(), "3:5");
}

TEST(UidSetText, RefusesWhatIsNoSet) {
    for (const char* const text : {"", "0", "1,", ",1", "1:", "a", "1-2", "4294967296", "1 2"}) {
        EXPECT_FALSE(UidSet::Parse(text, 10)) << text;
    }
    EXPECT_FALSE(UidSet::Parse("1,3,5", 2));
}

TEST(UidSetText, LeavesOutZeroAndEmptyRanges) {
    UidSet set;
    set.Add(0);
    set.AddRange(5, 4);
    EXPECT_TRUE(set.empty());
    EXPECT_EQ(UidSet::FromList({0, 3, 3, 1}).ToText(), "1,3");
}

TEST(UidSetText, BreaksLongSetsBetweenRanges) {
    UidSet set;
    for (std::uint32_t uid = 1; uid < 100; uid += 2) {
        set.Add(uid);
    }
    std::string joined;
    for (const std::string& piece : set.ToTexts(20)) {
        EXPECT_LE(piece.size(), 20U);
        joined += (joined.empty() ? "" : ",") + piece;
    }
    EXPECT_EQ(joined, set.ToText());
}

TEST(UidSetText, TheHighestUidIsTheNewest) {
    EXPECT_EQ(UidSet::From(7).ToText(), "7:*");
    EXPECT_TRUE(UidSet::From(7).Contains(4294967294U));
    UidSet set = UidSet::From(7);
    set.Add(UidSet::kNewest);
    EXPECT_EQ(set.ranges().size(), 1U);
}

TEST(DateTimeText, ReadsAndWritesWhatServersSend) {
    struct Row {
        const char* text;
        std::int64_t seconds;
        int zone;
    };
    for (const Row& row :
         {Row{" 3-Feb-2021 04:05:06 +0100", 1612321506, 60},
          Row{"17-Jul-1996 02:44:25 -0700", 837596665, -420},
          Row{" 1-Jan-1970 00:00:00 +0000", 0, 0}, Row{"31-Dec-1969 23:59:59 +0000", -1, 0},
          Row{"29-Feb-2000 12:00:00 +0545", 951804900, 345}}) {
        const auto moment = ParseDateTime(row.text);
        ASSERT_TRUE(moment) << row.text;
        EXPECT_EQ(moment->unix_seconds, row.seconds) << row.text;
        EXPECT_EQ(moment->zone_minutes, row.zone) << row.text;
        EXPECT_EQ(FormatDateTime(*moment), row.text);
    }
}

TEST(DateTimeText, TakesADayWithoutItsBlank) {
    EXPECT_EQ(ParseDateTime("3-Feb-2021 04:05:06 +0100"),
              ParseDateTime("03-feb-2021 04:05:06 +0100"));
}

TEST(DateTimeText, RefusesDaysThatThereAreNot) {
    for (const char* const text :
         {"", "31-Feb-2021 00:00:00 +0000", "29-Feb-2021 00:00:00 +0000",
          " 0-Jan-2021 00:00:00 +0000", " 1-Foo-2021 00:00:00 +0000", " 1-Jan-2021 24:00:00 +0000",
          " 1-Jan-2021 00:60:00 +0000", " 1-Jan-2021 00:00:00", " 1-Jan-2021 00:00:00 0000",
          " 1-Jan-2021 00:00:00 +00000", " 1-Jan-99 00:00:00 +0000", "1 Jan 2021 00:00:00 +0000"}) {
        EXPECT_FALSE(ParseDateTime(text)) << text;
    }
}

TEST(MailboxNameText, ReadsAndWritesModifiedUtf7) {
    struct Row {
        const char* wire;
        const char* text;
    };
    for (const Row& row :
         {Row{"INBOX", "INBOX"}, Row{"Entw&APw-rfe", "Entwürfe"},
          Row{"&U,BTFw-/&ZeVnLIqe-", "台北/日本語"}, Row{"Tom &- Jerry", "Tom & Jerry"},
          Row{"~peter/mail/&U,BTFw-/&ZeVnLIqe-", "~peter/mail/台北/日本語"}, Row{"&2D3eAA-", "😀"},
          Row{"&AOQ-&-&APY-", "ä&ö"}, Row{"../x", "../x"}, Row{"", ""}}) {
        EXPECT_EQ(DecodeMailboxName(row.wire), row.text) << row.wire;
        EXPECT_EQ(EncodeModifiedUtf7(row.text), row.wire) << row.text;
    }
}

TEST(MailboxNameText, ShowsWhatIsNotWellFormedAsItIs) {
    for (const char* const wire :
         {"a&", "a&AOQ", "&AO!-", "&A-", "&AOR-", "&3AA-", "&2D0-", "x&&y"}) {
        EXPECT_EQ(DecodeMailboxName(wire), wire);
    }
    EXPECT_EQ(DecodeMailboxName("caf\xE9"), "caf\xEF\xBF\xBD");
}

TEST(MailboxNameText, WritesBytesThatAreNoTextAsReplacements) {
    EXPECT_EQ(EncodeModifiedUtf7("\xFF"), "&,,0-");
    EXPECT_EQ(EncodeModifiedUtf7("\xC3"), "&,,0-");
    EXPECT_EQ(EncodeModifiedUtf7("\xED\xA0\x80"), "&,,3,,f,9-");
    EXPECT_EQ(EncodeModifiedUtf7("a\nb"), "a&AAo-b");
}

TEST(MailboxNameText, KnowsTheInboxInEverySpelling) {
    EXPECT_TRUE(SameMailbox("inbox", "INBOX"));
    EXPECT_FALSE(SameMailbox("inbox/a", "INBOX/a"));
    EXPECT_FALSE(SameMailbox("Sent", "sent"));
}

}  // namespace
}  // namespace trevix::imap
