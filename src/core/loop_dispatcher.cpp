#include "core/loop_dispatcher.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>

#include "core/thread_serial_queue.h"

namespace duskwell {

using SteadyClock = std::chrono::steady_clock;

namespace {
SteadyClock::duration toDuration(double seconds) {
    return std::chrono::duration_cast<SteadyClock::duration>(
        std::chrono::duration<double>(std::max(seconds, 0.0)));
}
}  // namespace

struct LoopDispatcher::State {
    struct Timed {
        Task task;
        int timer = 0;  // 0: a one-shot delayed task
        SteadyClock::duration interval{};
    };
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Task> ready;
    std::multimap<SteadyClock::time_point, Timed> timed;  // equal times keep posting order
    std::set<int> liveTimers;
    int nextTimer = 1;
    bool quit = false;

    void cancel(int timer) {
        std::lock_guard lock(mutex);
        liveTimers.erase(timer);
        for (auto it = timed.begin(); it != timed.end();)
            it = it->second.timer == timer ? timed.erase(it) : std::next(it);
    }
};

namespace {
class LoopTimer final : public TimerHandle {
public:
    LoopTimer(std::weak_ptr<LoopDispatcher::State> state, int id) : state_(std::move(state)), id_(id) {}
    ~LoopTimer() override {
        if (auto s = state_.lock()) s->cancel(id_);
    }

private:
    std::weak_ptr<LoopDispatcher::State> state_;
    int id_;
};
}  // namespace

LoopDispatcher::LoopDispatcher() : state_(std::make_shared<State>()) {}
LoopDispatcher::~LoopDispatcher() = default;

void LoopDispatcher::post(Task task) {
    if (!task) return;
    {
        std::lock_guard lock(state_->mutex);
        state_->ready.push_back(std::move(task));
    }
    state_->wake.notify_all();
}

void LoopDispatcher::postAfter(double seconds, Task task) {
    if (!task) return;
    {
        std::lock_guard lock(state_->mutex);
        state_->timed.emplace(SteadyClock::now() + toDuration(seconds), State::Timed{std::move(task), 0, {}});
    }
    state_->wake.notify_all();
}

std::unique_ptr<TimerHandle> LoopDispatcher::scheduleRepeating(double seconds, Task task) {
    int id = 0;
    {
        std::lock_guard lock(state_->mutex);
        id = state_->nextTimer++;
        state_->liveTimers.insert(id);
        // A zero interval would spin; a millisecond is the shortest period we honour.
        const auto interval = std::max(toDuration(seconds), SteadyClock::duration(std::chrono::milliseconds(1)));
        state_->timed.emplace(SteadyClock::now() + interval, State::Timed{std::move(task), id, interval});
    }
    state_->wake.notify_all();
    return std::make_unique<LoopTimer>(state_, id);
}

std::unique_ptr<SerialQueue> LoopDispatcher::makeSerialQueue(const std::string& label) {
    return std::make_unique<ThreadSerialQueue>(label);
}

void LoopDispatcher::quit() {
    {
        std::lock_guard lock(state_->mutex);
        state_->quit = true;
    }
    state_->wake.notify_all();
}

void LoopDispatcher::run() { loop(nullptr); }

bool LoopDispatcher::runFor(double seconds) { return loop(&seconds); }

bool LoopDispatcher::loop(const double* limitSeconds) {
    State& s = *state_;
    const auto deadline = limitSeconds ? SteadyClock::now() + toDuration(*limitSeconds)
                                       : SteadyClock::time_point::max();
    std::unique_lock lock(s.mutex);
    while (true) {
        if (s.quit) {
            s.quit = false;
            return true;
        }
        const auto now = SteadyClock::now();
        // Due timers first, so a stream of posts cannot starve the one-second tick.
        if (!s.timed.empty() && s.timed.begin()->first <= now) {
            auto node = s.timed.extract(s.timed.begin());
            State::Timed& entry = node.mapped();
            Task task;
            if (entry.timer != 0) {
                if (!s.liveTimers.count(entry.timer)) continue;
                task = entry.task;
                // Keep the cadence; after a long stall, start again from now.
                auto next = node.key() + entry.interval;
                if (next <= now) next = now + entry.interval;
                s.timed.emplace(next, State::Timed{entry.task, entry.timer, entry.interval});
            } else {
                task = std::move(entry.task);
            }
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
            continue;
        }
        if (!s.ready.empty()) {
            Task task = std::move(s.ready.front());
            s.ready.pop_front();
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
            continue;
        }
        if (now >= deadline) return false;
        auto until = deadline;
        if (!s.timed.empty()) until = std::min(until, s.timed.begin()->first);
        if (until == SteadyClock::time_point::max()) s.wake.wait(lock);
        else s.wake.wait_until(lock, until);
    }
}

}  // namespace duskwell
