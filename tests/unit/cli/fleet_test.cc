#include "cli/fleet.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "cli/exit_codes.h"
#include "cli/fleet_list.h"

namespace trevix::cli {
namespace {

using testing::ElementsAre;

std::vector<std::string> NamesIn(std::string_view text) {
    std::vector<std::string> names;
    for (const FleetMember& member : ParseFleetList(text, ""))
        names.push_back(member.name);
    return names;
}

TEST(ParseFleetList, TakesOneMailboxALine) {
    EXPECT_THAT(NamesIn(""), ElementsAre());
    EXPECT_THAT(NamesIn("ann"), ElementsAre("ann"));
    EXPECT_THAT(NamesIn("ann\nben\n"), ElementsAre("ann", "ben"));
    EXPECT_THAT(NamesIn("\n\n  ann \r\n\tben b\t\n \n"), ElementsAre("ann", "ben b"));
}

TEST(ParseFleetList, PassesOverCommentsAndRepetitions) {
    EXPECT_THAT(NamesIn("# all\nann\n  # ben\nann\nann#1\n"), ElementsAre("ann", "ann#1"));
}

TEST(ParseFleetList, TakesUsersOfAServerOrStores) {
    const auto users = ParseFleetList("ann\n", "host");
    const auto stores = ParseFleetList("imaps://ann@host\n", "");

    EXPECT_EQ(users[0].store.profile, "");
    EXPECT_EQ(users[0].store.server, "host");
    EXPECT_EQ(users[0].store.alias, "ann");
    EXPECT_EQ(stores[0].store.profile, "imaps://ann@host");
}

int ExitCodeOf(const std::vector<int>& exit_codes, std::size_t not_started = 0) {
    FleetTally tally;
    for (const int exit_code : exit_codes)
        tally.Count(exit_code);
    tally.NotStarted(not_started);
    return tally.ExitCode(false, true);
}

TEST(FleetTallyExitCode, IsDoneWhenAllAre) {
    EXPECT_EQ(ExitCodeOf({}), kExitDone);
    EXPECT_EQ(ExitCodeOf({0, 0}), kExitDone);
}

TEST(FleetTallyExitCode, IsFailedWhenNothingElseHappened) {
    EXPECT_EQ(ExitCodeOf({1}), kExitFailed);
    EXPECT_EQ(ExitCodeOf({1, 2, -11}), kExitFailed);
}

TEST(FleetTallyExitCode, TellsThatSomeFailed) {
    EXPECT_EQ(ExitCodeOf({0, 1}), kExitSomeFailed);
    EXPECT_EQ(ExitCodeOf({3}), kExitSomeFailed);
    EXPECT_EQ(ExitCodeOf({1, 75}), kExitSomeFailed);
    EXPECT_EQ(ExitCodeOf({1}, 1), kExitSomeFailed);
    EXPECT_EQ(ExitCodeOf({0, 75, -9, 130}), kExitSomeFailed);
}

TEST(FleetTallyExitCode, AsksForAnotherTryWhereARunWasHeldOrCutShort) {
    EXPECT_EQ(ExitCodeOf({75, 75}), kExitHeld);
    EXPECT_EQ(ExitCodeOf({0, 75}), kExitHeld);
    EXPECT_EQ(ExitCodeOf({0, 75, 130}), kExitTimeUp);
    EXPECT_EQ(ExitCodeOf({0}, 3), kExitTimeUp);
}

TEST(FleetTallyExitCode, IsCancelledByAPersonWhateverHappened) {
    FleetTally tally;
    tally.Count(1);
    tally.Count(130);
    EXPECT_EQ(tally.ExitCode(true, true), kExitCancelled);
    EXPECT_EQ(tally.ExitCode(true, false), kExitCancelled);
}

TEST(FleetTallyFields, CountsEachOutcome) {
    FleetTally tally;
    for (const int exit_code : {0, 3, 1, -6, 75, 130, 124})
        tally.Count(exit_code);
    tally.NotStarted(5);

    EXPECT_EQ(tally.Fields(), (nlohmann::json{{"mailboxes", 12},
                                              {"done", 1},
                                              {"partial", 1},
                                              {"failed", 2},
                                              {"busy", 1},
                                              {"stopped", 2},
                                              {"not_started", 5}}));
}

}  // namespace
}  // namespace trevix::cli
