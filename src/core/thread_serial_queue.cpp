#include "core/thread_serial_queue.h"

namespace duskwell {

ThreadSerialQueue::ThreadSerialQueue(std::string label)
    : label_(std::move(label)), thread_([this] { loop(); }) {}

ThreadSerialQueue::~ThreadSerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void ThreadSerialQueue::post(Task task) {
    if (!task) return;
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void ThreadSerialQueue::loop() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        if (tasks_.empty()) return;  // stopping, and nothing left to run
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr;  // release captures outside the lock
        lock.lock();
    }
}

}  // namespace duskwell
