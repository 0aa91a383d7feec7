// Messages that a server was asked for ahead, and those that are wanted otherwise.
#include "platform/imap/read_ahead.h"

#include <algorithm>
#include <random>

#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

class ReadAheadOn : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        world_ = std::make_unique<StoreWorld>(GetParam());
        TREVIX_NEEDS(*world_);
        for (int count = 0; count < 12; ++count)
            world_->Deliver(StoreWorld::MailOf("mail " + std::to_string(count)));
    }

    static std::string SubjectOf(MailStore& store, const MailEntry& entry) {
        const auto outline = store.Outline("INBOX", entry);
        if (!outline.ok()) return "error: " + outline.error().description;
        const std::string text = outline.value().skeleton.ToString().value();
        const std::size_t begin = text.find("Subject:");
        return text.substr(begin, text.find('\r', begin) - begin);
    }

    std::unique_ptr<StoreWorld> world_;
};

INSTANTIATE_TEST_SUITE_P(Servers, ReadAheadOn, testing::Values("dovecot", "cyrus"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(ReadAheadOn, AMessageThatWasPassedOverIsToBeHadAllTheSame) {
    const auto store = world_->Open();
    const std::vector<MailEntry> entries = Listed(*store);
    ASSERT_EQ(entries.size(), 12U);
    store->Expect("INBOX", entries, MailUse::kIndex);
    const std::string last = SubjectOf(*store, entries.back());
    EXPECT_FALSE(last.starts_with("error"));

    const std::string first = SubjectOf(*store, entries.front());

    EXPECT_FALSE(first.starts_with("error")) << first;
    // And when it is expected anew, as by the run that follows.
    store->Expect("INBOX", entries, MailUse::kIndex);
    for (const MailEntry& entry : entries)
        EXPECT_FALSE(SubjectOf(*store, entry).starts_with("error"));
}

TEST_P(ReadAheadOn, WhateverWasExpectedTheRightMessageComes) {
    const auto store = world_->Open();
    std::vector<MailEntry> entries = Listed(*store);
    std::vector<std::string> subjects;
    const auto plain = world_->Open();
    for (const MailEntry& entry : entries)
        subjects.push_back(SubjectOf(*plain, entry));
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        std::vector<MailEntry> expected = entries;
        std::shuffle(expected.begin(), expected.end(), random);
        expected.resize(random() % expected.size());
        store->Expect("INBOX", expected, static_cast<MailUse>(random() % 3));
        for (int wanted = 0; wanted < 4; ++wanted) {
            const std::size_t at = random() % entries.size();
            ASSERT_EQ(SubjectOf(*store, entries[at]), subjects[at]);
        }
    }
}

}  // namespace
}  // namespace trevix::imap
