#pragma once
#include <memory>

#include "core/dispatcher.h"

namespace duskwell {

// A main loop on the thread that calls `run()`: tasks posted from any thread run there, in
// order; delayed tasks and repeating timers run there when due (steady clock). Used by the
// terminal command and by tests that want real time; duskwelld uses an asio loop instead.
// Timer handles and serial queues may outlive the dispatcher safely.
class LoopDispatcher final : public Dispatcher {
public:
    LoopDispatcher();
    ~LoopDispatcher() override;
    LoopDispatcher(const LoopDispatcher&) = delete;
    LoopDispatcher& operator=(const LoopDispatcher&) = delete;

    void post(Task task) override;
    void postAfter(double seconds, Task task) override;
    std::unique_ptr<TimerHandle> scheduleRepeating(double seconds, Task task) override;
    std::unique_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;

    // Runs tasks on the calling thread until `quit()`.
    void run();
    // Like `run`, but gives up after `seconds`; true when it ended by `quit()`.
    bool runFor(double seconds);
    // Makes the running (or the next) `run` return after the task in progress. Any thread.
    void quit();

    struct State;

private:
    bool loop(const double* limitSeconds);
    std::shared_ptr<State> state_;
};

}  // namespace duskwell
