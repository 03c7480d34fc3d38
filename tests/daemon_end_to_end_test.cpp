// duskwelld end to end: the real daemon, terminal command and control socket in a
// temporary HOME, a stand-in agent the process scan finds, a recording sudo in place of the
// privileged helper, and the ntfy test server in place of the phone's server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "daemon_fixture.h"
#include "ntfy_test_server.h"

namespace duskwell::itest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The phone alerts the server received: "title|message" per published JSON body.
std::vector<std::string> alerts(const testing::NtfyTestServer& server) {
    std::vector<std::string> out;
    for (const auto& r : server.requests()) {
        if (r.method != "POST") continue;
        auto j = nlohmann::json::parse(r.body, nullptr, false);
        if (j.is_discarded() || !j.is_object()) continue;
        out.push_back(j.value("title", "") + "|" + j.value("message", ""));
    }
    return out;
}

bool hasAlert(const testing::NtfyTestServer& server, const std::string& piece) {
    for (const auto& a : alerts(server)) {
        if (a.find(piece) != std::string::npos) return true;
    }
    return false;
}

std::string describeStatus(const std::optional<nlohmann::json>& s) {
    if (!s) return "none";
    if (!s->value("active", false)) return "idle";
    std::string d = "active " + s->value("mode", std::string("?"));
    bool working = false;
    for (const auto& a : s->value("agents", nlohmann::json::array())) {
        working = working || (a.value("name", "") == "Claude Code" && a.value("state", "") == "working");
    }
    if (working) d += " working";
    if (s->contains("sleepsInSeconds")) d += " counting-down";
    return d;
}

TEST(DaemonEndToEnd, AutoPeriodEndsWhenTheAgentGoesQuietWithWarningStopAndRestore) {
    testing::NtfyTestServer ntfy;
    DaemonHome home(ntfy.url(), /*timeScale=*/60);  // the ten quiet minutes last ten seconds
    home.writeSettings({{"phone.enabled", true}});
    BusyAgent agent(home.bin());
    auto daemon = home.startDaemon();
    ASSERT_TRUE(daemon->running()) << testing::readFile(home.daemonLog()).value_or("");

    // Every distinct state the status file goes through, in order.
    std::vector<std::string> seen;
    auto observe = [&] {
        const std::string now = describeStatus(home.status());
        if (seen.empty() || seen.back() != now) seen.push_back(now);
    };

    const RunResult start = home.cli({"start"});
    ASSERT_EQ(start.status, 0) << start.output;
    ASSERT_TRUE(waitFor([&] { observe(); return describeStatus(home.status()) == "active auto working"; }, 30))
        << describeStatus(home.status()) << "\n" << testing::readFile(home.daemonLog()).value_or("");
    EXPECT_THAT(home.helperVerbs(), ::testing::Contains("lid-on"));
    EXPECT_EQ(home.count("lid-off"), 0);

    agent.quiet();
    ASSERT_TRUE(waitFor([&] { observe(); return hasAlert(ntfy, "All AI tasks finished. Going to sleep."); }, 40))
        << ::testing::PrintToString(alerts(ntfy));
    ASSERT_TRUE(waitFor([&] { observe(); return describeStatus(home.status()) == "idle"; }, 15));

    // The warning came before the stop, each exactly once.
    const auto got = alerts(ntfy);
    int warn = -1, stop = -1, warnings = 0, stops = 0;
    for (int i = 0; i < static_cast<int>(got.size()); ++i) {
        if (got[static_cast<std::size_t>(i)] == "Sleeping soon|All AI tasks are quiet. Sleeping in 1 minute.") warn = i, ++warnings;
        if (got[static_cast<std::size_t>(i)] == "Duskwell|All AI tasks finished. Going to sleep.") stop = i, ++stops;
    }
    EXPECT_EQ(warnings, 1) << ::testing::PrintToString(got);
    EXPECT_EQ(stops, 1) << ::testing::PrintToString(got);
    EXPECT_LT(warn, stop);

    // The helper was asked to keep the lid awake, then to give it back, once each.
    const auto verbs = home.helperVerbs();
    std::vector<std::string> lid;
    for (const auto& v : verbs) {
        if (v == "lid-on" || v == "lid-off") lid.push_back(v);
    }
    EXPECT_THAT(lid, ElementsAre("lid-on", "lid-off"));

    // The status file followed: running with the agent working (possibly after a moment of
    // counting down, before the first scan that saw the agent busy), counting down once it
    // went quiet, idle again.
    std::vector<std::string> steps;
    for (const auto& s : seen) {
        if (s != "none") steps.push_back(s);
    }
    const auto working = std::find(steps.rbegin(), steps.rend(), "active auto working");
    ASSERT_NE(working, steps.rend()) << ::testing::PrintToString(steps);
    const auto afterWorking = std::vector<std::string>(working.base(), steps.end());
    EXPECT_THAT(afterWorking, ElementsAre("active auto counting-down", "idle")) << ::testing::PrintToString(steps);

    // The daemon keeps running after an automatic stop, and the stop's reason is in its log.
    EXPECT_TRUE(daemon->running());
    EXPECT_THAT(testing::readFile(home.daemonLog()).value_or(""), HasSubstr("All AI tasks finished. Going to sleep."));
    EXPECT_EQ(daemon->terminate(), 0);
}

TEST(DaemonEndToEnd, KillNineLeavesTheWatchdogToRestoreAndTheNextStartRecovers) {
    DaemonHome home;
    auto daemon = home.startDaemon();
    ASSERT_TRUE(daemon->running()) << testing::readFile(home.daemonLog()).value_or("");

    // A second start hands its URL to the first and answers for it.
    const RunResult forwarded =
        run({binary("duskwelld"), "--open-url", "duskwell://start?mode=timer&minutes=30"}, home.bin());
    EXPECT_EQ(forwarded.status, 0) << forwarded.output;
    EXPECT_THAT(forwarded.output, HasSubstr("already running"));
    ASSERT_TRUE(waitFor([&] { return home.count("lid-on") == 1; }, 10));
    ASSERT_EQ(home.count("lid-off"), 0);

    const auto killed = Clock::now();
    daemon->kill(SIGKILL);
    ASSERT_TRUE(waitFor([&] { return home.count("lid-off") == 1; }, 6));
    EXPECT_LE(std::chrono::duration<double>(Clock::now() - killed).count(), 3.5);

    // The next start finds the restore record the dead process left and repairs once more.
    auto next = home.startDaemon();
    ASSERT_TRUE(next->running()) << testing::readFile(home.daemonLog()).value_or("");
    EXPECT_TRUE(waitFor([&] { return home.count("lid-off") == 2; }, 10)) << ::testing::PrintToString(home.helperVerbs());
    EXPECT_EQ(home.count("lid-on"), 1);  // recovery starts no period
    const auto settings = home.settings();
    ASSERT_TRUE(settings);
    EXPECT_FALSE(settings->value("restore.lid", false));
    EXPECT_EQ(next->terminate(), 0);
}

TEST(DaemonEndToEnd, RestoreModeGivesBackWhatAKilledRunLeftAndCallsOffItsWatchdog) {
    DaemonHome home;
    auto daemon = home.startDaemon();
    ASSERT_TRUE(daemon->running());
    ASSERT_EQ(home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
    // While a daemon runs, --restore leaves everything to it.
    RunResult r = run({binary("duskwelld"), "--restore"}, home.bin());
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(home.count("lid-off"), 0);

    // What the service manager does after a crash: --restore once every process is gone.
    daemon->kill(SIGKILL);
    r = run({binary("duskwelld"), "--restore"}, home.bin());
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(home.count("lid-off"), 1) << "restored at once, not after the watchdog's poll";
    ASSERT_TRUE(home.settings());
    EXPECT_FALSE(home.settings()->value("restore.lid", false));
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    EXPECT_EQ(home.count("lid-off"), 1) << "the killed run's watchdog was called off";
}

// Under systemd the crash of the service kills its whole control group, the watchdog too;
// the unit's ExecStopPost= gives the settings back. Needs a user service manager.
TEST(DaemonEndToEnd, UnderSystemdACrashedServiceIsRestoredByExecStopPost) {
    DaemonHome home;
    const RunResult probe = run({"/usr/bin/systemd-run", "--user", "--quiet", "--wait", "/bin/true"}, home.bin(), {.seconds = 10});
    if (probe.status != 0) GTEST_SKIP() << "no systemd user manager here: " << probe.output;
    const std::string unit = "duskwell-test-" + std::to_string(::getpid());
    std::vector<std::string> argv{"/usr/bin/systemd-run", "--user", "--quiet", "--unit=" + unit,
                                  "-p", "ExecStopPost=" + binary("duskwelld") + " --restore"};
    for (const char* name : {"HOME", "DUSKWELL_TEST_SUDO", "DUSKWELL_TEST_HELPER", "DUSKWELL_TEST_SLEEP",
                             "DUSKWELL_TEST_NTFY", "DUSKWELL_TEST_FEED"})
        argv.push_back(std::string("--setenv=") + name + "=" + (std::getenv(name) ? std::getenv(name) : ""));
    argv.insert(argv.end(), {binary("duskwelld"), "--log"});
    ASSERT_EQ(run(argv, home.bin()).status, 0);
    ASSERT_TRUE(waitFor([&] { return fs::exists(home.support() + "/control.sock"); }, 10));
    ASSERT_EQ(home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
    const auto killed = Clock::now();
    run({"/usr/bin/systemctl", "--user", "kill", "--signal=SIGKILL", "--kill-whom=main", unit}, home.bin());
    EXPECT_TRUE(waitFor([&] { return home.count("lid-off") >= 1; }, 6));
    EXPECT_LE(std::chrono::duration<double>(Clock::now() - killed).count(), 3.5);
    run({"/usr/bin/systemctl", "--user", "stop", unit}, home.bin());
    run({"/usr/bin/systemctl", "--user", "reset-failed", unit}, home.bin());
}

// SIGTERM (systemd's stop), SIGINT (Ctrl-C in log mode) and SIGHUP (the terminal closing)
// all end in the same orderly exit: status 0, the power settings given back, and a status
// file that says inactive and was written at the exit, not left saying "active".
TEST(DaemonEndToEnd, ExitSignalsDuringAPeriodRestoreAndLeaveAnInactiveFreshStatusFile) {
    std::vector<std::unique_ptr<DaemonHome>> homes;
    for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(strsignal(sig));
        auto& home = *homes.emplace_back(std::make_unique<DaemonHome>());
        auto daemon = home.startDaemon();
        ASSERT_TRUE(daemon->running());
        const RunResult start = home.cli({"start", "--mode", "timer", "--minutes", "45"});
        ASSERT_EQ(start.status, 0) << start.output;
        ASSERT_EQ(home.count("lid-on"), 1);
        ASSERT_EQ(describeStatus(home.status()), "active timer");

        // The file's time has whole seconds: compare with the second the signal went.
        const auto before = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
        daemon->signal(sig);
        const auto st = daemon->wait(10);
        ASSERT_TRUE(st && WIFEXITED(*st)) << "duskwelld did not exit by itself";
        EXPECT_EQ(WEXITSTATUS(*st), 0);

        const auto verbs = home.helperVerbs();
        ASSERT_FALSE(verbs.empty());
        EXPECT_EQ(home.count("lid-off"), 1);
        EXPECT_LT(std::find(verbs.begin(), verbs.end(), "lid-on"), std::find(verbs.begin(), verbs.end(), "lid-off"));
        const auto settings = home.settings();
        ASSERT_TRUE(settings);
        EXPECT_FALSE(settings->value("restore.lid", false));  // nothing left for a recovery
        EXPECT_TRUE(settings->value("didOnboard", false));    // the first launch was noted

        const auto status = home.status();
        ASSERT_TRUE(status);
        EXPECT_EQ(describeStatus(status), "idle") << status->dump();
        EXPECT_FALSE(status->contains("endsAt"));
        const std::string written = status->value("written", std::string());
        std::tm tm{};
        ASSERT_NE(strptime(written.c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm), nullptr) << written;
        const auto at = std::chrono::system_clock::from_time_t(timegm(&tm));
        EXPECT_GE(at, before) << written << " is older than the signal";
        EXPECT_LE(at, std::chrono::system_clock::now()) << written;
    }
    // No watchdog left behind to restore again later.
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    for (const auto& home : homes) EXPECT_EQ(home->count("lid-off"), 1);
    // Newest first: each home puts back the environment the one before it set.
    while (!homes.empty()) homes.pop_back();
}

// A self-hosted server that needs a token, set through the terminal command while the
// daemon runs: the alerts reach it with the token, and the token shows nowhere a user or
// another program could read it.
TEST(DaemonEndToEnd, ASelfHostedServerWithATokenIsSetLiveAndTheTokenStaysHidden) {
    const std::string token = "tk_Zr8wQm4Xc2Vb7Nn5Ls3Kd9Hf6Gj1P";
    testing::NtfyTestServer ntfy;
    ntfy.requireToken(token);
    DaemonHome home;  // the public server stands at a closed port
    home.writeSettings({{"phone.enabled", true}});
    auto daemon = home.startDaemon();
    ASSERT_TRUE(daemon->running());

    const RunResult bad = home.cli({"phone", "--server", "https://ntfy.example.com/x"});
    EXPECT_EQ(bad.status, 2) << bad.output;
    const RunResult set = home.cli({"phone", "--server", ntfy.url(), "--token", token});
    ASSERT_EQ(set.status, 0) << set.output << set.errors;
    const RunResult start = home.cli({"start", "--mode", "timer", "--minutes", "30"});
    ASSERT_EQ(start.status, 0) << start.output;
    ASSERT_TRUE(waitFor([&] { return hasAlert(ntfy, "keeps running"); }, 10)) << "the alert went elsewhere";
    for (const auto& r : ntfy.requests()) EXPECT_EQ(r.authorization, "Bearer " + token) << r.target;

    const RunResult link = home.cli({"phone"});
    EXPECT_NE(link.output.find("@" + ntfy.url() + "\n"), std::string::npos) << link.output;
    const RunResult json = home.cli({"phone", "--json"});
    const auto parsed = nlohmann::json::parse(json.output, nullptr, false);
    ASSERT_TRUE(parsed.is_object()) << json.output;
    EXPECT_EQ(parsed.value("server", ""), ntfy.url());
    EXPECT_TRUE(parsed.value("tokenSet", false));
    const RunResult status = home.cli({"status", "--json"});
    EXPECT_EQ(daemon->terminate(), 0);

    const std::pair<std::string, std::string> readable[] = {
        {"duskwell phone", link.output + link.errors},
        {"duskwell phone --json", json.output + json.errors},
        {"duskwell status --json", status.output + status.errors},
        {"duskwell phone --server", set.output + set.errors},
        {"status.json", testing::readFile(home.support() + "/status.json").value_or("")},
        {"the daemon's log", testing::readFile(home.daemonLog()).value_or("")},
    };
    for (const auto& [where, text] : readable) {
        EXPECT_FALSE(text.empty()) << where;
        EXPECT_EQ(text.find(token), std::string::npos) << "the token shows in " << where << ":\n" << text;
    }
}

TEST(DaemonEndToEnd, OnlyOneDaemonPerUser) {
    DaemonHome home;
    auto daemon = home.startDaemon();
    ASSERT_TRUE(daemon->running());

    const RunResult plain = run({binary("duskwelld")}, home.bin());
    EXPECT_EQ(plain.status, 1);
    EXPECT_THAT(plain.output, HasSubstr("already running (pid " + std::to_string(daemon->pid()) + ")"));

    const RunResult unknown = run({binary("duskwelld"), "--open-url", "duskwell://frobnicate"}, home.bin());
    EXPECT_EQ(unknown.status, 1) << unknown.output;
    EXPECT_TRUE(daemon->running());  // the first one is untouched

    ASSERT_EQ(daemon->terminate(), 0);
    // Once it is gone, the next start is the first again.
    auto again = home.startDaemon();
    EXPECT_TRUE(again->running()) << testing::readFile(home.daemonLog()).value_or("");
}

TEST(DaemonEndToEnd, OpenURLStartsTheFirstInstanceAndHandlesItsLink) {
    DaemonHome home;
    auto daemon = home.startDaemon({"--open-url", "duskwell://start?mode=timer&minutes=20"});
    ASSERT_TRUE(daemon->running()) << testing::readFile(home.daemonLog()).value_or("");
    EXPECT_TRUE(waitFor([&] { return home.count("lid-on") == 1; }, 10));
    EXPECT_TRUE(waitFor([&] { return describeStatus(home.status()) == "active timer"; }, 10))
        << describeStatus(home.status());
}

TEST(DaemonEndToEnd, HelpDescribesDashboardLogAndKeys) {
    DaemonHome home;
    const RunResult help = run({binary("duskwelld"), "--help"}, home.bin());
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("dashboard"));
    EXPECT_THAT(help.output, HasSubstr("journal"));
    EXPECT_THAT(help.output, HasSubstr("quit: stops a running period first"));
    const RunResult bad = run({binary("duskwelld"), "--bogus"}, home.bin());
    EXPECT_EQ(bad.status, 2);
}

}  // namespace
}  // namespace duskwell::itest
