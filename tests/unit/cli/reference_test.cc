#include "cli/reference.h"

#include <gmock/gmock.h>

#include "cli/command_table.h"
#include "cli/completion.h"
#include "cli/man_page.h"

namespace trevix::cli {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const OptionReference* FindOption(const CommandReference& command, const std::string& name) {
    for (const OptionReference& option : command.options) {
        for (const std::string& one : option.names) {
            if (one == name) return &option;
        }
    }
    return nullptr;
}

TEST(ReferenceOf, NamesEveryCommandOfTheTable) {
    const CommandReference program = ProgramReference();

    for (const Command& command : CommandTable()) {
        const CommandReference* reference = FindCommand(program, command.name);
        ASSERT_NE(reference, nullptr) << command.name;
        EXPECT_EQ(reference->summary, command.summary);
        EXPECT_EQ(reference->usage, command.usage);
        EXPECT_FALSE(reference->examples.empty());
    }
    EXPECT_EQ(FindCommand(program, "frobnicate"), nullptr);
    EXPECT_EQ(FindCommand(program, ""), &program);
}

TEST(ReferenceOf, KeepsWhatIsForTheProgramsOwnUse) {
    const CommandReference program = ProgramReference();
    const CommandReference* compress = FindCommand(program, "compress");

    EXPECT_EQ(FindOption(*compress, "--part-of"), nullptr);
    EXPECT_NE(FindOption(*compress, "--users-from"), nullptr);
}

TEST(ReferenceOf, TellsNamesValuesAndRepetitionOfOptions) {
    const CommandReference program = ProgramReference();
    const CommandReference& compress = *FindCommand(program, "compress");

    const OptionReference* dry_run = FindOption(compress, "--dry-run");
    ASSERT_NE(dry_run, nullptr);
    EXPECT_THAT(dry_run->names, ElementsAre("-n", "--dry-run"));
    EXPECT_EQ(dry_run->value, "");
    const OptionReference* folder = FindOption(compress, "--folder");
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(folder->value, "PATH");
    EXPECT_TRUE(folder->repeats);
    EXPECT_THAT(ChoicesOf(*FindOption(compress, "--level")), ElementsAre("ex", "std", "ef", "es"));
    EXPECT_THAT(ChoicesOf(*folder), ElementsAre());
}

TEST(ReferenceOf, LeavesOutWhatChecksAddToAType) {
    const CommandReference program = ProgramReference();

    EXPECT_EQ(FindOption(*FindCommand(program, "log"), "--lines")->value, "LINES");
    EXPECT_EQ(FindOption(*FindCommand(program, "extract"), "--row")->value, "N");
}

TEST(ReferenceOf, TellsOperandsOfCommandsBelowACommand) {
    const CommandReference program = ProgramReference();
    const CommandReference* set = FindCommand(program, "config set");

    ASSERT_NE(set, nullptr);
    ASSERT_EQ(set->operands.size(), 2U);
    EXPECT_THAT(set->operands[0].names, ElementsAre("SETTING"));
    EXPECT_TRUE(set->operands[0].is_required);
    EXPECT_FALSE(set->operands[1].is_required);
    EXPECT_THAT(set->examples, ElementsAre("trevixctl config set exclude .zip:.jpg:.gif",
                                           "trevixctl config set exclude --default"));
}

TEST(RoffText, LeavesNothingThatTheFormatterObeys) {
    EXPECT_EQ(RoffText(".so file"), "\\&.so file");
    EXPECT_EQ(RoffText("'quoted'"), "\\&\\(aqquoted\\(aq");
    EXPECT_EQ(RoffText("a\\b \"c\" --d"), "a\\eb \\(dqc\\(dq \\-\\-d");
    EXPECT_EQ(RoffText("~ ^ é"), "\\(ti \\(ha é");
    EXPECT_EQ(RoffText(""), "");
}

TEST(FillManPage, FillsInWhatTheTableSaysAndKeepsTheRest) {
    const CommandReference program = ProgramReference();

    const auto page = FillManPage("@HEAD@\nof @DATE@\n@OPTIONS@\n@EXAMPLES@\n@EXIT_STATUS@\n",
                                  "trevixctl-index.1.in", "May 1, 2027", program);

    ASSERT_TRUE(page.ok());
    EXPECT_THAT(
        page.value(),
        AllOf(HasSubstr(".Dt TREVIXCTL-INDEX 1\n"), HasSubstr("\nof May 1, 2027\n"),
              HasSubstr(".It Fl \\-rebuild\nFrom nothing"), HasSubstr(".It 130\nCancelled."),
              HasSubstr("\ntrevixctl index \\-\\-maildir \\(ti/Maildir \\-\\-rebuild\n")));
}

TEST(FillManPage, NamesAWordThatItDoesNotKnow) {
    const CommandReference program = ProgramReference();

    const auto page = FillManPage("@FROBNICATE@\n", "trevixctl.1.in", "", program);

    ASSERT_FALSE(page.ok());
    EXPECT_EQ(page.error().description, "FROBNICATE");
    EXPECT_FALSE(FillManPage("@HEAD@\n", "trevixctl-frobnicate.1.in", "", program).ok());
    EXPECT_FALSE(FillManPage("@OPTIONS@\n", "trevixci.8.in", "", program).ok());
}

CommandReference Tricky() {
    OptionReference option{{"--odd"}, "DIR", "It's a [tricky]: \"one\"", "Options"};
    CommandReference command{"run", "run", "Runs: all", "run", {}, {option}, {}, {}};
    return {"", "", "", "", {}, {}, {}, {command}};
}

// What shells make of a whole script is tested with the shells themselves.
TEST(Completion, QuotesTextsForEachShell) {
    EXPECT_THAT(ZshCompletion(Tricky()),
                AllOf(HasSubstr("'run:Runs\\: all'"),
                      HasSubstr("--odd[It'\\''s a \\[tricky\\]\\: \"one\"]:DIR:_directories'")));
    EXPECT_THAT(FishCompletion(Tricky()), HasSubstr("-d 'It\\'s a [tricky]: \"one\"'"));
    EXPECT_THAT(BashCompletion(Tricky()),
                AllOf(HasSubstr("'run:--odd') compopt"), Not(HasSubstr("tricky"))));
}

}  // namespace
}  // namespace trevix::cli
