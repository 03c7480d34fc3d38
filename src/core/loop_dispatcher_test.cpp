#include "core/loop_dispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "core/thread_serial_queue.h"

namespace duskwell {
namespace {

using namespace std::chrono;

TEST(LoopDispatcher, RunsPostedTasksInOrderOnTheRunningThreadAndTheirOwnPostsAfterThoseQueued) {
    LoopDispatcher d;
    std::vector<int> order;
    std::thread::id ranOn;
    d.post([&] { order.push_back(0); d.post([&] { order.push_back(5); d.quit(); }); });
    for (int i = 1; i < 5; ++i) d.post([&, i] { order.push_back(i); ranOn = std::this_thread::get_id(); });
    ASSERT_TRUE(d.runFor(5));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(LoopDispatcher, DelayedTasksRunByTheirTimeNotTheirPostingOrder) {
    LoopDispatcher d;
    std::vector<int> order;
    const auto start = steady_clock::now();
    steady_clock::time_point lateRan;
    d.postAfter(0.15, [&] { order.push_back(2); lateRan = steady_clock::now(); d.quit(); });
    d.postAfter(0.05, [&] { order.push_back(1); });
    d.post([&] { order.push_back(0); });
    ASSERT_TRUE(d.runFor(5));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    EXPECT_GE(lateRan - start, milliseconds(150));
}

TEST(LoopDispatcher, RunForGivesUpWhenNothingQuitsAndAQuitFromAnotherThreadWakesIt) {
    LoopDispatcher d;
    bool ran = false;
    d.postAfter(10, [&] { ran = true; });
    const auto start = steady_clock::now();
    EXPECT_FALSE(d.runFor(0.1));
    EXPECT_FALSE(ran);
    EXPECT_LT(steady_clock::now() - start, seconds(2));
    // A quit from another thread wakes the idle loop.
    std::thread other([&] {
        std::this_thread::sleep_for(milliseconds(50));
        d.quit();
    });
    EXPECT_TRUE(d.runFor(5));
    other.join();
}

TEST(LoopDispatcher, RepeatingTimerFiresUntilItsHandleIsDestroyed) {
    LoopDispatcher d;
    int fired = 0;
    auto handle = d.scheduleRepeating(0.02, [&] { ++fired; });
    d.postAfter(0.2, [&] { handle.reset(); });
    d.postAfter(0.4, [&] { d.quit(); });
    ASSERT_TRUE(d.runFor(5));
    // Roughly 10 firings in the first 0.2 s and none after the handle went.
    EXPECT_GE(fired, 3);
    EXPECT_LE(fired, 11);
    const int atCancel = fired;
    EXPECT_FALSE(d.runFor(0.1));
    EXPECT_EQ(fired, atCancel);
}

TEST(LoopDispatcher, TimerCancelledFromItsOwnTaskNeverFiresAgainAndAHandleMayOutliveItsDispatcher) {
    std::unique_ptr<TimerHandle> handle;
    {
        LoopDispatcher d;
        int fired = 0;
        handle = d.scheduleRepeating(0.01, [&] {
            if (++fired == 2) handle.reset();
        });
        EXPECT_FALSE(d.runFor(0.2));
        EXPECT_EQ(fired, 2);
        handle = d.scheduleRepeating(1, [] {});
    }
    handle.reset();  // must not touch freed state
}

TEST(LoopDispatcher, PostsFromOtherThreadsAllArriveOnTheLoopThread) {
    LoopDispatcher d;
    constexpr int perThread = 500;
    int count = 0;  // touched only on the loop thread
    bool wrongThread = false;
    const auto loopThread = std::this_thread::get_id();
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t)
        posters.emplace_back([&] {
            for (int i = 0; i < perThread; ++i)
                d.post([&] {
                    if (std::this_thread::get_id() != loopThread) wrongThread = true;
                    if (++count == 4 * perThread) d.quit();
                });
        });
    ASSERT_TRUE(d.runFor(10));
    for (auto& t : posters) t.join();
    EXPECT_EQ(count, 4 * perThread);
    EXPECT_FALSE(wrongThread);
}

TEST(LoopDispatcher, SerialQueueWorkComesBackToTheMainLoop) {
    LoopDispatcher d;
    auto queue = d.makeSerialQueue("scan");
    const auto loopThread = std::this_thread::get_id();
    std::thread::id workThread, replyThread;
    queue->post([&] {
        workThread = std::this_thread::get_id();
        d.post([&] { replyThread = std::this_thread::get_id(); d.quit(); });
    });
    ASSERT_TRUE(d.runFor(5));
    EXPECT_NE(workThread, loopThread);
    EXPECT_EQ(replyThread, loopThread);
}

TEST(ThreadSerialQueue, RunsTasksOneAtATimeInOrder) {
    std::vector<int> order;
    std::atomic<int> running{0};
    bool overlapped = false;
    {
        ThreadSerialQueue q("test");
        for (int i = 0; i < 100; ++i)
            q.post([&, i] {
                if (running.fetch_add(1) != 0) overlapped = true;
                std::this_thread::yield();
                order.push_back(i);
                running.fetch_sub(1);
            });
    }  // destruction drains the queue, then joins
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<size_t>(i)], i);
    EXPECT_FALSE(overlapped);
}

TEST(ThreadSerialQueue, RunsOffTheCallingThreadAndAcceptsPostsFromManyThreads) {
    std::mutex m;
    std::vector<std::thread::id> seen;
    int total = 0;
    {
        ThreadSerialQueue q;
        std::vector<std::thread> posters;
        for (int t = 0; t < 3; ++t)
            posters.emplace_back([&] {
                for (int i = 0; i < 200; ++i)
                    q.post([&] {
                        std::lock_guard lock(m);
                        seen.push_back(std::this_thread::get_id());
                        ++total;
                    });
            });
        for (auto& t : posters) t.join();
    }
    EXPECT_EQ(total, 600);
    for (const auto& id : seen) {
        EXPECT_NE(id, std::this_thread::get_id());
        EXPECT_EQ(id, seen.front());
    }
}

}  // namespace
}  // namespace duskwell
