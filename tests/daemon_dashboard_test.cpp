// The terminal dashboard in a real terminal: duskwelld inside a private tmux server with a
// fixed window size, keys sent with send-keys, the screen read back with capture-pane.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "daemon_fixture.h"

namespace duskwell::itest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// A tmux server of our own (its own socket), killed with everything in it at the end.
class Tmux {
public:
    explicit Tmux(const std::string& scratch) : scratch_(scratch), socket_(scratch + "/tmux.sock") {}
    ~Tmux() { tmux({"kill-server"}); }

    RunResult tmux(std::vector<std::string> args) const {
        std::vector<std::string> argv{"/usr/bin/tmux", "-S", socket_, "-f", "/dev/null"};
        argv.insert(argv.end(), args.begin(), args.end());
        return run(argv, scratch_, {.seconds = 10});
    }
    bool start(const std::string& command, int width, int height) const {
        return tmux({"new-session", "-d", "-s", "dw", "-x", std::to_string(width), "-y", std::to_string(height),
                     command})
                   .status == 0;
    }
    std::string screen() const { return tmux({"capture-pane", "-p", "-t", "dw"}).output; }
    // The screen with its attributes as escape sequences (bold, inverse).
    std::string screenWithAttributes() const { return tmux({"capture-pane", "-p", "-e", "-t", "dw"}).output; }
    void keys(const std::string& key) const { tmux({"send-keys", "-t", "dw", key}); }
    bool alive() const { return tmux({"has-session", "-t", "dw"}).status == 0; }

    bool waitForScreen(const std::function<bool(const std::string&)>& ok, double seconds) const {
        return waitFor([&] { return ok(screen()); }, seconds);
    }
    bool waitForText(const std::string& text, double seconds) const {
        return waitForScreen([&](const std::string& s) { return s.find(text) != std::string::npos; }, seconds);
    }

private:
    std::string scratch_;
    std::string socket_;
};

// The hero card's remaining time ("29:58 left"), as "29:58".
std::optional<std::string> countdown(const std::string& screen) {
    std::smatch m;
    if (std::regex_search(screen, m, std::regex(R"(((\d+:)?\d{1,2}:\d{2}) left)"))) return m[1].str();
    return std::nullopt;
}

// The title bar: the application's name and the status item (symbol and live title).
std::string titleBar(const std::string& screen) { return screen.substr(0, screen.find('\n')); }

TEST(DaemonDashboard, TimerFromTheKeyboardCountsDownStopsSettingsComeAndGoAndQuitStopsFirst) {
    if (::access("/usr/bin/tmux", X_OK) != 0) GTEST_SKIP() << "tmux is not installed";
    DaemonHome home;
    Tmux tmux(home.bin());
    ASSERT_TRUE(tmux.start(binary("duskwelld"), 100, 40));

    // Main page, idle, with the key map in view.
    ASSERT_TRUE(tmux.waitForText("Idle", 10)) << tmux.screen();
    std::string screen = tmux.screen();
    EXPECT_THAT(screen, HasSubstr("Welcome to Duskwell"));  // first launch
    EXPECT_THAT(screen, HasSubstr("q quit"));
    EXPECT_THAT(screen, HasSubstr("s Settings"));
    EXPECT_THAT(screen, HasSubstr("Lid:"));
    EXPECT_FALSE(countdown(screen)) << screen;
    EXPECT_THAT(titleBar(screen), HasSubstr("☾"));  // the idle symbol, no title

    // Timer mode, then the first preset chip (30 minutes).
    tmux.keys("t");
    ASSERT_TRUE(tmux.waitForText("[1] 30m", 5)) << tmux.screen();
    tmux.keys("1");
    ASSERT_TRUE(tmux.waitForText(" left", 10)) << tmux.screen();
    EXPECT_TRUE(waitFor([&] { return home.count("lid-on") == 1; }, 5));

    // The clock shows (the attached test below watches it move), and the status item the
    // period's title.
    std::optional<std::string> first;
    ASSERT_TRUE(waitFor([&] { return (first = countdown(tmux.screen())).has_value(); }, 5)) << tmux.screen();
    EXPECT_THAT(*first, ::testing::MatchesRegex("(29|30):[0-9][0-9]"));
    EXPECT_THAT(titleBar(tmux.screen()), HasSubstr("⚡ 30m"));

    // Space stops it.
    tmux.keys("Space");
    ASSERT_TRUE(tmux.waitForText("Idle", 10)) << tmux.screen();
    EXPECT_TRUE(waitFor([&] { return home.count("lid-off") == 1; }, 5));
    EXPECT_FALSE(countdown(tmux.screen())) << tmux.screen();
    EXPECT_THAT(titleBar(tmux.screen()), Not(HasSubstr("⚡")));

    // Settings and back.
    tmux.keys("s");
    ASSERT_TRUE(tmux.waitForText("Behavior", 5)) << tmux.screen();
    screen = tmux.screen();
    EXPECT_THAT(screen, HasSubstr("Max performance"));
    EXPECT_THAT(screen, HasSubstr("Esc Back"));
    tmux.keys("b");
    ASSERT_TRUE(tmux.waitForText("Mode:", 5)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), Not(HasSubstr("Behavior")));
    EXPECT_THAT(tmux.screen(), Not(HasSubstr("Welcome to Duskwell")));  // seen the settings: hint gone

    // q during a period stops it first, then the pane closes with the program.
    tmux.keys("Space");
    ASSERT_TRUE(waitFor([&] { return home.count("lid-on") == 2; }, 10)) << tmux.screen();
    tmux.keys("q");
    EXPECT_TRUE(waitFor([&] { return !tmux.alive(); }, 10));
    EXPECT_EQ(home.count("lid-off"), 2);
    const auto settings = home.settings();
    ASSERT_TRUE(settings);
    EXPECT_FALSE(settings->value("restore.lid", false));
}

// The service runs without a terminal (as under systemd); dashboards attach to it, act on
// it, and leave it running when they close; Q stops it.
TEST(DaemonDashboard, AttachedDashboardsShowAndChangeTheRunningServiceWhichOutlivesThem) {
    if (::access("/usr/bin/tmux", X_OK) != 0) GTEST_SKIP() << "tmux is not installed";
    DaemonHome home;
    auto service = home.startDaemon();
    ASSERT_TRUE(service->running());
    Tmux tmux(home.bin());

    // `duskwell dashboard`, without colours: the service's state and the attached key map.
    ASSERT_TRUE(tmux.start("NO_COLOR=1 " + binary("duskwell-cli") + " dashboard", 100, 40));
    ASSERT_TRUE(tmux.waitForText("Idle", 10)) << tmux.screen();
    std::string screen = tmux.screen();
    EXPECT_THAT(screen, HasSubstr("q close"));
    EXPECT_THAT(screen, HasSubstr("Q stop service"));
    EXPECT_THAT(screen, Not(HasSubstr("Welcome")));  // the service's log had it, without a key to press
    EXPECT_THAT(tmux.screenWithAttributes(), Not(HasSubstr("\x1b[7m")));
    const std::string log = testing::readFile(home.daemonLog()).value_or("");
    EXPECT_THAT(log, HasSubstr("duskwell dashboard"));
    EXPECT_THAT(log, Not(HasSubstr("press")));

    // A timer from the keyboard runs in the service; the help names the five presets.
    tmux.keys("t");
    ASSERT_TRUE(tmux.waitForText("[5] 8h", 5)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), HasSubstr("1-5/0 presets"));
    tmux.keys("2");
    ASSERT_TRUE(tmux.waitForText(" left", 10)) << tmux.screen();
    EXPECT_TRUE(waitFor([&] { return home.count("lid-on") == 1; }, 5));
    EXPECT_TRUE(waitFor([&] { auto st = home.status(); return st && st->value("active", false); }, 5));
    EXPECT_EQ(home.status()->value("mode", ""), "timer");
    std::optional<std::string> first;
    ASSERT_TRUE(waitFor([&] { return (first = countdown(tmux.screen())).has_value(); }, 5)) << tmux.screen();
    EXPECT_TRUE(waitFor([&] { auto later = countdown(tmux.screen()); return later && *later != *first; }, 5))
        << "the pushed state never moved on from " << *first;

    // d answers instead of doing nothing; a setting changed on the settings page lands in
    // the service's settings file.
    tmux.keys("d");
    ASSERT_TRUE(tmux.waitForText("Screen off isn't available here", 5)) << tmux.screen();
    tmux.keys("s");
    ASSERT_TRUE(tmux.waitForText("Behavior", 5)) << tmux.screen();
    tmux.keys("n");
    ASSERT_TRUE(tmux.waitForText("under Notifications", 5)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), HasSubstr("[x] Max performance"));  // on by default
    tmux.keys("m");
    EXPECT_TRUE(waitFor([&] { auto st = home.settings(); return st && !st->value("maxPerformance", true); }, 5));
    ASSERT_TRUE(tmux.waitForText("[ ] Max performance", 5)) << tmux.screen();

    // q closes the dashboard only.
    tmux.keys("q");
    ASSERT_TRUE(waitFor([&] { return !tmux.alive(); }, 10));
    EXPECT_TRUE(service->running());
    EXPECT_EQ(home.count("lid-off"), 0);
    EXPECT_EQ(home.cli({"status"}).status, 0);

    // duskwelld started again on a terminal attaches (in colour) to the same period on its
    // main page; Q stops the service, which ends the period first.
    ASSERT_TRUE(tmux.start(binary("duskwelld"), 100, 40));
    ASSERT_TRUE(tmux.waitForText(" left", 10)) << tmux.screen();
    EXPECT_THAT(tmux.screenWithAttributes(), HasSubstr("\x1b[7m"));
    tmux.keys("Q");
    EXPECT_TRUE(waitFor([&] { return !service->running(); }, 10));
    EXPECT_TRUE(waitFor([&] { return !tmux.alive(); }, 10));
    EXPECT_EQ(home.count("lid-off"), 1);
    EXPECT_THAT(testing::readFile(home.daemonLog()).value_or(""), HasSubstr("stop asked by a dashboard"));
}

// A dumb terminal gets plain lines, no drawn screen; without a service there is nothing to
// attach to.
TEST(DaemonDashboard, DumbTerminalsGetLinesAndNoServiceMeansNoAttach) {
    if (::access("/usr/bin/tmux", X_OK) != 0) GTEST_SKIP() << "tmux is not installed";
    DaemonHome home;
    const RunResult none = home.cli({"dashboard"});
    EXPECT_NE(none.status, 0);  // not a terminal here, and no service either
    Tmux tmux(home.bin());
    ASSERT_TRUE(tmux.start(binary("duskwelld") + " --attach; echo exit=$?; sleep 20", 100, 20));
    ASSERT_TRUE(tmux.waitForText("exit=1", 10)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), HasSubstr("not running"));
    tmux.tmux({"kill-server"});

    // The service itself on a dumb terminal: its log lines, no dashboard.
    ASSERT_TRUE(tmux.start("TERM=dumb " + binary("duskwelld"), 100, 20));
    ASSERT_TRUE(tmux.waitForText("mode auto · idle", 10)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), Not(HasSubstr("q quit")));
    tmux.keys("C-c");
    ASSERT_TRUE(waitFor([&] { return !tmux.alive(); }, 10));

    auto service = home.startDaemon();
    ASSERT_TRUE(tmux.start("TERM=dumb " + binary("duskwelld"), 100, 20));
    ASSERT_TRUE(tmux.waitForText("Idle · Everything is quiet", 10)) << tmux.screen();
    EXPECT_THAT(tmux.screen(), Not(HasSubstr("q close")));
    tmux.keys("C-c");
    EXPECT_TRUE(waitFor([&] { return !tmux.alive(); }, 10));
    EXPECT_TRUE(service->running());
}

}  // namespace
}  // namespace duskwell::itest
