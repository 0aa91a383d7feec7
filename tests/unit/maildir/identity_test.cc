#include "platform/maildir/identity.h"

#include <gtest/gtest.h>

namespace trevix::maildir {
namespace {

TEST(Locator, ComesBackAsItWentIn) {
    const Identity identity{Place::kNew, "1 x.host:2,S\xFF", 18446744073709551615U, 12, -5, 7};

    const auto back = DecodeLocator(EncodeLocator(identity));

    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->place, Place::kNew);
    EXPECT_EQ(back->name, identity.name);
    EXPECT_EQ(back->inode, identity.inode);
    EXPECT_EQ(back->size_bytes, 12U);
    EXPECT_EQ(back->mtime_ns, -5);
    EXPECT_EQ(back->ctime_ns, 7);
}

TEST(Locator, IsRefusedWhenItIsNotOurs) {
    for (const char* text : {"", "c", "c ", "x 1 2 3 4 name", "c 1 2 3 name", "c 1 2 3 4 ",
                             "c 1 2 3 4 a/b", "c -1 2 3 4 a", "c 1 2 3 99999999999999999999 a"}) {
        EXPECT_FALSE(DecodeLocator(text).has_value()) << text;
    }
}

}  // namespace
}  // namespace trevix::maildir
