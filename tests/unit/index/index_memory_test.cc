#include "index/index_memory.h"

#include <gtest/gtest.h>

namespace trevix {
namespace {

TEST(IndexMemory, RemembersQuietMessagesByIdAndTime) {
    IndexMemory memory;
    memory.NoteQuiet("00AB", Date{39000.5});

    IndexMemory next;
    next.Load(memory.Text());

    EXPECT_TRUE(next.IsQuiet("00AB", Date{39000.5}));
    EXPECT_FALSE(next.IsQuiet("00AB", Date{39000.25}));
    EXPECT_FALSE(next.IsQuiet("00AC", Date{39000.5}));
    EXPECT_FALSE(next.IsUnfinished("00AB"));
}

TEST(IndexMemory, ForgetsQuietMessagesThatARunDoesNotMeet) {
    IndexMemory memory;
    memory.NoteQuiet("00AB", Date{1});
    memory.NoteQuiet("00AC", Date{1});
    IndexMemory next;
    next.Load(memory.Text());
    next.NoteQuiet("00AC", Date{1});

    IndexMemory last;
    last.Load(next.Text());

    EXPECT_FALSE(last.IsQuiet("00AB", Date{1}));
    EXPECT_TRUE(last.IsQuiet("00AC", Date{1}));
}

TEST(IndexMemory, KeepsUnfinishedMessagesUntilTheyAreFinished) {
    IndexMemory memory;
    memory.NoteUnfinished("00AB");
    memory.NoteUnfinished("00AC");

    IndexMemory next;
    next.Load(memory.Text());
    EXPECT_TRUE(next.IsUnfinished("00AB"));
    next.NoteFinished("00AB");

    IndexMemory last;
    last.Load(next.Text());
    EXPECT_FALSE(last.IsUnfinished("00AB"));
    EXPECT_TRUE(last.IsUnfinished("00AC"));
}

TEST(IndexMemory, TakesAnyOtherTextForNone) {
    IndexMemory memory;
    for (const char* text : {"", "1:", "1:/", "2:0000000000000000", "1:zzzzzzzzzzzzzzzz/yyyy",
                             "garbage", "1:0000000000000000"}) {
        memory.Load(text);
        EXPECT_FALSE(memory.IsQuiet("00AB", Date{1})) << text;
        EXPECT_FALSE(memory.IsUnfinished("00AB")) << text;
    }
}

TEST(IndexMemory, DoesNotGrowWithoutBound) {
    IndexMemory memory;
    for (int i = 0; i < 70000; ++i)
        memory.NoteQuiet(std::to_string(i), Date{1});

    EXPECT_LE(memory.Text().size(), 1100000U);
}

}  // namespace
}  // namespace trevix
