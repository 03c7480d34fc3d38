#include "asio_dispatcher.h"

#include <algorithm>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <chrono>

#include "core/thread_serial_queue.h"

namespace duskwell {
namespace {

std::chrono::steady_clock::duration toDuration(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::max(seconds, 0.0)));
}

// A repeating timer that re-arms itself from its previous deadline, keeping the cadence.
// The pending wait holds it alive; cancelling ends the chain.
class Repeater : public std::enable_shared_from_this<Repeater> {
public:
    Repeater(asio::io_context& context, std::chrono::steady_clock::duration interval, Task task)
        : timer_(context), interval_(interval), task_(std::move(task)) {}

    void start() {
        if (cancelled_) return;
        timer_.expires_after(interval_);
        arm();
    }
    void cancel() {
        cancelled_ = true;
        // The timer belongs to the loop's thread; cancel it there.
        asio::post(timer_.get_executor(), [self = shared_from_this()] { self->timer_.cancel(); });
    }

private:
    void arm() {
        timer_.async_wait([self = shared_from_this()](const std::error_code& ec) {
            if (ec || self->cancelled_) return;
            self->task_();
            if (self->cancelled_) return;
            const auto now = std::chrono::steady_clock::now();
            auto next = self->timer_.expiry() + self->interval_;
            if (next <= now) next = now + self->interval_;  // after a stall, no burst of catch-ups
            self->timer_.expires_at(next);
            self->arm();
        });
    }

    asio::steady_timer timer_;
    std::chrono::steady_clock::duration interval_;
    Task task_;
    std::atomic<bool> cancelled_{false};
};

class AsioTimerHandle final : public TimerHandle {
public:
    explicit AsioTimerHandle(std::shared_ptr<Repeater> repeater) : repeater_(std::move(repeater)) {}
    ~AsioTimerHandle() override { repeater_->cancel(); }

private:
    std::shared_ptr<Repeater> repeater_;
};

}  // namespace

AsioDispatcher::AsioDispatcher() : work_(asio::make_work_guard(context_)) {}
AsioDispatcher::~AsioDispatcher() = default;

void AsioDispatcher::post(Task task) {
    if (task) asio::post(context_, std::move(task));
}

void AsioDispatcher::postAfter(double seconds, Task task) {
    if (!task) return;
    auto timer = std::make_shared<asio::steady_timer>(context_, toDuration(seconds));
    timer->async_wait([timer, task = std::move(task)](const std::error_code& ec) {
        if (!ec) task();
    });
}

std::unique_ptr<TimerHandle> AsioDispatcher::scheduleRepeating(double seconds, Task task) {
    const auto interval = std::max(toDuration(seconds), std::chrono::steady_clock::duration(std::chrono::milliseconds(1)));
    auto repeater = std::make_shared<Repeater>(context_, interval, std::move(task));
    // Arm on the loop's thread: asio timers are not safe to touch from two threads at once.
    asio::post(context_, [repeater] { repeater->start(); });
    return std::make_unique<AsioTimerHandle>(std::move(repeater));
}

std::unique_ptr<SerialQueue> AsioDispatcher::makeSerialQueue(const std::string& label) {
    return std::make_unique<ThreadSerialQueue>(label);
}

void AsioDispatcher::run() {
    context_.restart();
    context_.run();
}

void AsioDispatcher::quit() { context_.stop(); }

}  // namespace duskwell
