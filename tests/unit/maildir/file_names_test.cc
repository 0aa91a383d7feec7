#include "platform/maildir/file_names.h"

#include <gtest/gtest.h>

namespace trevix::maildir {
namespace {

TEST(KeyOf, IsTheBaseWithoutFieldsAndFlags) {
    EXPECT_EQ(KeyOf("1.M2P3.host"), "1.M2P3.host");
    EXPECT_EQ(KeyOf("1.M2P3.host:2,"), "1.M2P3.host");
    EXPECT_EQ(KeyOf("1.M2P3.host:2,FS"), "1.M2P3.host");
    EXPECT_EQ(KeyOf("1.host,S=12,W=13:2,S"), "1.host");
    EXPECT_EQ(KeyOf("1.host,W=13"), "1.host");
    EXPECT_EQ(KeyOf("1.host,U=7,FMD5=abc:2,"), "1.host");
}

TEST(KeyOf, KeepsCommasThatBeginNoField) {
    EXPECT_EQ(KeyOf("1.a,b.host:2,S"), "1.a,b.host");
    EXPECT_EQ(KeyOf("1.a,B:2,S"), "1.a,B");
    EXPECT_EQ(KeyOf("1.a,s=4,S=5"), "1.a,s=4");
    EXPECT_EQ(KeyOf("1.a,"), "1.a,");
}

TEST(KeyOf, IsTheWholeNameWhenThereIsNoBase) {
    EXPECT_EQ(KeyOf(":2,S"), ":2,S");
    EXPECT_EQ(KeyOf(",S=5:2,S"), ",S=5:2,S");
}

TEST(SuffixOf, IsWhatStandsFromTheMarkOn) {
    EXPECT_EQ(SuffixOf("1.host,S=5:2,FS"), ":2,FS");
    EXPECT_EQ(SuffixOf("1.host:2,"), ":2,");
    EXPECT_EQ(SuffixOf("1.host"), "");
    EXPECT_EQ(SuffixOf("1.host:1,x"), "");
}

TEST(HasField, LooksBetweenBaseAndSuffixOnly) {
    EXPECT_TRUE(HasField("1.host,S=5:2,S", 'S'));
    EXPECT_FALSE(HasField("1.host,S=5:2,S", 'W'));
    EXPECT_TRUE(HasField("1.host,S=5,W=6", 'W'));
    EXPECT_FALSE(HasField("1.host:2,S=", 'S'));
    EXPECT_FALSE(HasField("1.host", 'S'));
}

TEST(CarryFlags, CopiesWhereNothingElseHappened) {
    EXPECT_EQ(CarryFlags(":2,S", ":2,S", ":2,FS"), ":2,FS");
    EXPECT_EQ(CarryFlags("", "", ":2,S"), ":2,S");
    EXPECT_EQ(CarryFlags(":2,S", ":2,S", ":2,"), ":2,");
}

TEST(CarryFlags, AppliesTheDifferenceWhereBothChanged) {
    EXPECT_EQ(CarryFlags(":2,RS", ":2,S", ":2,FS"), ":2,FRS");
    EXPECT_EQ(CarryFlags(":2,RS", ":2,S", ":2,"), ":2,R");
    EXPECT_EQ(CarryFlags(":2,FS", ":2,S", ":2,FS"), ":2,FS");
    EXPECT_EQ(CarryFlags(":2,a", "", ":2,S"), ":2,Sa");
}

TEST(UniqueBase, HasTheShapeOfADeliveredName) {
    const NameParts parts{1700000000123456789, 42, 7, "0123456789abcdef", "host"};

    EXPECT_EQ(UniqueBase(parts, 0), "1700000000.M123456P42Q7T0123456789abcdef.host");
    EXPECT_EQ(KeyOf(UniqueBase(parts, 0)), UniqueBase(parts, 0));
}

TEST(UniqueBase, CutsTheHostToTheRoomThereIs) {
    const NameParts parts{1700000000123456789, 42, 7, "0123456789abcdef", std::string(300, 'h')};

    EXPECT_EQ(UniqueBase(parts, 100).size(), 155U);
    EXPECT_TRUE(UniqueBase(parts, 250).ends_with("T0123456789abcdef."));
}

TEST(IsMadeBy, KnowsTheJournalOfAName) {
    const std::string name = UniqueBase({1, 2, 3, "0123456789abcdef", "host.dom"}, 0);

    EXPECT_TRUE(IsMadeBy(name, "0123456789abcdef"));
    EXPECT_TRUE(IsMadeBy(name + ",S=5:2,S", "0123456789abcdef"));
    EXPECT_FALSE(IsMadeBy(name, "0123456789abcdee"));
    EXPECT_FALSE(IsMadeBy("1.M2P3Q4.hostT0123456789abcdef.x", "0123456789abcdef"));
    EXPECT_FALSE(IsMadeBy("T0123456789abcdef.", "0123456789abcdef"));
    EXPECT_FALSE(IsMadeBy("", "0123456789abcdef"));
}

TEST(MakerOf, IsTheJournalInANameOfOurs) {
    const std::string name = UniqueBase({1, 2, 3, "0123456789abcdef", "host.dom"}, 0);

    EXPECT_EQ(MakerOf(name), "0123456789abcdef");
    EXPECT_EQ(MakerOf(name + ",S=5:2,S"), "0123456789abcdef");
    for (const char* other :
         {"", "1", "1.h", "1.M2P3Q4.host", "1.T0123456789abcde.h", "1.0123456789abcdef0.h",
          "1.T0123456789ABCDEF.h", "T0123456789abcdef.h"}) {
        EXPECT_EQ(MakerOf(other), "") << other;
    }
}

TEST(HostForNames, IsFitForAFileName) {
    const std::string host = HostForNames();

    EXPECT_FALSE(host.empty());
    EXPECT_EQ(host.find_first_of("/:,"), std::string::npos);
}

}  // namespace
}  // namespace trevix::maildir
