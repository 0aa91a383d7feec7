#include "shell/log_writer.h"

#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

constexpr const char* kLogPath = "/tmp/trevix-1000/ZipTemp/trevix.log";

struct LogWriterWrite : testing::Test {
    LogWriterWrite() {
        world.ci.ErrorLogLevel = 4;
        world.ci.ErrorLogSize = 100000;
        world.ci.gAddinMode = true;
    }
    void Write(const std::string& message, std::int16_t level) {
        world.ci.log.Write("basCI", "GetZipTemp", message, level);
    }
    std::string File() { return world.files.files[kLogPath]; }
    World world;
};

TEST_F(LogWriterWrite, WritesALevelEqualToTheLimit) {
    Write(" at the limit", 4);

    EXPECT_EQ(world.Log(), (std::vector<std::string>{"basCI::GetZipTemp: at the limit"}));
    EXPECT_EQ(File(), "10/5/2007 12:00:00 PM TrevixCI Version 4.0.4737\r\n at the limit\r\n");
}

TEST_F(LogWriterWrite, WritesNothingAtAllOneLevelAboveTheLimit) {
    Write(" above", 5);

    EXPECT_TRUE(world.Log().empty());
    EXPECT_FALSE(world.files.files.contains(kLogPath));
}

TEST_F(LogWriterWrite, WritesNoFileForASizeOfZeroButStillTheEvent) {
    world.ci.ErrorLogSize = 0;

    Write(" event only", 1);

    EXPECT_EQ(world.Log().size(), 1U);
    EXPECT_FALSE(world.files.files.contains(kLogPath));
}

TEST_F(LogWriterWrite, LowersALevelAboveFourInTheEventAndInTheCallersVariable) {
    world.ci.ErrorLogLevel = 12;
    std::int16_t level = 6;

    world.ci.log.Write("basCI", "GetZipTemp", " six", level);

    EXPECT_EQ(level, 4);
    ASSERT_EQ(world.event_log.events.size(), 1U);
    EXPECT_EQ(world.event_log.events[0].type, 4);
}

TEST_F(LogWriterWrite, LeavesTheCallersVariableWithoutAnEventLog) {
    world.ci.ErrorLogLevel = 12;
    world.event_log.available = false;
    std::int16_t level = 8;

    world.ci.log.Write("basCI", "GetZipTemp", " eight", level);

    EXPECT_EQ(level, 8);
    EXPECT_NE(File().find(" eight"), std::string::npos);
}

TEST_F(LogWriterWrite, NamesItsSourceByTheMode) {
    Write(" add-in", 1);
    world.ci.gAddinMode = false;
    Write(" server", 1);

    EXPECT_EQ(world.event_log.events[0].source, "Trevix");
    EXPECT_EQ(world.event_log.events[1].source, "TXServer");
    EXPECT_EQ(File().find(" server"), std::string::npos);
}

TEST_F(LogWriterWrite, DropsOnlyTheFirstLineOfAFileJustOverTheLimit) {
    world.ci.GetZipTemp();
    world.ci.ErrorLogSize = 10;
    world.files.Put(kLogPath, "one\r\ntwo\r\nthree\r\n");

    Write(" new", 1);

    EXPECT_EQ(File(),
              "two\r\nthree\r\n\r\n10/5/2007 12:00:00 PM TrevixCI Version 4.0.4737\r\n new\r\n");
}

TEST_F(LogWriterWrite, KeepsAFileOfExactlyTheLimit) {
    world.ci.GetZipTemp();
    world.ci.ErrorLogSize = 5;
    world.files.Put(kLogPath, "one\r\n");

    Write(" new", 1);

    EXPECT_TRUE(File().starts_with("one\r\n10/5/2007"));
}

TEST_F(LogWriterWrite, KeepsTheTrimmedTextOfASingleLineWithoutALineFeed) {
    world.ci.GetZipTemp();
    world.ci.ErrorLogSize = 3;
    world.files.Put(kLogPath, "  one line  ");

    Write(" new", 1);

    EXPECT_TRUE(File().starts_with("one line\r\n10/5/2007 12:00:00 PM"));
}

TEST_F(LogWriterWrite, PassesOverEveryFailureAndRunsTheRemainingSteps) {
    world.plan.FailCalls("eventlog.Report", RuntimeError(kDeviceIo));
    Write(" one", 1);
    EXPECT_NE(File().find(" one"), std::string::npos);

    world.plan.FailCalls("files.AppendText", RuntimeError(kDiskFull));
    Write(" two", 1);
    EXPECT_TRUE(world.Logged(" two"));
}

}  // namespace
}  // namespace trevix
