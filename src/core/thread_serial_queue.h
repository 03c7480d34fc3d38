#pragma once
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "core/dispatcher.h"

namespace duskwell {

// A serial queue on its own thread: tasks run one at a time, in the order they were posted.
// Posting is safe from any thread. Destruction runs the tasks already queued, then joins
// the thread (a task must therefore not block for ever, nor destroy its own queue).
class ThreadSerialQueue final : public SerialQueue {
public:
    explicit ThreadSerialQueue(std::string label = {});
    ~ThreadSerialQueue() override;
    ThreadSerialQueue(const ThreadSerialQueue&) = delete;
    ThreadSerialQueue& operator=(const ThreadSerialQueue&) = delete;

    void post(Task task) override;
    const std::string& label() const { return label_; }

private:
    void loop();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::thread thread_;  // last: starts once everything above exists
};

}  // namespace duskwell
