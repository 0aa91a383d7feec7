#include "platform/registry/process_environment.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace trevix::registry {
namespace {

// The process's environment is replaced by these entries and put back at the end.
class Entries {
 public:
    Entries() : old_(::environ) { ::environ = entries_.data(); }
    Entries(const Entries&) = delete;
    Entries& operator=(const Entries&) = delete;
    ~Entries() { ::environ = old_; }

 private:
    std::string temp_ = "TEMP=/tmp";
    std::string name_ = "Name=upper";
    std::string lower_ = "name=lower";
    std::array<char*, 4> entries_ = {temp_.data(), name_.data(), lower_.data(), nullptr};
    char** old_;
};

TEST(ProcessEnvironmentEntry, CountsFromOneAndIsEmptyBeyondTheLast) {
    const Entries entries;
    ProcessEnvironment environment;

    EXPECT_EQ(environment.Entry(1), "TEMP=/tmp");
    EXPECT_EQ(environment.Entry(3), "name=lower");
    EXPECT_EQ(environment.Entry(4), "");
    EXPECT_EQ(environment.Entry(5), "");
    EXPECT_EQ(environment.Entry(0), "");
    EXPECT_EQ(environment.Entry(-1), "");
}

TEST(ProcessEnvironmentExpand, ReplacesKnownNamesInAnyCase) {
    const Entries entries;
    ProcessEnvironment environment;

    EXPECT_EQ(environment.Expand("%TEMP%/a %temp%"), "/tmp/a /tmp");
    EXPECT_EQ(environment.Expand("%name%%Name%"), "lowerupper");
    EXPECT_EQ(environment.Expand("%NAME%"), "upper");
}

TEST(ProcessEnvironmentExpand, LeavesUnknownNamesAndSinglePercentSigns) {
    const Entries entries;
    ProcessEnvironment environment;

    EXPECT_EQ(environment.Expand("%NONE%"), "%NONE%");
    EXPECT_EQ(environment.Expand("100%"), "100%");
    EXPECT_EQ(environment.Expand("%%"), "%%");
    EXPECT_EQ(environment.Expand("50% %TEMP%"), "50% /tmp");
    EXPECT_EQ(environment.Expand(""), "");
}

}  // namespace
}  // namespace trevix::registry
