// The terminal command against the real daemon: `duskwelld` and `duskwell-cli` in a
// temporary HOME, with sudo, the password prompt, the power helper and system sleep replaced
// by recording stand-ins, so that nothing here touches the machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>

#include "commands/control_socket.h"
#include "daemon_fixture.h"
#include "ntfy_test_server.h"

namespace duskwell::itest {
namespace {

using ::testing::HasSubstr;
using nlohmann::json;
using Words = std::vector<std::string>;

struct Refusal {
    Words words;
    int exit;
    std::string says;  // a fragment of the message on stderr
};

// Every key of `expected` is in `actual` with the same value (objects compared the same way).
bool contains(const json& actual, const json& expected) {
    if (!expected.is_object()) return actual == expected;
    if (!actual.is_object()) return false;
    for (const auto& [key, value] : expected.items())
        if (!actual.contains(key) || !contains(actual[key], value)) return false;
    return true;
}

std::time_t utc(const json& text) {
    std::tm tm{};
    if (!text.is_string() || !strptime(text.get<std::string>().c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm)) return 0;
    return timegm(&tm);
}

class CommandsEndToEnd : public ::testing::Test {
protected:
    testing::NtfyTestServer ntfy;
    DaemonHome home{ntfy.url()};

    std::unique_ptr<Process> startDaemon() {
        auto daemon = home.startDaemon();
        EXPECT_TRUE(daemon->running()) << "duskwelld exited early: " << testing::readFile(home.daemonLog()).value_or("");
        return daemon;
    }
    json status() { return json::parse(home.cli({"status", "--json"}).output); }

    // Each refusal exits with its code and message, and again under --json with one object
    // {"ok": false, "exit": code} on stdout.
    void expectRefusals(const std::vector<Refusal>& table) {
        for (const auto& r : table) {
            const std::string what = ::testing::PrintToString(r.words);
            const RunResult plain = home.cli(r.words);
            EXPECT_EQ(plain.status, r.exit) << what << ": " << plain.errors;
            EXPECT_THAT(plain.errors, HasSubstr(r.says)) << what;
            EXPECT_EQ(plain.output, "") << what;
            if (r.words.empty()) continue;
            Words withJson = r.words;
            withJson.insert(withJson.begin() + 1, "--json");
            const RunResult j = home.cli(withJson);
            EXPECT_EQ(j.status, r.exit) << what;
            const json doc = json::parse(j.output, nullptr, false);
            EXPECT_TRUE(contains(doc, {{"ok", false}, {"exit", r.exit}})) << what << ": " << j.output;
        }
    }
};

TEST_F(CommandsEndToEnd, RefusalsWithoutTheAppNameTheProblemAndChangeNothing) {
    expectRefusals({
        {{"start", "--mode", "timer", "--minutes", "90"}, 3, "Duskwell is not running"},
        {{"stop"}, 3, "Duskwell is not running"},
        {{"toggle"}, 3, "Duskwell is not running"},
        {{"extend", "30"}, 3, "Duskwell is not running"},
        {{"sleep"}, 3, "Duskwell is not running"},
        {{"status"}, 3, "has not run yet"},
        {{"phone", "test"}, 3, "start it first"},
        {{"config", "set", "launch-at-login", "on"}, 3, "launch-at-login is changed by the running Duskwell"},
        {{"start", "--mode", "forever"}, 2, "--mode takes auto, timer or until"},
        {{"start", "--minutes", "ninety"}, 2, "--minutes takes a whole number of minutes from 0 to 10080"},
        {{"start", "--minutes", "10081"}, 2, "from 0 to 10080"},
        {{"start", "--minutes"}, 2, "--minutes needs a value"},
        {{"start", "--mode", "auto", "--minutes", "30"}, 2, "--minutes does nothing in auto mode"},
        {{"start", "--mode", "until", "--minutes", "30"}, 2, "--minutes does nothing in until mode"},
        {{"start", "--mode", "timer", "--at", "10:00"}, 2, "it does nothing with --mode timer"},
        {{"start", "--mode=auto", "--at=10:00"}, 2, "it does nothing with --mode auto"},
        {{"start", "--at", "24:00"}, 2, "--at takes a local time as HH:MM"},
        {{"start", "--at", "9:5"}, 2, "not '9:5'"},
        {{"start", "--at", "noon"}, 2, "HH:MM"},
        {{"start", "now"}, 2, "unexpected 'now'"},
        {{"extend", "0"}, 2, "extend takes a whole number of minutes from 1"},
        {{"extend", "-5"}, 2, "extend takes"},
        {{"extend", "5", "6"}, 2, "extend takes"},
        {{"stop", "now"}, 2, "stop takes no arguments"},
        {{"status", "--yaml"}, 2, "unexpected '--yaml'"},
        {{"launch"}, 2, "unknown command 'launch'"},
        {{}, 2, "usage: duskwell"},
        {{"config"}, 2, "usage: duskwell config get"},
        {{"config", "set", "battery-floor", "7"}, 2, "battery-floor takes one of 0, 5, 10, 15, 20, 30"},
        {{"config", "set", "mode", "forever"}, 2, "mode takes auto, timer, until"},
        {{"config", "set", "stop-on-heat", "maybe"}, 2, "stop-on-heat takes on or off"},
        {{"config", "set", "timer-minutes", "-1"}, 2, "timer-minutes takes a whole number from 0"},
        {{"config", "set", "phone.server", "ftp://example.org"}, 2, "an ntfy server address"},
        {{"config", "set", "volume", "3"}, 2, "unknown setting 'volume'"},
        {{"config", "get", "volume"}, 2, "unknown setting 'volume'"},
        {{"config", "set", "mode"}, 2, "usage: duskwell config"},
        {{"helper", "upgrade"}, 2, "usage: duskwell helper install|remove"},
        {{"phone", "--qr"}, 2, "unexpected '--qr'"},
        {{"connect", "vim"}, 2, "'vim' has no hooks to connect"},
    });
    EXPECT_FALSE(fs::exists(home.support() + "/settings.json")) << "a refusal writes nothing";
    EXPECT_FALSE(fs::exists(home.sleeps())) << "sleep was never run";
    EXPECT_FALSE(fs::exists(home.admins())) << "no password was asked for";
}

TEST_F(CommandsEndToEnd, RefusalsOfTheRunningAppCarryItsReason) {
    auto daemon = startDaemon();
    expectRefusals({
        {{"extend", "30"}, 1, "No session is running."},
        {{"phone", "test"}, 1, "Phone alerts are off (duskwell phone on)."},
    });
    const RunResult unlimited = home.cli({"start", "--mode", "timer", "--minutes", "0"});
    ASSERT_EQ(unlimited.status, 0) << unlimited.errors;
    EXPECT_EQ(unlimited.output, "No time limit\n");
    EXPECT_THAT(home.cli({"status"}).output, HasSubstr("No time limit\nMode: timer\n"));
    expectRefusals({{{"extend", "30"}, 1, "This session has no end time"}});
    EXPECT_FALSE(status().contains("endsAt")) << "the refused extend changed nothing";
}

// What each command prints under --json, in order, against one running daemon.
TEST_F(CommandsEndToEnd, EveryCommandPrintsOneJsonObject) {
    auto daemon = startDaemon();
    struct stat st {};
    ASSERT_EQ(::stat((home.support() + "/control.sock").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "the control socket is owner-only";

    // The next 10:00 or 22:00 local time, whichever comes first from now.
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    const bool morning = local.tm_hour < 10 || local.tm_hour >= 22;
    const std::string at = morning ? "10:00" : "22:00";

    struct Case {
        Words words;
        json expected;  // a subset of the printed object
    };
    const std::vector<Case> table{
        {{"start", "--mode", "timer", "--minutes", "0"},
         {{"ok", true}, {"command", "start"}, {"status", {{"active", true}, {"mode", "timer"}, {"status", "No time limit"}}}}},
        {{"status"}, {{"active", true}, {"running", true}, {"status", "No time limit"}}},
        {{"stop"}, {{"ok", true}, {"command", "stop"}, {"status", {{"active", false}, {"status", "Idle"}}}}},
        {{"config", "set", "mode", "timer"}, {{"ok", true}, {"key", "mode"}, {"value", "timer"}, {"running", true}}},
        {{"config", "set", "timer-minutes", "15"}, {{"ok", true}, {"value", 15}}},
        {{"config", "set", "battery-floor", "20"}, {{"ok", true}, {"value", 20}}},
        {{"config", "set", "stop-on-heat", "off"}, {{"ok", true}, {"value", false}}},
        {{"config", "set", "phone.server", ntfy.url() + "/"}, {{"ok", true}, {"value", ntfy.url()}}},
        {{"config", "get", "battery-floor"}, {{"ok", true}, {"key", "battery-floor"}, {"value", 20}, {"running", true}}},
        {{"config", "get"},
         {{"ok", true}, {"running", true},
          {"settings", {{"mode", "timer"}, {"timer-minutes", 15}, {"stop-on-heat", false}, {"auto-cap-hours", 8}}}}},
        // The controller took the settings live: toggle starts a 15-minute timer.
        {{"toggle"}, {{"ok", true}, {"command", "toggle"}, {"status", {{"active", true}, {"mode", "timer"}, {"status", "15m left"}}}}},
        {{"extend", "5"}, {{"ok", true}, {"command", "extend"}, {"status", {{"status", "20m left"}}}}},
        {{"start", "--at", at}, {{"ok", true}, {"status", {{"active", true}, {"mode", "until"}}}}},
        {{"toggle"}, {{"ok", true}, {"command", "toggle"}, {"status", {{"active", false}}}}},
        {{"phone", "on"}, {{"ok", true}, {"enabled", true}, {"running", true}}},
        {{"phone", "test"}, {{"ok", true}, {"result", "Sent"}}},
        {{"helper", "remove"}, {{"ok", true}, {"helper", "removed"}, {"running", true}}},
        {{"helper", "install"}, {{"ok", true}, {"helper", "installed"}}},
        {{"connect", "claude"}, {{"ok", true}, {"agent", "claude"}, {"connected", true}}},
        {{"disconnect", "claude"}, {{"ok", true}, {"agent", "claude"}, {"connected", false}}},
    };
    for (const auto& c : table) {
        Words words = c.words;
        words.push_back("--json");
        const RunResult r = home.cli(words);
        const std::string what = ::testing::PrintToString(c.words);
        ASSERT_EQ(r.status, 0) << what << ": " << r.errors;
        const json doc = json::parse(r.output, nullptr, false);
        ASSERT_TRUE(doc.is_object()) << what << ": " << r.output;
        EXPECT_TRUE(contains(doc, c.expected)) << what << ": " << doc.dump();
        if (c.words == Words{"start", "--at", at}) {
            std::tm end{};
            const std::time_t endsAt = utc(doc["status"]["endsAt"]);
            ::localtime_r(&endsAt, &end);
            EXPECT_EQ(end.tm_hour * 60 + end.tm_min, morning ? 600 : 1320) << doc.dump();
            EXPECT_GT(endsAt, now);
            EXPECT_LE(endsAt, now + 12 * 3600 + 60);
        }
    }
    const auto settings = home.settings().value_or(json::object());
    EXPECT_TRUE(contains(settings, json{{"batteryFloor", 20}, {"stopOnHeat", false}, {"phone.server", ntfy.url()}}))
        << settings.dump();
    EXPECT_EQ(home.count("lid-on"), 2) << "two periods; a start while running only moves the end";
    EXPECT_THAT(testing::readFile(home.admins()).value_or(""), HasSubstr("/bin/rm -f")) << "the removal asked once";
}

TEST_F(CommandsEndToEnd, SettingsChangedWithoutTheAppAreWhatItStartsWith) {
    EXPECT_THAT(home.cli({"config", "set", "battery-floor", "5"}).output, HasSubstr("saved"));
    EXPECT_EQ(home.cli({"config", "set", "auto-cap-hours", "2"}).status, 0);
    EXPECT_EQ(home.cli({"phone", "on"}).status, 0);
    auto daemon = startDaemon();
    const json got = json::parse(home.cli({"config", "get", "--json"}).output);
    EXPECT_TRUE(contains(got, {{"running", true}, {"settings", {{"battery-floor", 5}, {"auto-cap-hours", 2}, {"phone.enabled", true}}}}))
        << got.dump();
    // The auto period ends at the cap that was written before the daemon ran.
    const auto before = std::time(nullptr);
    ASSERT_EQ(home.cli({"start", "--mode", "auto"}).status, 0);
    EXPECT_NEAR(static_cast<double>(utc(status()["endsAt"]) - before), 2 * 3600, 5);

    EXPECT_EQ(daemon->terminate(), 0);
    const RunResult stale = home.cli({"status"});
    EXPECT_EQ(stale.status, 3);
    EXPECT_THAT(stale.errors, HasSubstr("last state it wrote"));
}

TEST_F(CommandsEndToEnd, MessagesFollowTheLanguageAndColoursTheTerminal) {
    {
        EnvScope korean;
        korean.set("LANGUAGE", "ko_KR");
        const RunResult r = home.cli({"start", "--mode", "auto", "--minutes", "5"});
        EXPECT_EQ(r.status, 2);
        EXPECT_THAT(r.errors, HasSubstr("--minutes는 auto 모드에서 쓰이지 않아요"));
        EXPECT_THAT(home.cli({"stop", "--help"}).output, HasSubstr("지금 멈춰요"));
    }
    EXPECT_THAT(home.cli({"stop"}).errors, HasSubstr("Duskwell is not running")) << "LANG=C is English";

    // The QR code is coloured on a terminal only, and never under NO_COLOR or TERM=dumb.
    home.writeSettings({{"phone.topic", "duskwell-t"}, {"phone.control", "duskwell-c-t"}, {"phone.secret", "s"}});
    struct Terminal {
        Words env;
        bool coloured;
    };
    for (const auto& t : std::vector<Terminal>{{{"TERM=xterm"}, true},
                                               {{"TERM=xterm", "NO_COLOR=1"}, false},
                                               {{"TERM=dumb"}, false}}) {
        Words argv{"/usr/bin/env"};
        argv.insert(argv.end(), t.env.begin(), t.env.end());
        argv.insert(argv.end(), {"/usr/bin/script", "-qec", binary("duskwell-cli") + " phone", "/dev/null"});
        const RunResult r = run(argv, home.bin());
        EXPECT_EQ(r.status, 0) << r.output;
        EXPECT_EQ(r.output.find("\x1b[") != std::string::npos, t.coloured) << ::testing::PrintToString(t.env);
    }
}

TEST_F(CommandsEndToEnd, EachCommandHasHelpListingItsOptions) {
    const RunResult top = home.cli({"--help"});
    ASSERT_EQ(top.status, 0);
    EXPECT_EQ(top.output.rfind("usage: duskwell start | stop | status\n", 0), 0u) << top.output;
    int commands = 0;
    std::istringstream lines(top.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  ", 0) != 0 || line.rfind("      ", 0) == 0 || line.rfind("  -", 0) == 0) continue;
        const std::string name = line.substr(2, line.find(' ', 2) - 2);
        const RunResult help = home.cli({name, "--help"});
        ++commands;
        EXPECT_EQ(help.status, 0) << name;
        EXPECT_EQ(help.output.rfind("usage: duskwell " + name, 0), 0u) << help.output;
        // Every option the synopsis names is explained under Options.
        const std::string options = help.output.substr(help.output.find("Options:") + 1);
        std::istringstream words(line);
        for (std::string w; words >> w;) {
            const auto dash = w.find("--");
            if (dash == std::string::npos) continue;
            EXPECT_THAT(options, HasSubstr("  " + w.substr(dash, w.find_first_of("]|= ", dash) - dash))) << name;
        }
    }
    EXPECT_GE(commands, 11) << top.output;
}

// An app of the first protocol version knows URLs and ping only: settings are refused, and
// never written to the file behind its back.
TEST_F(CommandsEndToEnd, AnOlderRunningAppIsNamedAndNotBypassed) {
    std::vector<std::string> seen;
    auto server = ControlServer::start(
        home.support() + "/control.sock", [](std::function<void()> task) { task(); },
        [&seen](const std::string& request) {
            seen.push_back(request);
            return ControlProtocol::Reply{request == "ping" ? ControlProtocol::ReplyKind::ok
                                                            : ControlProtocol::ReplyKind::notHandled, {}};
        });
    ASSERT_TRUE(server);
    expectRefusals({
        {{"config", "set", "battery-floor", "20"}, 1, "the running Duskwell is older than this command"},
        {{"config", "get"}, 1, "older than this command"},
        {{"phone", "on"}, 1, "older than this command"},
        {{"helper", "install"}, 1, "older than this command"},
    });
    EXPECT_FALSE(fs::exists(home.support() + "/settings.json"));
    EXPECT_FALSE(fs::exists(home.admins()));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "version"), 8) << "asked first, every time";
    EXPECT_EQ(seen.size(), 8u) << ::testing::PrintToString(seen);
}

TEST_F(CommandsEndToEnd, OpenURLForwardsToTheRunningDaemon) {
    auto daemon = startDaemon();
    auto openURL = [&](const std::string& url) { return run({binary("duskwelld"), "--open-url", url}, home.bin()); };
    ASSERT_EQ(openURL("duskwell://toggle").status, 0);
    EXPECT_EQ(status()["active"], true);
    EXPECT_EQ(openURL("duskwell://STOP").status, 1) << "not handled";
    ASSERT_EQ(openURL("duskwell://toggle").status, 0);
    EXPECT_EQ(status()["active"], false);
}

TEST_F(CommandsEndToEnd, AnotherUserCannotCommandTheDaemon) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    fs::permissions(home.home(), static_cast<fs::perms>(0755));
    auto daemon = startDaemon();
    fs::permissions(home.support(), static_cast<fs::perms>(0755));
    for (const Words& words : {Words{"start", "--mode", "timer", "--minutes", "5"}, Words{"config", "set", "battery-floor", "0"}}) {
        Words argv{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", binary("duskwell-cli")};
        argv.insert(argv.end(), words.begin(), words.end());
        const RunResult r = run(argv, home.bin(), {.stderrTo = Stderr::apart});
        EXPECT_EQ(r.status, 1) << r.output << r.errors;
        EXPECT_THAT(r.errors, HasSubstr("Permission denied"));
    }
    EXPECT_EQ(status()["active"], false) << "nothing started";
    EXPECT_FALSE(home.settings().value_or(json::object()).contains("batteryFloor")) << "nothing changed";
}

}  // namespace
}  // namespace duskwell::itest
