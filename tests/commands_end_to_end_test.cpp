// The terminal command against the real daemon: `duskwelld` and `duskwell-cli` in a
// temporary HOME, with sudo, the power helper and system sleep replaced by recording
// stand-ins, so that nothing here touches the machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>

#include "daemon_fixture.h"

namespace duskwell::itest {
namespace {

using ::testing::HasSubstr;
using nlohmann::json;

class CommandsEndToEnd : public ::testing::Test {
protected:
    DaemonHome home;

    std::unique_ptr<Process> startDaemon() {
        auto daemon = home.startDaemon();
        EXPECT_TRUE(daemon->running()) << "duskwelld exited early: " << testing::readFile(home.daemonLog()).value_or("");
        return daemon;
    }
    json status() { return json::parse(home.cli({"status", "--json"}).output); }
};

TEST_F(CommandsEndToEnd, WithoutTheAppEveryCommandExitsOneAndUsageErrorsTwo) {
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"start", "--mode", "timer", "--minutes", "90"}, {"stop"}, {"toggle"}, {"extend", "30"}, {"sleep"}}) {
        const RunResult r = home.cli(words);
        EXPECT_EQ(r.status, 1) << words[0];
        EXPECT_THAT(r.errors, HasSubstr("Duskwell is not running")) << words[0];
    }
    const RunResult status = home.cli({"status", "--json"});
    EXPECT_EQ(status.status, 1);
    EXPECT_THAT(status.errors, HasSubstr("has not run yet"));
    EXPECT_FALSE(fs::exists(home.sleeps())) << "sleep was never run";
    // Usage errors exit two before contacting the app.
    for (const auto& words : std::vector<std::vector<std::string>>{{"start", "--mode", "forever"},
                                                                   {"start", "--minutes", "ninety"},
                                                                   {"start", "--minutes"},
                                                                   {"extend", "-5"},
                                                                   {"status", "--yaml"},
                                                                   {"launch"},
                                                                   {}})
        EXPECT_EQ(home.cli(words).status, 2) << ::testing::PrintToString(words);
    const RunResult help = home.cli({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.rfind("usage: duskwell start | stop | status\n", 0), 0u) << help.output;
}

TEST_F(CommandsEndToEnd, StartStatusStopAgainstTheRunningDaemon) {
    auto daemon = startDaemon();
    struct stat st {};
    ASSERT_EQ(::stat((home.support() + "/control.sock").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "the control socket is owner-only";

    const auto before = std::chrono::system_clock::now();
    const RunResult start = home.cli({"start", "--mode", "timer", "--minutes", "90"});
    ASSERT_EQ(start.status, 0) << start.errors;
    EXPECT_THAT(start.output, HasSubstr("1:30 left"));

    const json doc = status();
    EXPECT_EQ(doc["active"], true);
    EXPECT_EQ(doc["mode"], "timer");
    std::tm tm{};
    ASSERT_TRUE(strptime(doc["endsAt"].get<std::string>().c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm));
    const auto endsAt = std::chrono::system_clock::from_time_t(timegm(&tm));
    EXPECT_LT(std::chrono::abs(endsAt - (before + std::chrono::minutes(90))), std::chrono::seconds(5)) << doc.dump();
    EXPECT_EQ(home.count("lid-on"), 1);
    EXPECT_THAT(home.cli({"status"}).output, HasSubstr("Mode: timer"));

    const RunResult stop = home.cli({"stop"});
    ASSERT_EQ(stop.status, 0) << stop.errors;
    const json idle = status();
    EXPECT_EQ(idle["active"], false);
    EXPECT_FALSE(idle.contains("mode"));
    EXPECT_FALSE(idle.contains("endsAt"));
    EXPECT_EQ(home.count("lid-off"), 1);

    const RunResult extend = home.cli({"extend", "30"});
    EXPECT_EQ(extend.status, 1) << "nothing to extend";
    EXPECT_THAT(extend.errors, HasSubstr("No session is running."));

    EXPECT_EQ(daemon->terminate(), 0);
    const RunResult gone = home.cli({"stop"});
    EXPECT_EQ(gone.status, 1);
    EXPECT_THAT(gone.errors, HasSubstr("Duskwell is not running"));
    const RunResult stale = home.cli({"status"});
    EXPECT_EQ(stale.status, 1);
    EXPECT_THAT(stale.errors, HasSubstr("last state it wrote"));
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
    const RunResult r = run({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                             binary("duskwell-cli"), "start", "--mode", "timer", "--minutes", "5"},
                            home.bin(), {.stderrTo = Stderr::apart});
    EXPECT_EQ(r.status, 1) << r.output << r.errors;
    EXPECT_THAT(r.errors, HasSubstr("Permission denied"));
    EXPECT_EQ(status()["active"], false) << "nothing started";
}

}  // namespace
}  // namespace duskwell::itest
