#include "platform/eventlog/event_entry.h"

#include <gtest/gtest.h>

namespace trevix::eventlog {
namespace {

EventEntry Entry(const std::string& text, int type = 4) {
    return MakeEntry({text}, "Trevix", "", type);
}

TEST(MakeEntry, ReadsClassAndProcedure) {
    const EventEntry entry = Entry("basCI::GetZipTemp: error creating directory: 5");

    EXPECT_EQ(entry.class_name, "basCI");
    EXPECT_EQ(entry.procedure, "GetZipTemp");
    EXPECT_EQ(entry.message, "basCI::GetZipTemp: error creating directory: 5");
}

TEST(MakeEntry, LeavesTheNamesEmptyForAnotherForm) {
    for (const char* text : {"", "start", "a::b", "::b:c", "a:::c", "a b::c:d", "a::b c:d"}) {
        EXPECT_EQ(Entry(text).class_name, "") << text;
        EXPECT_EQ(Entry(text).procedure, "") << text;
        EXPECT_EQ(Entry(text).message, text);
    }
}

TEST(MakeEntry, JoinsStringsAndTheSecondText) {
    EXPECT_EQ(MakeEntry({"a", "b"}, "Trevix", "c", 1).message, "a\nb\nc");
    EXPECT_EQ(MakeEntry({}, "Trevix", "", 1).message, "");
}

TEST(PriorityOf, MapsTheEventType) {
    EXPECT_EQ(PriorityOf(1), 3);
    EXPECT_EQ(PriorityOf(2), 4);
    EXPECT_EQ(PriorityOf(4), 6);
    EXPECT_EQ(PriorityOf(0), 6);
    EXPECT_EQ(PriorityOf(3), 6);
}

TEST(JournalDatagram, HasOneLinePerField) {
    EXPECT_EQ(JournalDatagram(Entry("CManage::Run: start", 1)),
              "SYSLOG_IDENTIFIER=Trevix\nPRIORITY=3\nTREVIX_EVENT_TYPE=1\nTREVIX_CLASS=CManage\n"
              "TREVIX_PROCEDURE=Run\nMESSAGE=CManage::Run: start\n");
    EXPECT_EQ(JournalDatagram(Entry("a=b")),
              "SYSLOG_IDENTIFIER=Trevix\nPRIORITY=6\nTREVIX_EVENT_TYPE=4\nMESSAGE=a=b\n");
}

TEST(JournalDatagram, PutsTheLengthBeforeAValueWithLineFeeds) {
    const std::string datagram = JournalDatagram(Entry("a\nPRIORITY=0"));

    const std::string length = {'\x0C', 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(datagram.substr(datagram.find("MESSAGE")), "MESSAGE\n" + length + "a\nPRIORITY=0\n");
}

TEST(JournalDatagram, KeepsASourceWithLineFeedsInItsField) {
    const std::string datagram = JournalDatagram(MakeEntry({"m"}, "a\nMESSAGE=x", "", 4));

    EXPECT_TRUE(datagram.starts_with("SYSLOG_IDENTIFIER\n\x0B"));
}

TEST(JournalDatagram, CutsAVeryLongText) {
    EXPECT_LT(JournalDatagram(Entry(std::string(1000000, 'x'))).size(), 66000U);
}

TEST(SyslogDatagram, IsOneLine) {
    EXPECT_EQ(SyslogDatagram(Entry("a\r\nb\tc", 2), 17), "<12>Trevix[17]: a  b c");
    EXPECT_EQ(SyslogDatagram(Entry("x", 1), 17), "<11>Trevix[17]: x");
    EXPECT_EQ(SyslogDatagram(Entry("x", 4), 17), "<14>Trevix[17]: x");
}

TEST(SyslogDatagram, IsCutAtACharacterBoundary) {
    std::string text;
    while (text.size() < 4000)
        text += "\u20AC";

    for (const std::string pad : {"", "a", "ab"}) {
        const std::string datagram = SyslogDatagram(Entry(pad + text), 17);
        EXPECT_LE(datagram.size(), 2048U);
        EXPECT_GT(datagram.size(), 2045U);
        EXPECT_TRUE(datagram.ends_with("\u20AC"));
    }
}

}  // namespace
}  // namespace trevix::eventlog
