// The controller's command surfaces: status file, status line, URL routes, CLI installer.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <functional>
#include <limits>
#include <ctime>
#include <filesystem>
#include <thread>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/awake_controller_test_support.h"
#include "core/localization.h"
#include "core/settings_keys.h"
#include "testing/fakes.h"
#include "testing/controller_fixture.h"

namespace duskwell {
namespace {

using StatusFile = testing::ControllerWithHelper;
using StatusLine = testing::ControllerWithHelper;
using URLRoutes = testing::ControllerWithHelper;

namespace fs = std::filesystem;
using nlohmann::json;
using testing::TestEnvironment;

json readStatus() {
    const auto text = testing::readFile(AppConfig::statusFile());
    if (!text) return json();
    return json::parse(*text);
}

// UTC text of `d`, computed independently of the code under test.
std::string utc(Date d) {
    const std::time_t t = std::chrono::system_clock::to_time_t(d);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

// ---------------------------------------------------------------- status file

TEST_F(StatusFile, IdleAppWritesTheAlwaysPresentKeysOnly) {
    c.writeStatusFile();
    const json doc = readStatus();
    EXPECT_EQ(doc, json({{"active", false},
                         {"status", "Idle"},
                         {"version", AppConfig::version()},
                         {"agents", json::array()},
                         {"written", utc(env.clock.now())}}));
}

TEST_F(StatusFile, APeriodHasAnEndOnlyWhenItHasOneAndACountdownOnlyInAuto) {
    struct Case { const char* url; const char* mode; std::optional<double> endsIn; const char* status; };
    for (const Case& k : {Case{"duskwell://start?mode=timer&minutes=90", "timer", 90 * 60, "1:30 left"},
                          Case{"duskwell://start?mode=timer&minutes=0", "timer", std::nullopt, "No time limit"},
                          Case{"duskwell://start?mode=auto", "auto", 8 * 3600, "All quiet · sleeping in 10m"}}) {
        SCOPED_TRACE(k.url);
        ASSERT_TRUE(c.handleURL(k.url));
        const json doc = readStatus();
        EXPECT_EQ(doc["active"], true);
        EXPECT_EQ(doc["mode"], k.mode);
        EXPECT_EQ(doc["status"], k.status);
        if (k.endsIn) EXPECT_EQ(doc["endsAt"], utc(addSeconds(env.clock.now(), *k.endsIn)));
        else EXPECT_FALSE(doc.contains("endsAt"));
        EXPECT_EQ(doc.contains("sleepsInSeconds"), std::string(k.mode) == "auto");
        c.stop();
    }
}

TEST_F(StatusFile, AutoSessionWithQuietAgentsCountsDownToSleep) {
    c.setAutoCapHours(0);
    ASSERT_TRUE(c.handleURL("duskwell://start"));
    json doc = readStatus();
    EXPECT_EQ(doc["sleepsInSeconds"], 600);
    EXPECT_FALSE(doc.contains("endsAt")) << "no cap, no end";

    // 0.4 s plus one tick: 598.6 seconds left, written truncated.
    env.clock.advance(0.4);
    env.dispatcher.tickSecond();
    c.writeStatusFile();
    doc = readStatus();
    EXPECT_EQ(doc["sleepsInSeconds"], 598);
}

TEST_F(StatusFile, AnUnchangedStateIsWrittenOnce) {
    c.writeStatusFile();
    const auto path = AppConfig::statusFile();
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(24);
    fs::last_write_time(path, old);

    c.writeStatusFile();
    c.writeStatusFile();
    EXPECT_EQ(fs::last_write_time(path), old) << "same text, no write";

    Locale::overrideForTesting(true);  // the status line changes language
    c.writeStatusFile();
    EXPECT_NE(fs::last_write_time(path), old);
    EXPECT_EQ(readStatus()["status"], "대기 중");
}

TEST_F(StatusFile, AnUnchangedFileIsRedatedOnlyAfterAMinuteOrWhenForced) {
    const Date first = env.clock.now();
    c.writeStatusFile();
    struct Step {
        double advance;
        AwakeController::StatusWrite when;
        bool redated;
    };
    const Step steps[] = {
        {30, AwakeController::StatusWrite::ifChanged, false},
        {29, AwakeController::StatusWrite::ifChanged, false},
        {0, AwakeController::StatusWrite::always, true},   // the final write on the way out
        {59, AwakeController::StatusWrite::ifChanged, false},
        {2, AwakeController::StatusWrite::ifChanged, true},  // a minute since the forced one
    };
    Date expected = first;
    for (const auto& step : steps) {
        env.clock.advance(step.advance);
        c.writeStatusFile(step.when);
        if (step.redated) expected = env.clock.now();
        EXPECT_EQ(readStatus()["written"], utc(expected)) << "after +" << step.advance << " s";
    }
}

TEST_F(StatusFile, ADeletedFileIsNotRewrittenUntilTheStateChanges) {
    // The comparison is with the last text written, not with the disk.
    c.writeStatusFile();
    fs::remove(AppConfig::statusFile());
    c.writeStatusFile();
    EXPECT_FALSE(fs::exists(AppConfig::statusFile()));
}

TEST_F(StatusFile, ReadersNeverSeeAPartialFileWhileItIsRewritten) {
    c.writeStatusFile();
    const std::string english = *testing::readFile(AppConfig::statusFile());
    Locale::overrideForTesting(true);
    c.writeStatusFile();
    const std::string korean = *testing::readFile(AppConfig::statusFile());
    ASSERT_NE(english, korean);

    std::atomic<bool> done{false};
    std::atomic<int> reads{0}, torn{0}, missing{0};
    std::thread reader([&] {
        while (!done.load()) {
            const auto text = testing::readFile(AppConfig::statusFile());
            if (!text) ++missing;
            else if (*text != english && *text != korean) ++torn;
            ++reads;
        }
    });
    for (int i = 0; i < 1000; ++i) {
        Locale::overrideForTesting(i % 2 == 0);
        c.writeStatusFile();
    }
    done = true;
    reader.join();
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(torn.load(), 0);
    EXPECT_EQ(missing.load(), 0);
    int entries = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(AppConfig::supportDir())) ++entries;
    EXPECT_EQ(entries, 1) << "no temporary file is left behind";
}

// ---------------------------------------------------------------- status line

TEST_F(StatusLine, JoinsSessionBatteryAndLidPartsLeavingOutWhatIsUnknown) {
    const auto expectBoth = [&](const std::string& english, const std::string& korean) {
        Locale::overrideForTesting(false);
        EXPECT_EQ(c.statusLine(), english);
        Locale::overrideForTesting(true);
        EXPECT_EQ(c.statusLine(), korean);
    };
    expectBoth("Idle", "대기 중");  // a desktop: no battery, lid state unknown
    env.power.setBattery(55, false);
    env.power.lid = false;
    c.refreshSystem();
    expectBoth("Idle · Battery 55%", "대기 중 · 배터리 55%");
    env.power.setBattery(80, true, 95);
    env.power.lid = true;
    c.refreshSystem();
    expectBoth("Idle · Battery 80% (~1:35) · Lid closed", "대기 중 · 배터리 80% (약 1:35) · 뚜껑 닫힘");
    env.power.sources.reset();  // the session part alone
    env.power.lid = std::nullopt;
    c.refreshSystem();
    c.start(KeepMode::timer, 45);
    expectBoth("45m left", "남은 시간 45분");
    c.start(KeepMode::auto_, std::nullopt);
    expectBoth("All quiet · sleeping in 10m", "모두 조용함 · 10분 후 잠자기");
}

// ---------------------------------------------------------------- URL routes

TEST_F(URLRoutes, StartWithoutQueryUsesAutoAndTheChosenMinutes) {
    c.setMode(KeepMode::timer);
    c.setSelectedMinutes(25);
    EXPECT_TRUE(c.handleURL("duskwell://start"));
    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(c.activeMode(), KeepMode::auto_);
    EXPECT_EQ(c.mode(), KeepMode::auto_) << "the chosen mode follows the URL";
    EXPECT_EQ(c.selectedMinutes(), 25);
}

TEST_F(URLRoutes, StartTimerSetsTheSelectionAndTheEnd) {
    EXPECT_TRUE(c.handleURL("duskwell://start?minutes=90&mode=timer"));
    EXPECT_EQ(c.activeMode(), KeepMode::timer);
    EXPECT_EQ(c.selectedMinutes(), 90);
    EXPECT_EQ(env.settings.integer(SettingsKey::selectedMinutes), 90);
    EXPECT_EQ(env.settings.integer(SettingsKey::mode), 1);
    ASSERT_TRUE(c.endDate());
    EXPECT_EQ(*c.endDate(), addSeconds(env.clock.now(), 5400));
}

TEST_F(URLRoutes, UntilWithUnparsableMinutesLeavesTheSelectionAlone) {
    c.setSelectedMinutes(40);
    EXPECT_TRUE(c.handleURL("duskwell://start?mode=until&minutes=abc"));
    EXPECT_EQ(c.activeMode(), KeepMode::until);
    EXPECT_EQ(c.mode(), KeepMode::until);
    EXPECT_EQ(c.selectedMinutes(), 40);
}

TEST_F(URLRoutes, ModeWordsAreExactOtherwiseAuto) {
    EXPECT_TRUE(c.handleURL("duskwell://start?mode=Timer&minutes=30"));
    EXPECT_EQ(c.activeMode(), KeepMode::auto_);
    EXPECT_EQ(c.selectedMinutes(), 30) << "minutes still parse";
    EXPECT_TRUE(c.handleURL("duskwell://start?mode&minutes=%2B15"));
    EXPECT_EQ(c.activeMode(), KeepMode::auto_);
    EXPECT_EQ(c.selectedMinutes(), 15) << "percent-decoded, optional sign";
    EXPECT_TRUE(c.handleURL("duskwell://start?minutes= 20"));
    EXPECT_EQ(c.selectedMinutes(), 15) << "blanks do not parse";
}

TEST_F(URLRoutes, ExtendPassesZeroThroughAndDefaultsTo60) {
    c.start(KeepMode::timer, 30);
    const Date end = *c.endDate();
    EXPECT_TRUE(c.handleURL("duskwell://extend?minutes=0"));
    EXPECT_EQ(*c.endDate(), end);
    EXPECT_TRUE(c.handleURL("duskwell://extend?minutes=x"));
    EXPECT_EQ(*c.endDate(), addSeconds(end, 3600));
    EXPECT_TRUE(c.handleURL("duskwell://extend"));
    EXPECT_EQ(*c.endDate(), addSeconds(end, 7200));
    EXPECT_TRUE(c.handleURL("duskwell://extend?minutes=15"));
    EXPECT_EQ(*c.endDate(), addSeconds(end, 8100));
    EXPECT_EQ(readStatus()["endsAt"], utc(addSeconds(end, 8100))) << "written after the route";
}

TEST(HugeDurations, AreClampedToAWeekAndNeverEndThePeriodAtOnce) {
    constexpr double week = 7 * 24 * 3600;
    struct Case {
        const char* what;
        std::function<void(AwakeController&, TestEnvironment&)> act;
    };
    const Case cases[] = {
        {"timer minutes", [](AwakeController& c, TestEnvironment&) { c.handleURL("duskwell://start?mode=timer&minutes=2147483647"); }},
        {"auto cap in settings", [](AwakeController&, TestEnvironment& env) {
             env.settings.setInteger(SettingsKey::autoCapHours, std::int64_t{1} << 40);
             AwakeController fresh;
             fresh.start(KeepMode::auto_, std::nullopt);
             EXPECT_LE(*fresh.endDate(), addSeconds(env.clock.now(), week));
             EXPECT_EQ(fresh.autoCapHours(), 168);
             fresh.stop();
         }},
        {"extend", [](AwakeController& c, TestEnvironment&) {
             c.start(KeepMode::timer, 30);
             c.handleURL("duskwell://extend?minutes=2147483647");
             c.extend(std::numeric_limits<int>::max());
         }},
        {"extend again and again", [](AwakeController& c, TestEnvironment&) {
             c.start(KeepMode::timer, 7 * 24 * 60);
             for (int i = 0; i < 5; ++i) c.extend(60);
         }},
    };
    for (const auto& testCase : cases) {
        TestEnvironment env;
        env.installHelper();
        AwakeController c;
        testCase.act(c, env);
        if (!c.isActive()) continue;  // the settings case checks its own controller
        ASSERT_TRUE(c.endDate()) << testCase.what;
        EXPECT_GT(*c.endDate(), addSeconds(env.clock.now(), week - 3600)) << testCase.what;
        EXPECT_LE(*c.endDate(), addSeconds(env.clock.now(), week)) << testCase.what;
        env.dispatcher.tickSecond();
        EXPECT_TRUE(c.isActive()) << testCase.what << ": " << c.lastMessage().value_or("");
    }
    // The date arithmetic itself saturates instead of overflowing.
    const Date now = std::chrono::system_clock::now();
    EXPECT_GT(addSeconds(now, 1e300), now);
    EXPECT_LT(addSeconds(now, -1e300), now);
    EXPECT_EQ(addSeconds(now, std::numeric_limits<double>::quiet_NaN()), now);
    EXPECT_GT(dateFromUnix(1e300), now);
}

TEST_F(URLRoutes, ToggleTwiceReturnsToTheFirstStateAndStopEndsWithoutAReason) {
    for (const char* second : {"duskwell://toggle", "duskwell://stop"}) {
        SCOPED_TRACE(second);
        EXPECT_TRUE(c.handleURL("duskwell://toggle"));
        EXPECT_TRUE(c.isActive());
        EXPECT_EQ(readStatus()["active"], true);
        EXPECT_TRUE(c.handleURL(second));
        EXPECT_FALSE(c.isActive());
        EXPECT_EQ(readStatus()["active"], false);
        EXPECT_EQ(c.lastMessage(), std::nullopt) << "a manual stop has no reason";
    }
}

TEST_F(URLRoutes, SleepStopsARunningPeriodWithTheReasonAndSleepsTwoSecondsLaterEvenWhenIdle) {
    const std::string sleepLine = testing::sleepNowLine();
    for (const bool running : {false, true}) {
        SCOPED_TRACE(running ? "running" : "idle");
        if (running) c.start(KeepMode::timer, 30);
        env.commands.clear();
        EXPECT_TRUE(c.handleURL("duskwell://sleep"));
        EXPECT_FALSE(c.isActive());
        EXPECT_EQ(readStatus()["active"], false);
        EXPECT_EQ(c.lastMessage(), running ? std::optional<std::string>("Sleep requested by command.") : std::nullopt);
        EXPECT_TRUE(env.commands.linesContaining(sleepLine).empty()) << "not before 2 s";
        env.clock.advance(1.9);
        env.dispatcher.runDue();
        EXPECT_TRUE(env.commands.linesContaining(sleepLine).empty());
        env.clock.advance(0.1);
        env.dispatcher.runDue();
        EXPECT_EQ(env.commands.linesContaining(sleepLine).size(), 1u);
    }
}

TEST_F(URLRoutes, HostsAreCaseSensitiveAndUnknownOnesChangeNothing) {
    c.start(KeepMode::timer, 30);
    for (const char* url : {"duskwell://STOP", "duskwell://Stop", "duskwell://halt", "duskwell://",
                            "duskwell:stop", "http://stop", "duskwellx://stop", "DUSKWELL://stop", "stop", ""}) {
        EXPECT_FALSE(c.handleURL(url)) << url;
    }
    EXPECT_TRUE(c.isActive());
    EXPECT_FALSE(fs::exists(AppConfig::statusFile())) << "unhandled URLs write nothing";
}

// ---------------------------------------------------------------- terminal command

struct CLIFixture : ::testing::Test {
    TestEnvironment env;
    std::string resource;
    std::string copy;
    std::string linkDir;

    void SetUp() override {
        resource = env.home.path() + "/bundle/duskwell-cli";
        fs::create_directories(env.home.path() + "/bundle");
        testing::writeFile(resource, "#!/bin/sh\necho v1\n");
        env.platform.resources["duskwell-cli"] = resource;
        copy = env.home.path() + "/.duskwell/bin/duskwell";
        linkDir = env.home.path() + "/.local/bin";
    }
};

TEST_F(CLIFixture, InstallingTwiceReplacesTheCopyAndTheLink) {
    fs::create_directories(linkDir);
    AwakeController c;
    EXPECT_FALSE(c.cliInstalled());
    c.installCLI();
    EXPECT_EQ(c.lastMessage(), "Terminal command installed: duskwell start | stop | status");
    EXPECT_TRUE(c.cliInstalled());

    testing::writeFile(resource, "#!/bin/sh\necho v2\n");
    c.setLastMessage(std::nullopt);
    c.installCLI();
    EXPECT_EQ(c.lastMessage(), "Terminal command installed: duskwell start | stop | status");
    EXPECT_EQ(testing::readFile(copy), "#!/bin/sh\necho v2\n");
    EXPECT_EQ(fs::status(copy).permissions() & fs::perms::all, static_cast<fs::perms>(0755));
    const fs::path link = linkDir + "/duskwell";
    ASSERT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::read_symlink(link), fs::path(copy));
    EXPECT_EQ(testing::readFile(link.string()), "#!/bin/sh\necho v2\n");
}

TEST_F(CLIFixture, WithoutLocalBinOnlyTheCopyIsMade) {
    AwakeController c;
    c.installCLI();
    EXPECT_EQ(c.lastMessage(), "Terminal command installed: duskwell start | stop | status");
    EXPECT_TRUE(fs::exists(copy));
    EXPECT_FALSE(fs::exists(env.home.path() + "/.local")) << "the folder is not created";
}

TEST_F(CLIFixture, AnExistingFileWhereTheLinkGoesIsReplaced) {
    fs::create_directories(linkDir);
    testing::writeFile(linkDir + "/duskwell", "old");
    fs::create_symlink("/nonexistent/target", linkDir + "/dangling");
    AwakeController c;
    c.installCLI();
    EXPECT_TRUE(fs::is_symlink(linkDir + "/duskwell"));
}

TEST_F(CLIFixture, AMissingResourceReportsAFileErrorAndInstallsNothing) {
    env.platform.resources.clear();
    AwakeController c;
    c.installCLI();
    ASSERT_TRUE(c.lastMessage());
    EXPECT_NE(c.lastMessage()->find("Couldn't install the terminal command"), std::string::npos);
    EXPECT_NE(c.lastMessage()->find("No such file"), std::string::npos) << *c.lastMessage();
    EXPECT_FALSE(c.cliInstalled());
}

TEST_F(CLIFixture, AFailingLinkStepReportsItsErrorInKorean) {
    Locale::overrideForTesting(true);
    fs::create_directories(linkDir + "/duskwell/occupied");  // a non-empty folder cannot be removed
    AwakeController c;
    c.installCLI();
    ASSERT_TRUE(c.lastMessage());
    EXPECT_EQ(c.lastMessage()->rfind("터미널 명령을 설치하지 못했어요: ", 0), 0u) << *c.lastMessage();
    EXPECT_NE(c.lastMessage()->find(linkDir + "/duskwell"), std::string::npos);
}

TEST_F(CLIFixture, LaunchRefreshesAnInstalledCommandWithoutGreeting) {
    {
        AwakeController first;
        EXPECT_EQ(first.lastMessage(), std::nullopt) << "not installed: nothing happens at launch";
        EXPECT_FALSE(fs::exists(copy));
        first.installCLI();
    }
    testing::writeFile(resource, "#!/bin/sh\necho v3\n");
    AwakeController again;
    EXPECT_EQ(testing::readFile(copy), "#!/bin/sh\necho v3\n");
    EXPECT_EQ(again.lastMessage(), std::nullopt);
}

}  // namespace
}  // namespace duskwell
