#pragma once
// Real HTTP for the phone tests: the test ntfy server on loopback, the platform's HTTP
// client, and a main queue that completions from the client's thread can post to. Every
// other facility is the TestEnvironment's fake.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "core/services.h"
#include "core/settings_keys.h"
#include "ntfy_test_server.h"
#include "phone/http_client.h"
#include "phone/phone_notifier.h"
#include "phone/phone_notifier_test_access.h"
#include "testing/fakes.h"

namespace duskwell::testing {

// A main queue that any thread may post to; the test thread runs it.
class ThreadSafeMainQueue final : public Dispatcher {
public:
    void post(Task task) override {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        arrived_.notify_all();
    }
    void postAfter(double, Task task) override { post(std::move(task)); }
    std::unique_ptr<TimerHandle> scheduleRepeating(double, Task) override { return std::make_unique<TimerHandle>(); }
    std::unique_ptr<SerialQueue> makeSerialQueue(const std::string&) override { return nullptr; }

    // Runs tasks as they arrive until `done()` holds; false when `seconds` pass first.
    template <class Predicate>
    bool runUntil(Predicate done, double seconds = 5) {
        const auto deadline = std::chrono::steady_clock::now() +
                              std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
        while (!done())
            if (!runOne(deadline)) return done();
        return true;
    }
    // Runs what is queued now, without waiting.
    int runPending() {
        int n = 0;
        while (runOne(std::chrono::steady_clock::now())) ++n;
        return n;
    }
    int ran() const { return ran_; }

private:
    bool runOne(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        if (!arrived_.wait_until(lock, deadline, [&] { return !tasks_.empty(); })) return false;
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        ++ran_;
        return true;
    }
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Task> tasks_;
    int ran_ = 0;
};

class PhoneFixture : public ::testing::Test {
protected:
    PhoneFixture() {
        Services real = services();
        real.http = http.get();
        real.dispatcher = &mainQueue;
        scope = std::make_unique<ServicesScope>(real);
        env.clock.set(std::chrono::system_clock::now());
        env.settings.setString(SettingsKey::phoneServer, server.url() + "/");
    }

    // A notifier switched on, with a short time-out so that a stalled server fails fast.
    std::unique_ptr<PhoneNotifier> makeNotifier(double timeout = 5) {
        auto p = std::make_unique<PhoneNotifier>();
        p->setEnabled(true);
        PhoneNotifierTestAccess::setRequestTimeout(*p, timeout);
        return p;
    }

    std::string secret() const { return env.settings.string(SettingsKey::phoneSecret).value_or(""); }
    std::string control() const { return env.settings.string(SettingsKey::phoneControl).value_or(""); }

    // Sends one poll and runs the main queue until its answer has been handled.
    void pollOnce(PhoneNotifier& p, std::vector<PhoneNotifier::Command>& executed) {
        p.poll([&executed](PhoneNotifier::Command c) { executed.push_back(c); });
        ASSERT_TRUE(mainQueue.runUntil([&] { return !PhoneNotifierTestAccess::polling(p); }));
    }

    std::vector<NtfyTestServer::Request> pollRequests() const {
        std::vector<NtfyTestServer::Request> out;
        for (auto& r : server.requests()) {
            if (r.method == "GET") out.push_back(r);
        }
        return out;
    }

    // Destroyed in reverse: the client (abandoning stalled transfers) before the queue it
    // posts to, the server last.
    TestEnvironment env;
    NtfyTestServer server;
    ThreadSafeMainQueue mainQueue;
    std::unique_ptr<HttpClient> http = makePlatformHttpClient();
    std::unique_ptr<ServicesScope> scope;
};

}  // namespace duskwell::testing
