#pragma once
// A standard header first: asio configures itself from the library's macros
// (_GLIBCXX_HAVE_ALIGNED_ALLOC and others), which exist only once one is included.
#include <memory>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "core/dispatcher.h"

namespace duskwell {

// duskwelld's main queue: an asio io_context run on the main thread. Posting is safe from any
// thread; tasks, delayed posts and timers run inside `run()`. The same context carries the
// signal set (and later the control socket). Timer handles must be destroyed before the
// dispatcher (the controller goes first).
class AsioDispatcher final : public Dispatcher {
public:
    AsioDispatcher();
    ~AsioDispatcher() override;

    void post(Task task) override;
    void postAfter(double seconds, Task task) override;
    std::unique_ptr<TimerHandle> scheduleRepeating(double seconds, Task task) override;
    std::unique_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;

    asio::io_context& context() { return context_; }
    // Runs until `quit()`.
    void run();
    // Any thread.
    void quit();

private:
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
};

}  // namespace duskwell
