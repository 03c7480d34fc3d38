#pragma once
#include <functional>
#include <memory>
#include <string>

namespace duskwell {

using Task = std::function<void()>;

// A serial queue for background work (the agent monitor's scans). Tasks run one at a time,
// in order, on a thread that is not the main thread.
class SerialQueue {
public:
    virtual ~SerialQueue() = default;
    virtual void post(Task task) = 0;
};

// Cancels a repeating timer when destroyed.
class TimerHandle {
public:
    virtual ~TimerHandle() = default;
};

// The main queue: all controller state lives here. Every operation may be called from any
// thread; the tasks themselves always run on the main thread.
class Dispatcher {
public:
    virtual ~Dispatcher() = default;
    virtual void post(Task task) = 0;
    virtual void postAfter(double seconds, Task task) = 0;
    // Calls `task` on the main thread every `seconds` until the handle is destroyed.
    virtual std::unique_ptr<TimerHandle> scheduleRepeating(double seconds, Task task) = 0;
    virtual std::unique_ptr<SerialQueue> makeSerialQueue(const std::string& label) = 0;
};

}  // namespace duskwell
