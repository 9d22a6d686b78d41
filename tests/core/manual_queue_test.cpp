#include "core/manual_queue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using velmora::ManualQueue;

TEST(ManualQueue, TimersFireInDueOrderOnlyWhenTheClockMovesAndTimersTheySetFireWithinTheSameAdvance) {
    ManualQueue queue(100.0);
    std::vector<std::pair<std::string, double>> fired;
    std::function<void()> again = [&] {
        fired.push_back({"again", queue.now()});
        if (fired.size() < 5) queue.postAfter(2, again);
    };
    queue.postAfter(4, [&] { fired.push_back({"four", queue.now()}); });
    queue.postAfter(2, [&] { fired.push_back({"two", queue.now()}); });
    queue.postAfter(2, again);
    queue.runPending();
    EXPECT_TRUE(fired.empty());
    queue.advance(5);
    const std::vector<std::pair<std::string, double>> expected{{"two", 102}, {"again", 102}, {"four", 104}, {"again", 104}};
    EXPECT_EQ(fired, expected);
    EXPECT_DOUBLE_EQ(queue.now(), 105.0);
}

TEST(ManualQueue, CancelledTimersNeverRunEvenWhenCancelledByAnotherTimerDueAtTheSameMoment) {
    ManualQueue queue;
    int runs = 0;
    velmora::TimerHandle second;
    auto first = queue.postAfter(5, [&] { second->cancel(); });
    second = queue.postAfter(5, [&] { ++runs; });
    queue.postAfter(1, [&] { ++runs; })->cancel();
    queue.advance(10);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(first->fired());
    EXPECT_FALSE(queue.advanceToNextTimer());
}

// Waiting for work posted from other threads is what every test with a child process does; a wait
// that timed out must say so, or those tests would pass without their answer.
TEST(ManualQueue, RunsPostedWorkInOrderAndAWaitThatTimesOutSaysSo) {
    ManualQueue queue;
    std::vector<std::string> seen;
    queue.post([&] {
        seen.push_back("a");
        queue.post([&] { seen.push_back("c"); });
    });
    queue.post([&] { seen.push_back("b"); });
    EXPECT_EQ(queue.runPending(), 3u);
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
}
