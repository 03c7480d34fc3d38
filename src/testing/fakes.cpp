#include "testing/fakes.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "core/app_config.h"
#include "core/localization.h"

namespace fs = std::filesystem;

namespace duskwell::testing {

FakeClock::FakeClock() {
    std::tm tm{};
    tm.tm_year = 2026 - 1900;
    tm.tm_mon = 10;
    tm.tm_mday = 22;
    tm.tm_hour = 10;
    tm.tm_min = 20;
    tm.tm_isdst = -1;
    now_ = std::chrono::system_clock::from_time_t(std::mktime(&tm));
}

void ManualDispatcher::postAfter(double seconds, Task task) {
    delayed_.push_back({addSeconds(clock_.now(), seconds), std::move(task)});
}

namespace {
class ManualTimer final : public TimerHandle {
public:
    ManualTimer(std::weak_ptr<std::map<int, Task>> timers, int id) : timers_(std::move(timers)), id_(id) {}
    ~ManualTimer() override {
        if (auto t = timers_.lock()) t->erase(id_);
    }

private:
    std::weak_ptr<std::map<int, Task>> timers_;
    int id_;
};
}  // namespace

std::unique_ptr<TimerHandle> ManualDispatcher::scheduleRepeating(double, Task task) {
    const int id = nextTimer_++;
    (*timers_)[id] = std::move(task);
    return std::make_unique<ManualTimer>(timers_, id);
}

std::unique_ptr<SerialQueue> ManualDispatcher::makeSerialQueue(const std::string&) {
    return std::make_unique<ManualSerialQueue>(background_);
}

int ManualDispatcher::runMain() {
    int n = 0;
    while (!main_.empty()) {
        Task t = std::move(main_.front());
        main_.pop_front();
        t();
        ++n;
    }
    return n;
}

int ManualDispatcher::runBackground() {
    int n = 0;
    while (!background_->empty()) {
        Task t = std::move(background_->front());
        background_->pop_front();
        t();
        ++n;
    }
    return n + runMain();
}

int ManualDispatcher::runDue() {
    int n = 0;
    while (true) {
        auto it = std::find_if(delayed_.begin(), delayed_.end(),
                               [&](const Delayed& d) { return d.at <= clock_.now(); });
        if (it == delayed_.end()) break;
        Task t = std::move(it->task);
        delayed_.erase(it);
        t();
        ++n;
    }
    return n;
}

void ManualDispatcher::fireTimers() {
    auto snapshot = *timers_;
    for (auto& [id, task] : snapshot)
        if (timers_->count(id)) task();
}

void ManualDispatcher::tickSecond() {
    clock_.advance(1.0);
    runDue();
    fireTimers();
    runMain();
    runBackground();
}

size_t ManualDispatcher::liveTimers() const { return timers_->size(); }

std::string ScriptedCommandRunner::Call::line() const {
    std::string s = path;
    for (const auto& a : args) s += " " + a;
    return s;
}

CommandResult ScriptedCommandRunner::run(const std::string& path, const std::vector<std::string>& args) {
    Call call{path, args};
    calls_.push_back(call);
    const std::string line = call.line();
    for (auto it = rules_.rbegin(); it != rules_.rend(); ++it)
        if (line.rfind(it->first, 0) == 0) return it->second(call);
    return {0, ""};
}

namespace {
class RecordedChild final : public ChildProcess {
public:
    RecordedChild(int pid, std::shared_ptr<bool> terminated) : pid_(pid), terminated_(std::move(terminated)) {}
    int pid() const override { return pid_; }
    void terminate() override { *terminated_ = true; }

private:
    int pid_;
    std::shared_ptr<bool> terminated_;
};
}  // namespace

std::unique_ptr<ChildProcess> ScriptedCommandRunner::spawnDetached(const std::string& path,
                                                                   const std::vector<std::string>& args) {
    if (spawnFails) return nullptr;
    auto flag = std::make_shared<bool>(false);
    spawned_.push_back({{path, args}, flag});
    return std::make_unique<RecordedChild>(90000 + static_cast<int>(spawned_.size()), flag);
}

void ScriptedCommandRunner::answer(const std::string& prefix, CommandResult result) {
    rules_.emplace_back(prefix, [result](const Call&) { return result; });
}

void ScriptedCommandRunner::answer(const std::string& prefix, std::function<CommandResult(const Call&)> handler) {
    rules_.emplace_back(prefix, std::move(handler));
}

std::vector<std::string> ScriptedCommandRunner::lines() const {
    std::vector<std::string> out;
    for (const auto& c : calls_) out.push_back(c.line());
    return out;
}

std::vector<std::string> ScriptedCommandRunner::linesContaining(const std::string& needle) const {
    std::vector<std::string> out;
    for (const auto& c : calls_) {
        auto l = c.line();
        if (l.find(needle) != std::string::npos) out.push_back(l);
    }
    return out;
}

void FakePowerSources::setBattery(int percent, bool onBattery, std::optional<int> minutesLeft, bool charging) {
    PowerSourceDescription d{
        {"Type", std::string("InternalBattery")},
        {"Current Capacity", std::int64_t{percent}},
        {"Max Capacity", std::int64_t{100}},
        {"Power Source State", std::string(onBattery ? "Battery Power" : "AC Power")},
        {"Is Charging", charging},
    };
    if (minutesLeft) d["Time to Empty"] = std::int64_t{*minutesLeft};
    sources = std::vector<PowerSourceDescription>{d};
}

std::optional<int> FakePowerSources::batterySetting(const std::string& key) {
    auto it = batterySettings.find(key);
    if (it == batterySettings.end()) return std::nullopt;
    return it->second;
}

std::optional<std::uint32_t> FakePowerSources::createIdleAssertion(const std::string&) {
    if (!assertionsGranted) return std::nullopt;
    const auto id = static_cast<std::uint32_t>(++assertionsCreated);
    heldAssertions.push_back(id);
    return id;
}

void FakePowerSources::releaseIdleAssertion(std::uint32_t id) {
    heldAssertions.erase(std::remove(heldAssertions.begin(), heldAssertions.end(), id), heldAssertions.end());
}

std::optional<std::string> FakePlatform::resourcePath(const std::string& name) const {
    auto it = resources.find(name);
    if (it == resources.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> FakePlatform::setLoginItem(bool enabled) {
    if (loginItemError) return loginItemError;
    loginItem = enabled;
    return std::nullopt;
}

AdminResult FakePlatform::runAsAdmin(const std::string& script, const std::string& prompt) {
    adminScripts.emplace_back(script, prompt);
    if (onAdminScript) onAdminScript(script);
    return adminResult;
}

void FakeHttp::respond(HttpResponse response) {
    if (pending.empty()) throw std::logic_error("FakeHttp::respond with no pending request");
    auto p = std::move(pending.front());
    pending.pop_front();
    p.completion(std::move(response));
}

TempDir::TempDir() {
    std::string tmpl = (fs::temp_directory_path() / "duskwell-test-XXXXXX").string();
    if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

TestEnvironment::TestEnvironment() {
    platform.home = home.path();
    // Nothing a test does may reach the real helper path.
    setenv("DUSKWELL_TEST_HELPER", helperFile().c_str(), 1);
    Services s;
    s.clock = &clock;
    s.dispatcher = &dispatcher;
    s.commands = &commands;
    s.power = &power;
    s.settings = &settings;
    s.platform = &platform;
    s.http = &http;
    s.processes = &processes;
    s.hold = &hold;
    scope_ = std::make_unique<ServicesScope>(s);
    Locale::overrideForTesting(false);
    Machine::overrideForTesting(Machine::Kind::computer);  // the same texts on every build
}

TestEnvironment::~TestEnvironment() {
    Locale::overrideForTesting(std::nullopt);
    Machine::overrideForTesting(std::nullopt);
    unsetenv("DUSKWELL_TEST_HELPER");
}

std::string TestEnvironment::helperFile() const { return home.path() + "/helper/duskwell-power"; }

void TestEnvironment::installHelper() {
    fs::create_directories(home.path() + "/helper");
    writeFile(helperFile(), "#!/bin/sh\nexit 0\n");
}

void EnvScope::save(const std::string& name) {
    if (saved_.count(name)) return;
    const char* old = std::getenv(name.c_str());
    saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
}

void EnvScope::set(const std::string& name, const std::string& value) {
    save(name);
    setenv(name.c_str(), value.c_str(), 1);
}

void EnvScope::unset(const std::string& name) {
    save(name);
    unsetenv(name.c_str());
}

EnvScope::~EnvScope() {
    for (const auto& [name, value] : saved_) {
        if (value) setenv(name.c_str(), value->c_str(), 1);
        else unsetenv(name.c_str());
    }
}

bool waitFor(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void writeFile(const std::string& path, const std::string& contents) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
}

}  // namespace duskwell::testing
