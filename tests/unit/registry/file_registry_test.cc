#include "platform/registry/file_registry.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/errors.h"

namespace trevix::registry {
namespace {

namespace fs = std::filesystem;

const std::string kHeader = "Windows Registry Editor Version 5.00\n";

class FileRegistryTest : public testing::Test {
 protected:
    FileRegistryTest() : root_(testing::TempDir() + "registry-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
    }
    ~FileRegistryTest() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    std::string UserFile() const { return root_ + "/config/trevix/user.reg"; }
    std::string MachineFile() const { return root_ + "/machine.reg"; }
    FileRegistry Make() const { return FileRegistry(UserFile(), MachineFile()); }

    void WriteUserFile(const std::string& text) const {
        fs::create_directories(fs::path(UserFile()).parent_path());
        std::ofstream(UserFile(), std::ios::binary | std::ios::trunc) << text;
    }

    static std::string ReadFile(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    std::string root_;
};

std::unique_ptr<RegistryKey> Open(FileRegistry& registry, const std::string& path,
                                  std::uint32_t access = kKeyAllAccess,
                                  std::uint32_t root = kCurrentUser) {
    auto key = registry.CreateKey(root, path, access);
    EXPECT_TRUE(key.ok()) << (key.ok() ? "" : key.error().description);
    return key.ok() ? std::move(key).value() : nullptr;
}

mode_t ModeOf(const std::string& path) {
    struct stat file = {};
    return ::stat(path.c_str(), &file) == 0 ? file.st_mode & 07777U : 0;
}

// Runs `body` as an ordinary user, for an administrator may do everything. What it returns is the
// result; -1 when the process did not end on its own.
template <typename Body>
int AsOrdinaryUser(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(99);
        ::_exit(body());
    }
    int state = 0;
    ::waitpid(child, &state, 0);
    return WIFEXITED(state) ? WEXITSTATUS(state) : -1;
}

TEST_F(FileRegistryTest, MakesItsPrivateFileOnTheFirstWrite) {
    FileRegistry registry = Make();

    ASSERT_TRUE(Open(registry, "Software\\Trevix")->SetValue("n", kRegSz, {"x\0", 2}).ok());

    EXPECT_EQ(ReadFile(UserFile()),
              kHeader + "\n[HKEY_CURRENT_USER\\Software\\Trevix]\n\"n\"=\"x\"\n");
    EXPECT_EQ(ModeOf(UserFile()), 0600U);
    EXPECT_EQ(ModeOf(root_ + "/config/trevix"), 0700U);
    EXPECT_EQ(ModeOf(root_ + "/config"), 0700U);
    EXPECT_FALSE(fs::exists(UserFile() + ".new"));
    EXPECT_FALSE(fs::exists(MachineFile()));
}

TEST_F(FileRegistryTest, ReadsAndOpensExistingKeysWithoutWriting) {
    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\A\\B]\n\"n\"=dword:1\n");
    FileRegistry registry = Make();

    EXPECT_TRUE(Open(registry, "A", kKeyRead)->QueryInfo().ok());
    EXPECT_TRUE(Open(registry, "", kKeyRead)->QueryInfo().ok());

    EXPECT_FALSE(fs::exists(UserFile() + ".lock"));
}

TEST_F(FileRegistryTest, PutsTheMachineRootsIntoTheMachineFile) {
    FileRegistry registry = Make();

    Open(registry, "M", kKeyRead, kLocalMachine);
    Open(registry, "C", kKeyRead, kClassesRoot);

    EXPECT_EQ(ReadFile(MachineFile()),
              kHeader + "\n[HKEY_LOCAL_MACHINE\\M]\n\n[HKEY_CLASSES_ROOT\\C]\n");
    EXPECT_FALSE(fs::exists(UserFile()));
}

TEST_F(FileRegistryTest, KeepsTheModeOfTheFile) {
    WriteUserFile(kHeader);
    ASSERT_EQ(::chmod(UserFile().c_str(), 0640), 0);
    FileRegistry registry = Make();

    Open(registry, "K");

    EXPECT_EQ(ModeOf(UserFile()), 0640U);
}

TEST_F(FileRegistryTest, FollowsALinkToTheFileAndKeepsTheLink) {
    fs::create_directories(root_ + "/config/trevix");
    fs::create_directories(root_ + "/elsewhere");
    std::ofstream(root_ + "/elsewhere/settings") << kHeader;
    fs::create_symlink(root_ + "/elsewhere/settings", UserFile());
    FileRegistry registry = Make();

    Open(registry, "K");

    EXPECT_TRUE(fs::is_symlink(UserFile()));
    EXPECT_EQ(ReadFile(root_ + "/elsewhere/settings"), kHeader + "\n[HKEY_CURRENT_USER\\K]\n");
}

TEST_F(FileRegistryTest, NeverOverwritesAFileWithASyntaxError) {
    const std::string broken = kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"C:\\temp\"\n";
    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n");
    FileRegistry registry = Make();
    auto key = Open(registry, "K");
    WriteUserFile(broken);

    const Status written = key->SetValue("m", kRegSz, "");
    const auto opened = registry.CreateKey(kCurrentUser, "New", kKeyRead);

    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(written.error().description,
              UserFile() + ":3: a backslash inside quotes must be doubled");
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(key->QueryValue("n").error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(ReadFile(UserFile()), broken);
}

TEST_F(FileRegistryTest, ServesAgainOnceTheFileIsMended) {
    WriteUserFile("nonsense");
    FileRegistry registry = Make();
    ASSERT_FALSE(registry.CreateKey(kCurrentUser, "K", kKeyRead).ok());

    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=dword:1\n");

    EXPECT_TRUE(Open(registry, "K", kKeyRead)->QueryValue("n").ok());
}

TEST_F(FileRegistryTest, SeesEveryEditOfOthersEvenOfEqualSize) {
    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"0\"\n");
    FileRegistry registry = Make();
    auto key = Open(registry, "K", kKeyRead);

    for (int round = 0; round < 200; ++round) {
        const std::string text = std::to_string(round % 10);
        WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"" + text + "\"\n");
        ASSERT_EQ(key->QueryValue("n").value().data, text + '\0');
    }
}

TEST_F(FileRegistryTest, ForgetsAllWhenTheFileIsDeleted) {
    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"0\"\n");
    FileRegistry registry = Make();
    auto key = Open(registry, "K", kKeyRead);

    fs::remove(UserFile());

    EXPECT_EQ(key->QueryValue("n").error().kind, ErrorKind::kGone);
}

TEST_F(FileRegistryTest, LosesNoWriteOfSeveralProcesses) {
    constexpr int kProcesses = 4;
    constexpr int kValues = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        if (child == 0) {
            FileRegistry registry = Make();
            for (int i = 0; i < kValues; ++i) {
                auto key = registry.CreateKey(kCurrentUser, "K", kKeyAllAccess);
                const std::string name = std::to_string(process) + "-" + std::to_string(i);
                if (!key.ok() || !key.value()->SetValue(name, kRegSz, {"x\0", 2}).ok()) ::_exit(1);
            }
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int state = 0;
        ::waitpid(child, &state, 0);
        EXPECT_EQ(state, 0);
    }

    FileRegistry registry = Make();
    EXPECT_EQ(Open(registry, "K")->QueryInfo().value().values, kProcesses * kValues);
}

TEST_F(FileRegistryTest, UsesUpATemporaryFileThatACrashLeftBehind) {
    WriteUserFile(kHeader);
    std::ofstream(UserFile() + ".new") << "half a fi";
    FileRegistry registry = Make();

    Open(registry, "K");

    EXPECT_FALSE(fs::exists(UserFile() + ".new"));
    EXPECT_EQ(ReadFile(UserFile()), kHeader + "\n[HKEY_CURRENT_USER\\K]\n");
}

TEST_F(FileRegistryTest, ServesExistingKeysOfAReadOnlyFile) {
    WriteUserFile(kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"0\"\n");
    fs::permissions(root_, fs::perms(0755));
    fs::permissions(root_ + "/config", fs::perms(0555));
    fs::permissions(root_ + "/config/trevix", fs::perms(0555));
    fs::permissions(UserFile(), fs::perms(0444));

    const int outcome = AsOrdinaryUser([&] {
        FileRegistry registry = Make();
        const auto key = registry.CreateKey(kCurrentUser, "K", kKeyRead);
        if (!key.ok() || !key.value()->QueryValue("n").ok()) return 1;
        const auto writable = registry.CreateKey(kCurrentUser, "K", kKeyReadWrite);
        if (writable.ok() || writable.error().kind != ErrorKind::kDenied) return 2;
        const auto missing = registry.CreateKey(kCurrentUser, "New", kKeyRead);
        if (missing.ok() || missing.error().kind != ErrorKind::kDenied) return 3;
        return 0;
    });

    EXPECT_EQ(outcome, 0);
}

TEST_F(FileRegistryTest, DeniesAFileThatCannotBeRead) {
    WriteUserFile(kHeader);
    fs::permissions(root_, fs::perms(0755));
    fs::permissions(root_ + "/config", fs::perms(0755));
    fs::permissions(root_ + "/config/trevix", fs::perms(0755));
    fs::permissions(UserFile(), fs::perms(0));

    const int outcome = AsOrdinaryUser([&] {
        FileRegistry registry = Make();
        const auto key = registry.CreateKey(kCurrentUser, "K", kKeyRead);
        return key.ok() || key.error().kind != ErrorKind::kDenied ? 1 : 0;
    });

    EXPECT_EQ(outcome, 0);
}

TEST_F(FileRegistryTest, DeniesADirectoryThatCannotBeMade) {
    std::ofstream(root_ + "/config") << "a file in the way";
    FileRegistry registry = Make();

    const auto key = registry.CreateKey(kCurrentUser, "K", kKeyRead);

    ASSERT_FALSE(key.ok());
    EXPECT_EQ(key.error().kind, ErrorKind::kDenied);
}

TEST_F(FileRegistryTest, RefusesWhatIsNotAFile) {
    fs::create_directories(fs::path(UserFile()).parent_path());
    ASSERT_EQ(::mkfifo(UserFile().c_str(), 0600), 0);
    FileRegistry registry = Make();

    EXPECT_FALSE(registry.CreateKey(kCurrentUser, "K", kKeyRead).ok());
}

TEST_F(FileRegistryTest, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
    const std::string old = kHeader + "[HKEY_CURRENT_USER\\K]\n\"n\"=\"0\"\n";
    WriteUserFile(old);

    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{16, 16};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        FileRegistry registry = Make();
        auto key = registry.CreateKey(kCurrentUser, "K", kKeyAllAccess);
        const bool written = key.ok() && key.value()->SetValue("n", kRegSz, {"1\0", 2}).ok();
        ::_exit(key.ok() && !written ? 0 : 1);
    }
    int state = -1;
    ::waitpid(child, &state, 0);

    EXPECT_EQ(state, 0);
    EXPECT_EQ(ReadFile(UserFile()), old);
    EXPECT_FALSE(fs::exists(UserFile() + ".new"));
}

TEST_F(FileRegistryTest, RefusesNamesThatTheFileCannotHold) {
    FileRegistry registry = Make();
    auto key = Open(registry, "K");

    EXPECT_FALSE(key->SetValue("a\nb", kRegSz, "").ok());
    EXPECT_FALSE(registry.CreateKey(kCurrentUser, "a\nb", kKeyRead).ok());
    EXPECT_FALSE(registry.CreateKey(kCurrentUser, "a];b", kKeyRead).ok());
}

TEST_F(FileRegistryTest, TakesThePathWithSuperfluousSeparators) {
    FileRegistry registry = Make();
    Open(registry, "\\A\\\\B\\");

    EXPECT_EQ(Open(registry, "A")->EnumKey(0).value(), "B");
}

TEST(UserFilePath, FollowsTheConfigurationDirectory) {
    ::setenv("XDG_CONFIG_HOME", "/srv/config", 1);
    EXPECT_EQ(UserFilePath(), "/srv/config/trevix/user.reg");

    ::setenv("HOME", "/home/ada", 1);
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(UserFilePath(), "/home/ada/.config/trevix/user.reg");
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(UserFilePath(), "/home/ada/.config/trevix/user.reg");
}

}  // namespace
}  // namespace trevix::registry
