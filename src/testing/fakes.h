#pragma once
// Fakes for every platform facility, and one environment that installs them all.
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agents/process_table.h"
#include "core/clock.h"
#include "core/dispatcher.h"
#include "core/in_memory_settings.h"
#include "core/platform.h"
#include "core/services.h"
#include "phone/http_client.h"
#include "power/command_runner.h"
#include "power/hold_probe.h"
#include "power/power_sources.h"

namespace duskwell::testing {

class FakeClock final : public Clock {
public:
    FakeClock();  // 2026-11-22 10:20:00 local time
    Date now() const override { return now_; }
    void set(Date d) { now_ = d; }
    void advance(double seconds) { now_ = addSeconds(now_, seconds); }

private:
    Date now_;
};

// A background queue whose tasks run only when the test says.
class ManualSerialQueue final : public SerialQueue {
public:
    explicit ManualSerialQueue(std::shared_ptr<std::deque<Task>> tasks) : tasks_(std::move(tasks)) {}
    void post(Task task) override { tasks_->push_back(std::move(task)); }

private:
    std::shared_ptr<std::deque<Task>> tasks_;
};

// Main queue, delayed posts and timers, all run only when the test says. Delayed tasks
// follow the fake clock.
class ManualDispatcher final : public Dispatcher {
public:
    explicit ManualDispatcher(FakeClock& clock) : clock_(clock) {}
    void post(Task task) override { main_.push_back(std::move(task)); }
    void postAfter(double seconds, Task task) override;
    std::unique_ptr<TimerHandle> scheduleRepeating(double seconds, Task task) override;
    std::unique_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;

    // Runs the queued main-queue tasks (and those they queue) until none is left.
    int runMain();
    // Runs the queued background tasks, then the main-queue tasks they posted.
    int runBackground();
    // Runs delayed tasks whose time has come by the fake clock.
    int runDue();
    // Calls every live repeating timer once (one tick).
    void fireTimers();
    // One second: advance the clock by 1 s, fire the timers, then run what they queued
    // (background and main). Returns after everything has settled.
    void tickSecond();
    size_t pendingBackground() const { return background_->size(); }
    size_t liveTimers() const;

private:
    struct Delayed { Date at; Task task; };
    FakeClock& clock_;
    std::deque<Task> main_;
    std::shared_ptr<std::deque<Task>> background_ = std::make_shared<std::deque<Task>>();
    std::vector<Delayed> delayed_;
    std::shared_ptr<std::map<int, Task>> timers_ = std::make_shared<std::map<int, Task>>();
    int nextTimer_ = 0;
};

// Records every command and answers from rules; unknown commands answer status 0, "".
class ScriptedCommandRunner final : public CommandRunner {
public:
    struct Call {
        std::string path;
        std::vector<std::string> args;
        std::string line() const;  // "path arg1 arg2"
    };
    CommandResult run(const std::string& path, const std::vector<std::string>& args) override;
    std::unique_ptr<ChildProcess> spawnDetached(const std::string& path,
                                                const std::vector<std::string>& args) override;

    // Answer for calls whose line starts with `prefix` (latest rule wins).
    void answer(const std::string& prefix, CommandResult result);
    void answer(const std::string& prefix, std::function<CommandResult(const Call&)> handler);

    const std::vector<Call>& calls() const { return calls_; }
    std::vector<std::string> lines() const;  // every call's line, in order
    // Lines of calls whose line contains `needle`.
    std::vector<std::string> linesContaining(const std::string& needle) const;
    void clear() { calls_.clear(); spawned_.clear(); }

    struct Spawned {
        Call call;
        std::shared_ptr<bool> terminated;
    };
    const std::vector<Spawned>& spawned() const { return spawned_; }
    bool spawnFails = false;

private:
    std::vector<Call> calls_;
    std::vector<Spawned> spawned_;
    std::vector<std::pair<std::string, std::function<CommandResult(const Call&)>>> rules_;
};

class FakePowerSources final : public PowerSources {
public:
    std::optional<std::vector<PowerSourceDescription>> sources;
    std::optional<bool> lid;
    std::optional<std::vector<DisplayInfo>> displays;
    int thermal = 0;
    bool sleepIsDisabled = false;
    std::map<std::string, int> batterySettings;
    bool assertionsGranted = true;
    bool lockAvailable = true;

    int displaySleeps = 0;
    int locks = 0;
    std::vector<std::uint32_t> heldAssertions;
    int assertionsCreated = 0;
    std::function<void(int)> thermalObserver;

    // A MacBook-like internal battery on battery power (or on the adapter).
    void setBattery(int percent, bool onBattery, std::optional<int> minutesLeft = std::nullopt,
                    bool charging = false);

    std::optional<std::vector<PowerSourceDescription>> powerSources() override { return sources; }
    std::optional<bool> lidClosed() override { return lid; }
    std::optional<std::vector<DisplayInfo>> onlineDisplays() override { return displays; }
    void displaySleepNow() override { ++displaySleeps; }
    int thermalState() override { return thermal; }
    void observeThermalState(std::function<void(int)> onChange) override { thermalObserver = std::move(onChange); }
    bool sleepDisabled() override { return sleepIsDisabled; }
    std::optional<int> batterySetting(const std::string& key) override;
    std::optional<std::uint32_t> createIdleAssertion(const std::string& name) override;
    void releaseIdleAssertion(std::uint32_t id) override;
    bool screenLockAvailable() override { return lockAvailable; }
    void lockScreen() override { if (lockAvailable) ++locks; }
};

class FakePlatform final : public Platform {
public:
    std::string home;
    std::string user = "ann";
    int pid = 4242;
    std::vector<std::string> languages{"en-US"};
    bool bundle = false;
    std::map<std::string, std::string> resources;  // name -> path
    NotificationPermission permission = NotificationPermission::notDetermined;
    bool loginItem = false;
    std::optional<std::string> loginItemError;
    std::vector<std::pair<std::string, std::string>> notifications;  // title, body
    std::vector<std::string> openedURLs;
    int authorizationRequests = 0;
    // runAsAdmin: every script run is recorded and answered with `adminResult`.
    std::vector<std::pair<std::string, std::string>> adminScripts;  // script, prompt
    AdminResult adminResult{AdminOutcome::succeeded, {}};
    std::function<void(const std::string&)> onAdminScript;

    std::string homeDirectory() const override { return home; }
    std::string userName() const override { return user; }
    int processId() const override { return pid; }
    std::vector<std::string> preferredLanguages() const override { return languages; }
    bool canPostNotifications() const override { return bundle; }
    std::string bundleIdentifier() const override { return "app.duskwell.Duskwell"; }
    std::optional<std::string> resourcePath(const std::string& name) const override;
    void requestNotificationAuthorization() override { ++authorizationRequests; }
    void notificationPermission(std::function<void(NotificationPermission)> completion) override {
        completion(permission);
    }
    void postNotification(const std::string& title, const std::string& body) override {
        notifications.emplace_back(title, body);
    }
    bool loginItemEnabled() const override { return loginItem; }
    std::optional<std::string> setLoginItem(bool enabled) override;
    bool openURL(const std::string& url) override { openedURLs.push_back(url); return true; }
    AdminResult runAsAdmin(const std::string& script, const std::string& prompt) override;
};

// Records requests; the test answers each one when it likes.
class FakeHttp final : public HttpClient {
public:
    struct Pending {
        HttpRequest request;
        std::function<void(HttpResponse)> completion;
    };
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        requests.push_back({request, completion});
        pending.push_back({std::move(request), std::move(completion)});
    }
    // Completes the oldest pending request.
    void respond(HttpResponse response);
    std::vector<Pending> requests;  // every request ever sent
    std::deque<Pending> pending;
};

class FakeProcessSource final : public ProcessSource {
public:
    ProcessTable table;
    int samples = 0;
    ProcessTable sample() override { ++samples; return table; }
};

// Answers every question with `answer` (nothing known, unless a test says) and records it.
class FakeHoldProbe final : public HoldProbe {
public:
    HoldObservation answer;
    std::vector<HoldQuery> queries;
    HoldObservation observe(const HoldQuery& query) override {
        queries.push_back(query);
        return answer;
    }
};

// A temporary folder removed with everything in it when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Every fake, installed for the lifetime of the object, with a temporary HOME.
class TestEnvironment {
public:
    TestEnvironment();
    ~TestEnvironment();

    FakeClock clock;
    ManualDispatcher dispatcher{clock};
    ScriptedCommandRunner commands;
    FakePowerSources power;
    InMemorySettings settings;
    FakePlatform platform;
    FakeHttp http;
    FakeProcessSource processes;
    FakeHoldProbe hold;
    TempDir home;

    // Makes `PowerHelper::isInstalled` true: a helper file exists and `sudo -n` works.
    void installHelper();
    std::string helperFile() const;

private:
    std::unique_ptr<ServicesScope> scope_;
};

// Sets environment variables for this process (and so for every child) and puts the old
// values back when it goes.
class EnvScope {
public:
    EnvScope() = default;
    EnvScope(const std::string& name, const std::string& value) { set(name, value); }
    ~EnvScope();
    EnvScope(const EnvScope&) = delete;
    EnvScope& operator=(const EnvScope&) = delete;
    void set(const std::string& name, const std::string& value);
    void unset(const std::string& name);

private:
    void save(const std::string& name);
    std::map<std::string, std::optional<std::string>> saved_;
};

// Polls `done` every 50 ms; false when `seconds` pass first.
bool waitFor(const std::function<bool()>& done, double seconds);

// Reads a whole file; nothing when it cannot be read.
std::optional<std::string> readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);

}  // namespace duskwell::testing
