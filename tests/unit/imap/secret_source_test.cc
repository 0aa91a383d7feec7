#include "platform/imap/secret_source.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "unit/posix/scratch.h"

namespace trevix::imap {
namespace {

using namespace std::chrono_literals;
using test::Put;
using test::Scratch;
using testing::HasSubstr;
using testing::Not;
using Kind = SecretSource::Kind;

SecretSource Command(std::vector<std::string> words) {
    SecretSource source;
    source.kind = Kind::kCommand;
    source.command = std::move(words);
    source.said_at = "servers.conf:3";
    return source;
}

SecretSource Shell(const std::string& script) {
    return Command({"sh", "-c", script});
}

SecretSource Named(Kind kind, const std::string& name) {
    SecretSource source;
    source.kind = kind;
    source.name = name;
    source.said_at = "servers.conf:3";
    return source;
}

void ExpectRefused(const Result<Secret>& secret, const std::string& why) {
    ASSERT_FALSE(secret.ok());
    EXPECT_EQ(secret.error().kind, ErrorKind::kDenied);
    EXPECT_THAT(secret.error().description, HasSubstr("servers.conf:3"));
    EXPECT_THAT(secret.error().description, HasSubstr(why));
    EXPECT_THAT(secret.error().description, Not(HasSubstr("geheim")));
}

TEST(Secret, IsWipedWhereItWas) {
    std::string place(100, 'x');
    const char* const bytes = place.data();

    Secret::Wipe(place);

    EXPECT_TRUE(place.empty());
    EXPECT_EQ(place.data(), bytes);
    EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
}

TEST(Secret, LeavesNothingBehindWhenItMoves) {
    std::string text(100, 'x');
    const char* const bytes = text.data();

    Secret first(std::move(text));
    Secret second(std::move(first));
    first = std::move(second);

    EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
    EXPECT_EQ(first.text(), std::string(100, 'x'));
}

TEST(ReadSecret, TakesTheFirstLineOfACommand) {
    EXPECT_EQ(ReadSecret(Shell("echo ' ge heim '; echo more")).value().text(), " ge heim ");
    EXPECT_EQ(ReadSecret(Shell("printf 'geheim\\r\\nmore'")).value().text(), "geheim");
    EXPECT_EQ(ReadSecret(Shell("printf geheim")).value().text(), "geheim");
    EXPECT_EQ(ReadSecret(Command({"printf", "%s", "a;b $HOME"})).value().text(), "a;b $HOME");
}

TEST(ReadSecret, TakesALongToken) {
    EXPECT_EQ(ReadSecret(Shell("head -c 60000 /dev/zero | tr '\\0' x")).value().text().size(),
              60000U);
    ExpectRefused(ReadSecret(Shell("head -c 70000 /dev/zero | tr '\\0' x")), "too long");
    ExpectRefused(ReadSecret(Shell("yes geheim")), "too long");
}

TEST(ReadSecret, SaysWhyACommandFailed) {
    ExpectRefused(ReadSecret(Shell("echo geheim; exit 7")), "exit status 7");
    ExpectRefused(ReadSecret(Shell("echo geheim; kill -9 $$")), "signal 9");
    ExpectRefused(ReadSecret(Shell(":")), "no password in the first line");
    ExpectRefused(ReadSecret(Shell("echo; echo geheim")), "no password in the first line");
    ExpectRefused(ReadSecret(Shell("printf 'geheim\\0'")), "not a text");
    ExpectRefused(ReadSecret(Command({"/nowhere/at/all"})), "No such file");
}

TEST(ReadSecret, EndsACommandThatDoesNotAnswer) {
    const auto start = std::chrono::steady_clock::now();

    ExpectRefused(ReadSecret(Shell("echo geheim; exec sleep 600"), 50ms), "no answer in time");

    EXPECT_LT(std::chrono::steady_clock::now() - start, 300s);
}

TEST(ReadSecret, DoesNotWaitForWhatACommandLeavesRunning) {
    // It keeps the output open.
    const auto secret = ReadSecret(Shell("echo geheim; sleep 2 & exit 0"), 300s);

    ASSERT_TRUE(secret.ok());
    EXPECT_EQ(secret.value().text(), "geheim");
}

TEST(ReadSecret, GivesACommandNoInputAndNoDescriptors) {
    const auto secret = ReadSecret(Shell("ls /proc/self/fd | wc -l; cat"));

    // The three, and the directory being listed.
    EXPECT_EQ(secret.value().text(), "4");
}

TEST(ReadSecret, TakesTheFirstLineOfAPrivateFile) {
    const Scratch scratch;
    const std::string path = scratch / "password";
    for (const mode_t mode : {0600, 0400}) {
        ::unlink(path.c_str());
        Put(path, "geheim\nmore\n");
        ::chmod(path.c_str(), mode);
        const auto secret = ReadSecret(Named(Kind::kFile, path));
        ASSERT_TRUE(secret.ok()) << secret.error().description;
        EXPECT_EQ(secret.value().text(), "geheim");
    }
}

TEST(ReadSecret, RefusesAFileThatIsNotPrivate) {
    const Scratch scratch;
    const std::string path = scratch / "password";
    Put(path, "geheim\n");
    for (const mode_t mode : {0640, 0604, 0660, 0644}) {
        ::chmod(path.c_str(), mode);
        ExpectRefused(ReadSecret(Named(Kind::kFile, path)), "; make it private with chmod 600");
    }
    ExpectRefused(ReadSecret(Named(Kind::kFile, scratch / "none")), "No such file");
    ExpectRefused(ReadSecret(Named(Kind::kFile, scratch.root())), "not a file");
}

TEST(ReadSecret, DoesNotWaitForAPipe) {
    const Scratch scratch;
    const std::string path = scratch / "pipe";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    ExpectRefused(ReadSecret(Named(Kind::kFile, path)), "not a file");
}

TEST(ReadSecret, TakesACredentialOfTheServiceManager) {
    const Scratch scratch;
    Put(scratch / "imap", "geheim\n");
    ::chmod((scratch / "imap").c_str(), 0440);
    ::unsetenv("CREDENTIALS_DIRECTORY");
    ExpectRefused(ReadSecret(Named(Kind::kCredential, "imap")), "LoadCredential=");

    ::setenv("CREDENTIALS_DIRECTORY", scratch.root().c_str(), 1);
    const auto secret = ReadSecret(Named(Kind::kCredential, "imap"));
    const auto other = ReadSecret(Named(Kind::kCredential, "other"));
    ::unsetenv("CREDENTIALS_DIRECTORY");

    ASSERT_TRUE(secret.ok()) << secret.error().description;
    EXPECT_EQ(secret.value().text(), "geheim");
    ExpectRefused(other, "No such file");
}

TEST(ReadSecret, SaysWhereToNameOne) {
    SecretSource none;
    none.said_at = "servers.conf:3";
    ExpectRefused(ReadSecret(none), "trevix-servers(5)");
}

}  // namespace
}  // namespace trevix::imap
