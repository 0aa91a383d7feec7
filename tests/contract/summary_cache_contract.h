// What every summary cache must do, as tests over a factory.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/summary_cache.h"

namespace trevix::contract {

struct SummaryCacheParam {
    const char* name;
    std::function<std::unique_ptr<SummaryCache>()> make;
};

class SummaryCacheContract : public testing::TestWithParam<SummaryCacheParam> {
 protected:
    static MessageSummary MakeMessage(int number) {
        MessageSummary message;
        message.entry.key = "key-" + std::to_string(number);
        message.entry.locator = "cur/key-" + std::to_string(number) + ":2,S";
        message.entry.size_bytes = 4'000'000'000U + static_cast<unsigned>(number);
        message.entry.changed_ns = 1'700'000'000'123'456'789 + number;
        message.entry.received_ns = -5 - number;
        message.entry.number = number;
        message.first_seen_ns = number % 2 == 0 ? 0 : 1'700'000'000'000'000'001;
        message.own_write_ns = number % 3 == 0 ? 1'700'000'000'000'000'002 : 0;
        message.has_attachments = number % 3 == 0;
        message.subject = "Betreff \xC3\xA4 " + std::to_string(number);
        message.message_class = "IPM.Note";
        return message;
    }

    static FolderSummary MakeFolder(const std::string& stamp, int first, int end) {
        FolderSummary folder;
        folder.stamp = stamp;
        for (int i = first; i < end; ++i)
            folder.messages.push_back(MakeMessage(i));
        return folder;
    }

    static void ExpectSame(const FolderSummary& a, const FolderSummary& b) {
        EXPECT_EQ(a.stamp, b.stamp);
        ASSERT_EQ(a.messages.size(), b.messages.size());
        for (std::size_t i = 0; i < a.messages.size(); ++i) {
            const MessageSummary& x = a.messages[i];
            const MessageSummary& y = b.messages[i];
            EXPECT_EQ(x.entry.key, y.entry.key);
            EXPECT_EQ(x.entry.locator, y.entry.locator);
            EXPECT_EQ(x.entry.size_bytes, y.entry.size_bytes);
            EXPECT_EQ(x.entry.changed_ns, y.entry.changed_ns);
            EXPECT_EQ(x.entry.received_ns, y.entry.received_ns);
            EXPECT_EQ(x.entry.number, y.entry.number);
            EXPECT_EQ(x.first_seen_ns, y.first_seen_ns);
            EXPECT_EQ(x.own_write_ns, y.own_write_ns);
            EXPECT_EQ(x.has_attachments, y.has_attachments);
            EXPECT_EQ(x.subject, y.subject);
            EXPECT_EQ(x.message_class, y.message_class);
        }
    }

    std::unique_ptr<SummaryCache> cache_ = GetParam().make();
};

TEST_P(SummaryCacheContract, KnowsNothingAtFirst) {
    EXPECT_FALSE(cache_->KnowsStore("maildir:/a").value());
    ExpectSame(cache_->Load("maildir:/a", "INBOX").value(), FolderSummary{});
}

TEST_P(SummaryCacheContract, GivesBackWhatWasSaved) {
    const FolderSummary folder = MakeFolder(std::string("st\0amp", 6), 0, 2000);

    ASSERT_TRUE(cache_->Save("maildir:/a", "INBOX", {}, folder).ok());

    EXPECT_TRUE(cache_->KnowsStore("maildir:/a").value());
    EXPECT_FALSE(cache_->KnowsStore("maildir:/b").value());
    ExpectSame(cache_->Load("maildir:/a", "INBOX").value(), folder);
}

TEST_P(SummaryCacheContract, KeepsFoldersAndStoresApart) {
    ASSERT_TRUE(cache_->Save("maildir:/a", "", {}, MakeFolder("1", 0, 3)).ok());
    ASSERT_TRUE(cache_->Save("maildir:/a", "x", {}, MakeFolder("2", 0, 5)).ok());
    ASSERT_TRUE(cache_->Save("maildir:/b", "x", {}, MakeFolder("3", 7, 9)).ok());

    ExpectSame(cache_->Load("maildir:/a", "").value(), MakeFolder("1", 0, 3));
    ExpectSame(cache_->Load("maildir:/a", "x").value(), MakeFolder("2", 0, 5));
    ExpectSame(cache_->Load("maildir:/b", "x").value(), MakeFolder("3", 7, 9));
}

TEST_P(SummaryCacheContract, FollowsMessagesThatComeGoAndChange) {
    FolderSummary before = MakeFolder("1", 0, 3000);
    ASSERT_TRUE(cache_->Save("maildir:/a", "INBOX", {}, before).ok());
    FolderSummary now = before;
    now.stamp = "2";
    now.messages.erase(now.messages.begin() + 1200);
    now.messages.insert(now.messages.begin() + 40, MakeMessage(5000));
    now.messages[700].entry.locator += "F";
    now.messages.push_back(MakeMessage(5001));

    ASSERT_TRUE(cache_->Save("maildir:/a", "INBOX", before, now).ok());
    ExpectSame(cache_->Load("maildir:/a", "INBOX").value(), now);

    ASSERT_TRUE(cache_->Save("maildir:/a", "INBOX", now, {}).ok());
    ExpectSame(cache_->Load("maildir:/a", "INBOX").value(), FolderSummary{});
}

TEST_P(SummaryCacheContract, KeepsAFolderWithoutMessages) {
    FolderSummary empty;
    empty.stamp = "7";

    ASSERT_TRUE(cache_->Save("maildir:/a", "INBOX", {}, empty).ok());

    ExpectSame(cache_->Load("maildir:/a", "INBOX").value(), empty);
}

}  // namespace trevix::contract
