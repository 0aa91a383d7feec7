#include "platform/zip/entry_text.h"

#include <gtest/gtest.h>

namespace trevix::zip_engine {
namespace {

std::string Numbered(int number) {
    return "image (" + std::to_string(number) + ").png";
}

TEST(FreeName, NumbersTensOfThousandsOfOneNameWithoutAGap) {
    constexpr int kFiles = 20000;
    std::unordered_set<std::string> taken;
    for (int file = 1; file <= kFiles; ++file) {
        const std::string name = FreeName("image.png", taken);
        ASSERT_EQ(name, file == 1 ? "image.png" : Numbered(file));
        ASSERT_TRUE(taken.insert(FoldCase(name)).second);
    }
}

TEST(FreeName, IsFreeWhateverNumbersAreTaken) {
    // Each choice of the numbers 2 to 13.
    for (unsigned choice = 0; choice < (1U << 12); ++choice) {
        std::unordered_set<std::string> taken = {"image.png"};
        for (int bit = 0; bit < 12; ++bit) {
            if ((choice >> bit & 1U) != 0) taken.insert(Numbered(bit + 2));
        }
        const std::string name = FreeName("IMAGE.PNG", taken);
        ASSERT_FALSE(taken.contains(FoldCase(name))) << name << " of choice " << choice;
        ASSERT_TRUE(name.starts_with("IMAGE (") && name.ends_with(").PNG")) << name;
    }
}

TEST(FreeName, KeepsAFolderWithAPointInItsName) {
    EXPECT_EQ(FreeName("v1.2/none", {"v1.2/none"}), "v1.2/none (2)");
    EXPECT_EQ(FreeName("v1.2/.dot", {"v1.2/.dot"}), "v1.2/.dot (2)");
}

}  // namespace
}  // namespace trevix::zip_engine
