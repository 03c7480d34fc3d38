#pragma once
#include "core/dispatcher.h"

namespace duskwell {

// macOS: the main dispatch queue (run by the application's run loop), dispatch timers and
// serial dispatch queues.
class DispatchDispatcher final : public Dispatcher {
public:
    void post(Task task) override;
    void postAfter(double seconds, Task task) override;
    std::unique_ptr<TimerHandle> scheduleRepeating(double seconds, Task task) override;
    std::unique_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;
};

}  // namespace duskwell
