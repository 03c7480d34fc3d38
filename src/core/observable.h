#pragma once
#include <functional>
#include <map>
#include <memory>

namespace duskwell {

// Ends a subscription when destroyed.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& o) noexcept : cancel_(std::move(o.cancel_)) { o.cancel_ = nullptr; }
    Subscription& operator=(Subscription&& o) noexcept {
        if (this != &o) { reset(); cancel_ = std::move(o.cancel_); o.cancel_ = nullptr; }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }
    void reset() { if (cancel_) { auto c = std::move(cancel_); cancel_ = nullptr; c(); } }

private:
    std::function<void()> cancel_;
};

// Announces "something is about to change" to its observers, synchronously, on the thread
// that makes the change (the main thread). Observers re-read the state they show; a shell
// that redraws should coalesce by posting its redraw to the main queue.
class Observable {
public:
    Subscription subscribe(std::function<void()> observer) {
        const int id = next_++;
        observers_->emplace(id, std::move(observer));
        std::weak_ptr<Map> weak = observers_;
        return Subscription([weak, id] { if (auto m = weak.lock()) m->erase(id); });
    }
    void announce() {
        auto snapshot = *observers_;  // an observer may unsubscribe while we call it
        for (auto& [id, fn] : snapshot) fn();
    }

private:
    using Map = std::map<int, std::function<void()>>;
    std::shared_ptr<Map> observers_ = std::make_shared<Map>();
    int next_ = 0;
};

}  // namespace duskwell
