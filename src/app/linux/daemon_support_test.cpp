// The daemon's small parts: the test clock, one instance per user, the command line and
// the terminal's column arithmetic.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "daemon_options.h"
#include "instance_lock.h"
#include "scaled_clock.h"
#include "terminal_text.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using namespace std::chrono_literals;

TEST(ScaledClock, RunsScaleTimesFasterFromItsOrigin) {
    const Date origin = dateFromUnix(1'700'000'000);
    ScaledClock clock(60, origin);
    EXPECT_EQ(clock.at(origin), origin);
    EXPECT_DOUBLE_EQ(secondsBetween(origin, clock.at(origin + 10s)), 600);
    EXPECT_DOUBLE_EQ(secondsBetween(origin, clock.at(origin + 500ms)), 30);
    // The real one keeps moving forward, faster.
    ScaledClock live(1000);
    const Date a = live.now();
    std::this_thread::sleep_for(20ms);
    EXPECT_GE(secondsBetween(a, live.now()), 15);
}

TEST(ScaledClock, OnlyAPlainNumberFromOneUpEnablesIt) {
    EXPECT_EQ(parseTimeScale("60"), 60.0);
    EXPECT_EQ(parseTimeScale("1.5"), 1.5);
    EXPECT_EQ(parseTimeScale(nullptr), std::nullopt);
    // Slower time is no test aid; anything but a plain number is refused.
    for (const char* text : {"", "0.5", "-60", "60x", "inf", "nan", "100000"})
        EXPECT_EQ(parseTimeScale(text), std::nullopt) << text;
}

TEST(InstanceLock, SecondHolderIsRefusedAndToldTheFirstPid) {
    testing::TempDir dir;
    const std::string path = dir.path() + "/sub/duskwelld.lock";
    InstanceLock::Busy busy;
    auto first = InstanceLock::acquire(path, &busy);
    ASSERT_TRUE(first.has_value());  // the folder is created
    std::string error;
    auto second = InstanceLock::acquire(path, &busy, &error);
    EXPECT_FALSE(second.has_value());
    EXPECT_EQ(busy.pid, ::getpid());
    EXPECT_TRUE(error.empty());
    first.reset();
    EXPECT_TRUE(InstanceLock::acquire(path).has_value());  // released with its holder
}

TEST(InstanceLock, ADeadHolderLeavesNoStaleLock) {
    testing::TempDir dir;
    const std::string path = dir.path() + "/duskwelld.lock";
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        auto lock = InstanceLock::acquire(path);
        const char c = lock ? 'y' : 'n';
        [[maybe_unused]] auto n = ::write(ready[1], &c, 1);
        ::pause();
        ::_exit(0);
    }
    char c = 0;
    ASSERT_EQ(::read(ready[0], &c, 1), 1);
    ASSERT_EQ(c, 'y');
    InstanceLock::Busy busy;
    EXPECT_FALSE(InstanceLock::acquire(path, &busy).has_value());
    EXPECT_EQ(busy.pid, child);
    ::kill(child, SIGKILL);  // no destructor runs: the kernel drops the lock
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(InstanceLock::acquire(path).has_value());
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST(InstanceLock, AnUnusableFolderIsAnErrorNotABusyLock) {
    testing::TempDir dir;
    const std::string file = dir.path() + "/plain";
    testing::writeFile(file, "x");
    InstanceLock::Busy busy;
    std::string error;
    EXPECT_FALSE(InstanceLock::acquire(file + "/duskwelld.lock", &busy, &error).has_value());
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(busy.pid.has_value());
}

TEST(DaemonOptions, ReadsTheURLToForwardInEitherFormAndRefusesWhatItDoesNotKnow) {
    EXPECT_EQ(parseDaemonOptions({"--open-url", "duskwell://start"}).openURL, "duskwell://start");
    EXPECT_EQ(parseDaemonOptions({"--open-url=duskwell://stop"}).openURL, "duskwell://stop");
    EXPECT_EQ(parseDaemonOptions({"duskwell://toggle"}).openURL, "duskwell://toggle");
    EXPECT_TRUE(parseDaemonOptions({"--log"}).noDashboard);
    EXPECT_TRUE(parseDaemonOptions({"-h"}).help);
    const auto none = parseDaemonOptions({});
    EXPECT_FALSE(none.openURL || none.error || none.help || none.noDashboard);
    for (const char* bad : {"--open-url", "--frobnicate", "https://example.com"})
        EXPECT_TRUE(parseDaemonOptions({bad}).error.has_value()) << bad;
    const std::string help = daemonHelpText();
    for (const char* needle : {"dashboard", "journal", "space", "settings", "q ", "SIGTERM", "--open-url"})
        EXPECT_NE(help.find(needle), std::string::npos) << needle;
}

TEST(TerminalText, CountsColumnsNotBytes) {
    EXPECT_EQ(displayWidth("abc"), 3);
    EXPECT_EQ(displayWidth("대기 중"), 7);  // each Hangul syllable takes two columns
    EXPECT_EQ(displayWidth("\x1b[1mIdle\x1b[0m"), 4);  // escapes take no room
    EXPECT_EQ(displayWidth("∞ ☾"), 3);
    EXPECT_EQ(displayWidth("⚡✅"), 4);  // emoji presentation: two columns each
    EXPECT_EQ(displayWidth("🌙"), 2);
}

TEST(TerminalText, CutsWithAnEllipsisAndPadsToTheWidth) {
    EXPECT_EQ(fitToWidth("Staying awake", 8), "Staying…");
    EXPECT_EQ(fitToWidth("Idle", 8, true), "Idle    ");
    EXPECT_EQ(fitToWidth("Idle", 4), "Idle");
    // A wide glyph that would straddle the edge goes whole: one column stays empty.
    EXPECT_EQ(fitToWidth("깨어 있는 중입니다", 7), "깨어 …");
    const std::string cut = fitToWidth("\x1b[1mbold text here\x1b[0m", 6);
    EXPECT_EQ(displayWidth(cut), 6);
    EXPECT_NE(cut.find("\x1b[0m"), std::string::npos);  // attributes do not leak past the cut
    EXPECT_EQ(fitToWidth("anything", 0), "");
}

}  // namespace
}  // namespace duskwell
