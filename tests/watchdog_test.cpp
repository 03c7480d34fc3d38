// The crash watchdog with real processes: a stand-in "app" process whose pid the watchdog
// polls, the watchdog started by the controller through the real process runner, and a
// stand-in sudo that records each helper call it would have made.
#include "testing/awake_controller_test_access.h"
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "core/awake_controller.h"
#include "core/services.h"
#include "power/command_runner_posix.h"
#include "testing/fakes.h"

namespace duskwell {

namespace {

namespace fs = std::filesystem;
using Access = AwakeControllerTestAccess;
using ::testing::ElementsAre;
using testing::readFile;
using testing::TempDir;
using testing::TestEnvironment;
using testing::writeFile;
using Clock = std::chrono::steady_clock;

// A process that stands in for the app; killed with SIGKILL, as a crash would end it.
class AppStandIn {
public:
    AppStandIn() {
        pid_ = ::fork();
        if (pid_ == 0) {
            ::execl("/bin/sleep", "sleep", "60", static_cast<char*>(nullptr));
            ::_exit(127);
        }
    }
    ~AppStandIn() { kill(); }
    int pid() const { return pid_; }
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);  // reaped, or kill -0 would still find the zombie
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
};

// A sudo that records "-n <helper> <verb>..." to a file, named by DUSKWELL_TEST_SUDO.
class RecordingSudo {
public:
    RecordingSudo() {
        writeFile(path(), "#!/bin/sh\nprintf '%s\\n' \"$*\" >> " + log() + "\n");
        fs::permissions(path(), fs::perms::owner_all);
        env_.set("DUSKWELL_TEST_SUDO", path());
    }
    std::string path() const { return dir_.path() + "/sudo"; }
    std::string log() const { return dir_.path() + "/calls.log"; }
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::string text = readFile(log()).value_or("");
        for (size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1))
            lines.push_back(text.substr(0, at));
        return lines;
    }

private:
    TempDir dir_;
    testing::EnvScope env_;
};

// The fakes, except that programs are run for real.
struct RealProcesses {
    PosixCommandRunner runner;
    std::unique_ptr<ServicesScope> scope;
    RealProcesses() {
        Services s = services();
        s.commands = &runner;
        scope = std::make_unique<ServicesScope>(s);
    }
};

TEST(WatchdogEndToEnd, AfterTheAppIsKilledItGivesLidSleepBackAndRestoresWithinThreeAndAHalfSeconds) {
    TestEnvironment env;
    RecordingSudo sudo;
    AppStandIn app;
    ASSERT_GT(app.pid(), 0);
    env.platform.pid = app.pid();
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 1}, {"powermode", 0}};
    AwakeController c;
    RealProcesses real;

    // The power part of start: performance applied, then the watchdog.
    Access::setActive(c, true);
    Access::applyPerformance(c);
    Access::startWatchdog(c);
    ASSERT_TRUE(c.watchdogRunning());
    const std::string h = env.helperFile();
    ASSERT_THAT(sudo.calls(), ElementsAre("-n " + h + " lowpower 0", "-n " + h + " powermode 2"));

    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the shell is polling
    EXPECT_EQ(sudo.calls().size(), 2u) << "nothing is restored while the app lives";

    app.kill();
    const auto killed = Clock::now();
    while (sudo.calls().size() < 5 && Clock::now() - killed < std::chrono::milliseconds(3500))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const double seconds = std::chrono::duration<double>(Clock::now() - killed).count();

    EXPECT_THAT(sudo.calls(), ElementsAre("-n " + h + " lowpower 0", "-n " + h + " powermode 2",
                                          "-n " + h + " lid-off", "-n " + h + " lowpower 1",
                                          "-n " + h + " powermode 0"));
    EXPECT_LT(seconds, 3.5);
    std::cout << "watchdog restored " << seconds << " s after the kill\n";
}

TEST(WatchdogEndToEnd, TogglingPerformanceRestartsItSoTheNewValuesAreRestored) {
    TestEnvironment env;
    RecordingSudo sudo;
    AppStandIn app;
    env.platform.pid = app.pid();
    env.installHelper();
    env.settings.setBool("maxPerformance", false);
    env.power.batterySettings = {{"lowpowermode", 0}, {"powermode", 1}};
    AwakeController c;
    RealProcesses real;

    Access::setActive(c, true);
    Access::startWatchdog(c);
    const int first = Access::watchdogPid(c);
    c.setPerformance(true);
    EXPECT_NE(Access::watchdogPid(c), first);
    EXPECT_NE(::kill(first, 0), 0) << "the first watchdog is gone";

    app.kill();
    const auto killed = Clock::now();
    while (sudo.calls().size() < 3 && Clock::now() - killed < std::chrono::milliseconds(3500))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::string h = env.helperFile();
    EXPECT_THAT(sudo.calls(),
                ElementsAre("-n " + h + " powermode 2", "-n " + h + " lid-off", "-n " + h + " powermode 1"));
}

TEST(WatchdogEndToEnd, ANormalStopEndsItSoNothingRunsAfterwards) {
    TestEnvironment env;
    RecordingSudo sudo;
    AppStandIn app;
    env.platform.pid = app.pid();
    env.installHelper();
    env.settings.setInteger("restore.powermode", 0);  // a restore line in the script
    env.commands.answer("", CommandResult{1, ""});     // keep launch recovery from using it
    AwakeController c;
    RealProcesses real;

    env.settings.setInteger("restore.powermode", 0);
    Access::startWatchdog(c);
    const int pid = Access::watchdogPid(c);
    ASSERT_GT(pid, 0);
    ASSERT_EQ(::kill(pid, 0), 0);
    Access::stopWatchdog(c);
    EXPECT_FALSE(c.watchdogRunning());
    EXPECT_NE(::kill(pid, 0), 0) << "the watchdog process has ended";

    app.kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(4000));  // longer than one poll
    EXPECT_TRUE(sudo.calls().empty());
}

TEST(WatchdogEndToEnd, AQuickRestartCallsOffTheKilledRunsWatchdog) {
    TestEnvironment env;
    RecordingSudo sudo;
    AppStandIn app;
    env.platform.pid = app.pid();
    env.installHelper();
    auto first = std::make_unique<AwakeController>();
    {
        RealProcesses real;
        Access::setActive(*first, true);
        env.settings.setBool("restore.lid", true);  // as a start records it
        Access::startWatchdog(*first);
        ASSERT_GT(Access::watchdogPid(*first), 0);
    }
    first.reset();  // the controller object goes; its watchdog lives on, as after a crash
    app.kill();

    // The next launch, within the watchdog's poll: its recovery gives the lid back, and the
    // old watchdog must not do it again later, in the middle of the new run's period.
    AwakeController second;
    EXPECT_EQ(env.commands.linesContaining("lid-off").size(), 1u) << "launch recovery";
    std::this_thread::sleep_for(std::chrono::milliseconds(4000));  // longer than one poll
    EXPECT_TRUE(sudo.calls().empty()) << "the killed run's watchdog acted after the restart";
}

}  // namespace
}  // namespace duskwell
