#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <algorithm>

#include "core/dispatch_dispatcher.h"

namespace duskwell {
namespace {

class DispatchTimer final : public TimerHandle {
public:
    explicit DispatchTimer(dispatch_source_t source) : source_(source) {}
    // Thread-safe; a handler already running finishes, none starts afterwards.
    ~DispatchTimer() override { dispatch_source_cancel(source_); }

private:
    dispatch_source_t source_;  // retained by ARC
};

class DispatchSerialQueue final : public SerialQueue {
public:
    explicit DispatchSerialQueue(const std::string& label)
        : queue_(dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL)) {}
    void post(Task task) override {
        if (!task) return;
        Task t = std::move(task);
        dispatch_async(queue_, ^{ t(); });
    }

private:
    dispatch_queue_t queue_;
};

int64_t nanoseconds(double seconds) { return static_cast<int64_t>(std::max(seconds, 0.0) * NSEC_PER_SEC); }

}  // namespace

void DispatchDispatcher::post(Task task) {
    if (!task) return;
    Task t = std::move(task);
    dispatch_async(dispatch_get_main_queue(), ^{ t(); });
}

void DispatchDispatcher::postAfter(double seconds, Task task) {
    if (!task) return;
    Task t = std::move(task);
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, nanoseconds(seconds)), dispatch_get_main_queue(), ^{ t(); });
}

std::unique_ptr<TimerHandle> DispatchDispatcher::scheduleRepeating(double seconds, Task task) {
    dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
    const int64_t interval = std::max<int64_t>(nanoseconds(seconds), NSEC_PER_MSEC);
    // A little leeway lets the system coalesce wake-ups; the tick tolerates it.
    dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, interval), static_cast<uint64_t>(interval),
                              50 * NSEC_PER_MSEC);
    Task t = std::move(task);
    dispatch_source_set_event_handler(source, ^{ t(); });
    dispatch_resume(source);
    return std::make_unique<DispatchTimer>(source);
}

std::unique_ptr<SerialQueue> DispatchDispatcher::makeSerialQueue(const std::string& label) {
    return std::make_unique<DispatchSerialQueue>(label);
}

}  // namespace duskwell
