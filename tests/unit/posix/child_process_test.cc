#include "platform/posix/child_process.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace trevix::posix {
namespace {

// Waits until `descriptor` can be read; a child that hangs fails the test by its time-out.
void WaitFor(int descriptor) {
    pollfd one{descriptor, POLLIN, 0};
    ASSERT_EQ(::poll(&one, 1, -1), 1);
}

std::string WholeReport(ChildProcess& child) {
    std::string text;
    do {
        WaitFor(child.report_descriptor());
    } while (child.ReadReport(text));
    return text;
}

int CountDescriptors() {
    DIR* directory = ::opendir("/proc/self/fd");
    int count = 0;
    while (::readdir(directory) != nullptr)
        ++count;
    ::closedir(directory);
    return count;
}

TEST(ChildProcess, ReportsThroughItsDescriptor) {
    auto child = ChildProcess::Start("/bin/sh", {"-c", "echo :1.7 >&3; echo more >&3"});
    ASSERT_TRUE(child.ok()) << child.error().description;

    EXPECT_EQ(WholeReport(*child.value()), ":1.7\nmore\n");
    WaitFor(child.value()->end_descriptor());
    child.value()->Reap();
}

TEST(ChildProcess, HasMoreToComeWhileItIsSilent) {
    auto child = ChildProcess::Start("/bin/sleep", {"600"});
    ASSERT_TRUE(child.ok());

    std::string text;
    EXPECT_TRUE(child.value()->ReadReport(text));

    EXPECT_EQ(text, "");
    child.value()->Terminate();
    WaitFor(child.value()->end_descriptor());
    child.value()->Reap();
}

TEST(ChildProcess, EndsWhenItIsAskedTo) {
    // Signals that this process blocks are not blocked in the child.
    sigset_t signals;
    sigset_t before;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &signals, &before);
    auto child = ChildProcess::Start("/bin/sleep", {"600"});
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    ASSERT_TRUE(child.ok());

    child.value()->Terminate();

    WaitFor(child.value()->end_descriptor());
    child.value()->Reap();
    child.value()->Terminate();  // of nobody any more
}

TEST(ChildProcess, InheritsNoDescriptorBesidesTheReport) {
    constexpr int kOurs = 200;
    ASSERT_EQ(::dup2(STDOUT_FILENO, kOurs), kOurs);
    auto child = ChildProcess::Start(
        "/bin/sh", {"-c", "[ -e /proc/self/fd/200 ] && echo open >&3 || echo closed >&3"});
    ::close(kOurs);
    ASSERT_TRUE(child.ok());

    EXPECT_EQ(WholeReport(*child.value()), "closed\n");
    WaitFor(child.value()->end_descriptor());
    child.value()->Reap();
}

TEST(ChildProcess, ReportsThroughItsOutputWithoutInput) {
    constexpr auto kOutput = ChildProcess::Report::kOutput;
    // More than a pipe takes at once, and what is in standard input.
    auto child = ChildProcess::Start(
        "/bin/sh", {"-c", "cat; head -c 300000 /dev/zero | tr '\\0' x; ls /proc/self/fd | wc -l"},
        kOutput);
    ASSERT_TRUE(child.ok()) << child.error().description;

    const std::string text = WholeReport(*child.value());

    EXPECT_EQ(text.size(), 300002U);
    // The three, and the directory being listed.
    EXPECT_EQ(text.substr(300000), "4\n");
    WaitFor(child.value()->end_descriptor());
    EXPECT_EQ(child.value()->Reap(), 0);
}

TEST(ChildProcess, TellsHowItEnded) {
    for (const auto& [script, status] :
         {std::pair("exit 75", 75), std::pair("kill -9 $$", -9), std::pair("kill -15 $$", -15)}) {
        auto child = ChildProcess::Start("/bin/sh", {"-c", script});
        ASSERT_TRUE(child.ok());
        WaitFor(child.value()->end_descriptor());
        EXPECT_EQ(child.value()->Reap(), status) << script;
    }
}

TEST(EndWithParent, SeesThatTheParentIsAnother) {
    EXPECT_FALSE(EndWithParent(1 << 30));
    EXPECT_TRUE(EndWithParent(::getppid()));
}

TEST(ChildProcess, LeavesNoDescriptorWhenItCannotBeStarted) {
    const int before = CountDescriptors();

    const auto child = ChildProcess::Start("/nowhere/at/all", {});

    EXPECT_FALSE(child.ok());
    EXPECT_EQ(child.error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(CountDescriptors(), before);
}

}  // namespace
}  // namespace trevix::posix
