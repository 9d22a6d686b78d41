#include "core/manual_queue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using velmora::ManualQueue;

TEST(ManualQueue, TimersFireAtTheirDueTimeInDueOrderAndOnlyWhenTheClockMoves) {
    ManualQueue queue(100.0);
    std::vector<std::pair<std::string, double>> fired;
    queue.postAfter(4, [&] { fired.push_back({"four", queue.now()}); });
    queue.postAfter(2, [&] { fired.push_back({"two", queue.now()}); });
    queue.postAfter(2, [&] { fired.push_back({"two-again", queue.now()}); });
    queue.runPending();
    EXPECT_TRUE(fired.empty());
    queue.advance(3);
    ASSERT_EQ(fired.size(), 2u);
    EXPECT_EQ(fired[0], std::make_pair(std::string("two"), 102.0));
    EXPECT_EQ(fired[1], std::make_pair(std::string("two-again"), 102.0));
    EXPECT_DOUBLE_EQ(queue.now(), 103.0);
    queue.advance(1);
    ASSERT_EQ(fired.size(), 3u);
    EXPECT_EQ(fired[2], std::make_pair(std::string("four"), 104.0));
}

TEST(ManualQueue, CancelledTimersNeverRunEvenWhenCancelledByAnotherTimerDueAtTheSameMoment) {
    ManualQueue queue;
    int runs = 0;
    velmora::TimerHandle second;
    auto first = queue.postAfter(5, [&] { second->cancel(); });
    second = queue.postAfter(5, [&] { ++runs; });
    auto third = queue.postAfter(1, [&] { ++runs; });
    third->cancel();
    EXPECT_EQ(queue.pendingTimers(), 2u);
    queue.advance(10);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(first->fired());
    EXPECT_FALSE(second->pending());
    EXPECT_EQ(queue.pendingTimers(), 0u);
    EXPECT_FALSE(queue.advanceToNextTimer());
}

TEST(ManualQueue, TimersScheduledFromTimersFireWithinTheSameAdvanceWhenDue) {
    ManualQueue queue(0);
    std::vector<double> times;
    std::function<void()> again = [&] {
        times.push_back(queue.now());
        if (times.size() < 4) queue.postAfter(2, again);
    };
    queue.postAfter(2, again);
    queue.advance(7);
    EXPECT_EQ(times, (std::vector<double>{2, 4, 6}));
    EXPECT_DOUBLE_EQ(queue.secondsToNextTimer(), 1.0);
    EXPECT_TRUE(queue.advanceToNextTimer());
    EXPECT_EQ(times.size(), 4u);
}

TEST(ManualQueue, RunsPostedWorkInOrderAndWaitsForWorkFromOtherThreads) {
    ManualQueue queue;
    std::vector<std::string> seen;
    queue.post([&] {
        seen.push_back("a");
        queue.post([&] { seen.push_back("c"); });
    });
    queue.post([&] { seen.push_back("b"); });
    EXPECT_EQ(queue.runPending(), 3u);
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
    bool arrived = false;
    std::thread worker([&] { queue.post([&] { arrived = true; }); });
    EXPECT_TRUE(queue.runUntil([&] { return arrived; }, 5.0));
    worker.join();
    EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
}
