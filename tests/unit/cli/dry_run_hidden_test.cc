#include "cli/dry_run_hidden.h"

#include <gmock/gmock.h>

#include "fakes/fake_clock.h"
#include "fakes/fake_mail_store.h"

namespace trevix::cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct HiddenWorld {
    HiddenWorld() {
        HiddenMail mail;
        mail.message_class = "IPM.Post.Results";
        mail.properties = {{"set", "StartCI", Date{2}}, {"set", "EndCI", Date{1}}};
        mail.attachments = {{"txfolders.zip", 1, Blob::FromString("zip")}};
        EXPECT_TRUE(behind.Write(mail).ok());
        id = mail.id;
    }

    fakes::FaultPlan plan;
    fakes::FakeClock clock;
    fakes::FakeHiddenMailStore behind{plan};
    DryRunHidden hidden{behind, clock, HeldLock::kConcealed};
    std::string id;
};

std::vector<std::string> NamesOf(const HiddenMail& mail) {
    std::vector<std::string> names;
    for (const HiddenMail::Property& property : mail.properties) {
        names.push_back(property.name);
    }
    return names;
}

TEST(DryRunHiddenRead, ConcealsAHeldLock) {
    HiddenWorld world;

    const auto mail = world.hidden.Read(world.id);

    ASSERT_TRUE(mail.ok());
    EXPECT_THAT(NamesOf(mail.value()), ElementsAre("EndCI"));
}

TEST(DryRunHiddenRead, ShowsAHeldLockToAStatusReport) {
    HiddenWorld world;
    DryRunHidden shown(world.behind, world.clock, HeldLock::kShown);

    EXPECT_THAT(NamesOf(shown.Read(world.id).value()), ElementsAre("StartCI", "EndCI"));
}

TEST(DryRunHiddenRead, ShowsALockThatThisRunTook) {
    HiddenWorld world;
    HiddenMail mail = world.hidden.Read(world.id).value();
    mail.properties.push_back({"set", "StartCI", Date{3}});

    ASSERT_TRUE(world.hidden.Write(mail).ok());

    EXPECT_THAT(NamesOf(world.hidden.Read(world.id).value()), ElementsAre("EndCI", "StartCI"));
}

TEST(DryRunHiddenWrite, KeepsAChangeToItself) {
    HiddenWorld world;
    const HiddenMail before = world.behind.mails.at(world.id);
    HiddenMail mail = world.hidden.Read(world.id).value();
    mail.subject = "changed";

    ASSERT_TRUE(world.hidden.Write(mail).ok());

    EXPECT_EQ(mail.revision, before.revision + 1);
    EXPECT_EQ(mail.modified_ns, world.clock.UnixNanoseconds());
    EXPECT_EQ(world.hidden.Read(world.id).value().subject, "changed");
    EXPECT_EQ(world.hidden.Read(world.id).value().attachments.size(), 1U);
    EXPECT_EQ(world.behind.mails.at(world.id).subject, "");
    EXPECT_EQ(world.behind.mails.at(world.id).revision, before.revision);
}

TEST(DryRunHiddenWrite, RefusesAnOlderRevisionAndARemovedMessage) {
    HiddenWorld world;
    HiddenMail mine = world.hidden.Read(world.id).value();
    HiddenMail other = mine;
    ASSERT_TRUE(world.hidden.Write(other).ok());

    const Status old_revision = world.hidden.Write(mine);
    ASSERT_TRUE(world.hidden.Remove(world.id).ok());
    const Status removed = world.hidden.Write(other);

    EXPECT_EQ(old_revision.error().kind, ErrorKind::kChanged);
    EXPECT_EQ(removed.error().kind, ErrorKind::kGone);
}

TEST(DryRunHiddenWrite, InsertsUnderAnIdOfSixteenBytes) {
    HiddenWorld world;
    HiddenMail first;
    HiddenMail second;

    ASSERT_TRUE(world.hidden.Write(first).ok());
    ASSERT_TRUE(world.hidden.Write(second).ok());

    EXPECT_EQ(first.id.size(), 16U);
    EXPECT_NE(first.id, second.id);
    EXPECT_EQ(first.revision, 1);
    EXPECT_EQ(world.hidden.List().value().size(), 3U);
    EXPECT_EQ(world.behind.mails.size(), 1U);
}

TEST(DryRunHiddenList, ShowsChangesWithoutTheirContent) {
    HiddenWorld world;
    HiddenMail mail = world.hidden.Read(world.id).value();
    mail.subject = "changed";
    ASSERT_TRUE(world.hidden.Write(mail).ok());

    const auto list = world.hidden.List();

    ASSERT_EQ(list.value().size(), 1U);
    EXPECT_EQ(list.value()[0].subject, "changed");
    EXPECT_THAT(list.value()[0].properties, IsEmpty());
    EXPECT_THAT(list.value()[0].attachments, IsEmpty());
}

TEST(DryRunHiddenRemove, TakesAMessageOutOfSightOnly) {
    HiddenWorld world;

    ASSERT_TRUE(world.hidden.Remove(world.id).ok());

    EXPECT_THAT(world.hidden.List().value(), IsEmpty());
    EXPECT_EQ(world.hidden.Read(world.id).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(world.hidden.Remove(world.id).error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(world.behind.mails.size(), 1U);
}

}  // namespace
}  // namespace trevix::cli
