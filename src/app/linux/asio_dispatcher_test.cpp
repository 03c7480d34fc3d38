#include "asio_dispatcher.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace duskwell {
namespace {

TEST(AsioDispatcher, PostsRunInOrderAndDelayedTasksByTime) {
    AsioDispatcher d;
    std::vector<int> order;
    d.postAfter(0.08, [&] { order.push_back(3); d.quit(); });
    d.postAfter(0.02, [&] { order.push_back(2); });
    d.post([&] { order.push_back(0); });
    d.post([&] { order.push_back(1); });
    d.run();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
}

TEST(AsioDispatcher, RepeatingTimerStopsWhenItsHandleGoes) {
    AsioDispatcher d;
    int fired = 0;
    auto handle = d.scheduleRepeating(0.01, [&] { ++fired; });
    d.postAfter(0.1, [&] { handle.reset(); });
    int atCancel = -1;
    d.postAfter(0.11, [&] { atCancel = fired; });
    d.postAfter(0.25, [&] { d.quit(); });
    d.run();
    EXPECT_GE(atCancel, 2);
    EXPECT_EQ(fired, atCancel);
}

TEST(AsioDispatcher, PostsFromAnotherThreadArriveOnTheLoopThread) {
    AsioDispatcher d;
    std::thread::id ranOn;
    std::thread other([&] { d.post([&] { ranOn = std::this_thread::get_id(); d.quit(); }); });
    d.run();
    other.join();
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

}  // namespace
}  // namespace duskwell
