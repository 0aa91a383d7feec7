// Several processes on one file, and processes that die.
#include <signal.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "unit/associated/associated_world.h"

namespace trevix::associated {
namespace {

int Join(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

TEST(AssociatedProcesses, LoseNoUpdate) {
    constexpr int kProcesses = 2;
    constexpr int kRounds = 15;
    AssociatedWorld world;
    std::string id;
    {
        AssociatedStore store(world.root(), world.clock);
        HiddenMail mail = Sample();
        mail.properties = {{"", "count", Variant(std::int32_t{0})}};
        ASSERT_TRUE(store.Write(mail).ok());
        id = mail.id;
    }

    std::array<pid_t, kProcesses> children{};
    for (pid_t& child : children) {
        child = ::fork();
        ASSERT_GE(child, 0);
        if (child != 0) continue;
        AssociatedStore store(world.root(), world.clock);
        for (int done = 0; done < kRounds;) {
            auto mail = store.Read(id);
            if (!mail.ok()) ::_exit(1);
            auto& count = std::get<std::int32_t>(mail.value().properties.at(0).value);
            ++count;
            const Status written = store.Write(mail.value());
            if (!written.ok() && written.error().kind != ErrorKind::kChanged) ::_exit(2);
            if (written.ok()) ++done;
        }
        ::_exit(0);
    }
    for (const pid_t child : children) {
        EXPECT_EQ(Join(child), 0);
    }

    AssociatedStore store(world.root(), world.clock);
    const HiddenMail mail = store.Read(id).value();
    EXPECT_EQ(std::get<std::int32_t>(mail.properties.at(0).value), kProcesses * kRounds);
    EXPECT_EQ(mail.revision, 1 + kProcesses * kRounds);
}

// Often, because what went wrong once took a moment between two looks at the new file.
TEST(AssociatedProcesses, MakeTheFileTogether) {
    constexpr int kRounds = 40;
    for (int round = 0; round < kRounds; ++round) {
        AssociatedWorld world;
        std::array<pid_t, 3> children{};
        for (pid_t& child : children) {
            child = ::fork();
            ASSERT_GE(child, 0);
            if (child != 0) continue;
            AssociatedStore store(world.root(), world.clock);
            HiddenMail mail = Sample();
            mail.attachments.clear();
            const Status written = store.Write(mail);
            if (!written.ok()) std::fprintf(stderr, "%s\n", written.error().description.c_str());
            ::_exit(written.ok() ? 0 : 1);
        }
        for (const pid_t child : children) {
            EXPECT_EQ(Join(child), 0);
        }

        EXPECT_EQ(AssociatedStore(world.root(), world.clock).List().value().size(), 3U);
        EXPECT_EQ(world.FileCount(), 1U);
    }
}

// Kills its process when its nth piece is asked for: in the middle of a write.
class DeadlyContent final : public Blob::Source {
 public:
    explicit DeadlyContent(int pieces) : pieces_left_(pieces) {}
    std::uint64_t size_bytes() const override { return std::uint64_t{8} * 1024 * 1024; }
    Status ReadAt(std::uint64_t, char* target, std::size_t count) const override {
        if (pieces_left_-- == 0) ::kill(::getpid(), SIGKILL);
        std::fill(target, target + count, 'd');
        return {};
    }

 private:
    mutable int pieces_left_;
};

TEST(AssociatedProcesses, ADeathInTheMiddleOfAWriteLeavesTheOldState) {
    for (const int pieces : {0, 1, 20, 31}) {
        AssociatedWorld world;
        std::string id;
        {
            AssociatedStore store(world.root(), world.clock);
            HiddenMail mail = Sample();
            ASSERT_TRUE(store.Write(mail).ok());
            id = mail.id;
        }
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            AssociatedStore store(world.root(), world.clock);
            HiddenMail mail = store.Read(id).value();
            mail.subject = "half";
            mail.attachments[0].content = Blob(std::make_shared<DeadlyContent>(pieces));
            (void)store.Write(mail).ok();
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));

        AssociatedStore store(world.root(), world.clock);
        const HiddenMail mail = store.Read(id).value();
        EXPECT_EQ(mail.subject, "a sample");
        EXPECT_EQ(mail.attachments.at(0).content.ToString().value(), std::string(600000, 'z'));
        HiddenMail changed = mail;
        EXPECT_TRUE(store.Write(changed).ok());
        EXPECT_EQ(world.FileCount(), 1U) << "nothing is left beside the file";
    }
}

// The child writes on and on and is killed at moments that the parent does not choose; whatever it
// was doing, the file holds one of the states that it wrote, whole.
TEST(AssociatedProcesses, AKillAtAnyMomentLeavesAWholeState) {
    AssociatedWorld world;
    std::string id;
    {
        AssociatedStore store(world.root(), world.clock);
        HiddenMail mail = Sample();
        mail.subject = "0";
        mail.attachments = {{"0", 1, Blob::FromString(std::string(50000, '0'))}};
        ASSERT_TRUE(store.Write(mail).ok());
        id = mail.id;
    }
    for (int round = 0; round < 8; ++round) {
        std::array<int, 2> started{};
        ASSERT_EQ(::pipe(started.data()), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            AssociatedStore store(world.root(), world.clock);
            HiddenMail mail = store.Read(id).value();
            for (int number = 0;; ++number) {
                const char digit = static_cast<char>('0' + number % 10);
                mail.subject = std::string(1, digit);
                mail.attachments = {{mail.subject, 1, Blob::FromString(std::string(50000, digit))}};
                if (!store.Write(mail).ok()) ::_exit(1);
                if (::write(started[1], &digit, 1) != 1) ::_exit(2);
            }
        }
        char byte = 0;
        for (int writes = 0; writes <= round; ++writes) {
            ASSERT_EQ(::read(started[0], &byte, 1), 1);
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(started[0]);
        ::close(started[1]);

        AssociatedStore store(world.root(), world.clock);
        HiddenMail mail = store.Read(id).value();
        ASSERT_EQ(mail.subject.size(), 1U);
        EXPECT_EQ(mail.attachments.at(0).name, mail.subject);
        EXPECT_EQ(mail.attachments.at(0).content.ToString().value(),
                  std::string(50000, mail.subject[0]));
    }
}

TEST(AssociatedProcesses, AReadOnlyDirectoryIsReadAndNotWritten) {
    AssociatedWorld world;
    std::string id;
    {
        AssociatedStore store(world.root(), world.clock);
        HiddenMail mail = Sample();
        ASSERT_TRUE(store.Write(mail).ok());
        id = mail.id;
    }
    ASSERT_EQ(::chmod(world.file().c_str(), 0644), 0);
    ASSERT_EQ(::chmod(world.root().c_str(), 0555), 0);
    const std::string before = world.Bytes();

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) ::_exit(99);
        AssociatedStore store(world.root(), world.clock);
        auto mail = store.Read(id);
        if (!mail.ok()) ::_exit(1);
        const Status written = store.Write(mail.value());
        if (written.ok()) ::_exit(2);
        ::_exit(written.error().kind == ErrorKind::kDenied ? 0 : 3);
    }
    EXPECT_EQ(Join(child), 0);

    EXPECT_EQ(world.Bytes(), before);
    ::chmod(world.root().c_str(), 0700);
}

TEST(AssociatedProcesses, AnEmptyReadOnlyDirectoryIsAnEmptyList) {
    AssociatedWorld world;
    ASSERT_EQ(::chmod(world.root().c_str(), 0555), 0);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) ::_exit(99);
        AssociatedStore store(world.root(), world.clock);
        const auto list = store.List();
        if (!list.ok() || !list.value().empty()) ::_exit(1);
        HiddenMail mail = Sample();
        const Status written = store.Write(mail);
        ::_exit(!written.ok() && written.error().kind == ErrorKind::kDenied ? 0 : 2);
    }
    EXPECT_EQ(Join(child), 0);

    ::chmod(world.root().c_str(), 0700);
    EXPECT_EQ(world.FileCount(), 0U);
}

}  // namespace
}  // namespace trevix::associated
