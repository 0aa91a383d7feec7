#include "platform/helper_thread.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace trevix {
namespace {

TEST(HelperThread, RunsItsJobsInOrderBesideTheCaller) {
    std::vector<int> order;
    std::thread::id where;
    HelperThread helper;
    helper.Run([&] { order.push_back(1); });
    helper.Run([&] {
        order.push_back(2);
        where = std::this_thread::get_id();
    });

    EXPECT_EQ(helper.Run([] { return 3; }).get(), 3);

    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_NE(where, std::this_thread::get_id());
}

TEST(HelperThread, FinishesWhatItWasGivenBeforeItGoes) {
    int done = 0;
    {
        HelperThread helper;
        for (int i = 0; i < 100; ++i)
            helper.Run([&done] { ++done; });
    }
    EXPECT_EQ(done, 100);
}

TEST(HelperThread, HandsAFailureToWhoeverAsks) {
    HelperThread helper;
    auto outcome = helper.Run([]() -> int { throw std::runtime_error("no"); });

    EXPECT_THROW(outcome.get(), std::runtime_error);
    EXPECT_EQ(helper.Run([] { return 1; }).get(), 1);
}

}  // namespace
}  // namespace trevix
