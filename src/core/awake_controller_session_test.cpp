#include <gtest/gtest.h>

#include <algorithm>

#include "core/awake_controller_test_support.h"
#include "testing/controller_fixture.h"
#include "core/settings_keys.h"

namespace duskwell {
namespace {

using SessionStart = testing::ControllerWithHelper;
using SessionStop = testing::ControllerWithHelper;
using SessionDerived = testing::ControllerWithHelper;

using testing::helperRuns;
using testing::localTime;
using testing::phoneAlerts;
using testing::phoneAlertsTitled;
using testing::sleepNowLine;
using testing::ticks;
using testing::TestEnvironment;

bool restoreLid(const TestEnvironment& env) {
    return env.settings.boolean(SettingsKey::restoreLid).value_or(false);
}

size_t liveWatchdogs(const TestEnvironment& env) {
    return static_cast<size_t>(std::count_if(env.commands.spawned().begin(), env.commands.spawned().end(),
                                             [](const auto& s) { return !*s.terminated; }));
}

bool ran(const TestEnvironment& env, const std::string& line) {
    const auto lines = env.commands.lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// ---- start: the means, in order, and every failure leaves nothing held ----

TEST_F(SessionStart, TakesTheMeansInOrderAndTellsThePhoneWhatEndsThePeriod) {
    env.power.batterySettings["powermode"] = 0;  // performance will change it
    c.setPhone(true);

    // At "lid-on" nothing is held yet; at the performance change "restore.lid" already is.
    bool heldAtLidOn = true;
    bool recordedBeforePerformance = false;
    env.commands.answer(AppConfig::sudoPath() + " -n " + env.helperFile() + " lid-on", [&](const auto&) {
        heldAtLidOn = restoreLid(env) || !env.power.heldAssertions.empty() || !env.commands.spawned().empty();
        return CommandResult{0, ""};
    });
    env.commands.answer(AppConfig::sudoPath() + " -n " + env.helperFile() + " powermode", [&](const auto&) {
        recordedBeforePerformance = restoreLid(env) && env.power.heldAssertions.empty();
        return CommandResult{0, ""};
    });

    c.start(KeepMode::timer, 30);

    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(c.activeMode(), KeepMode::timer);
    EXPECT_FALSE(heldAtLidOn);
    EXPECT_TRUE(recordedBeforePerformance);
    EXPECT_TRUE(restoreLid(env));
    EXPECT_EQ(env.power.heldAssertions.size(), 1u);
    EXPECT_EQ(liveWatchdogs(env), 1u);
    EXPECT_EQ(c.startDate(), env.clock.now());
    EXPECT_EQ(c.endDate(), addSeconds(env.clock.now(), 30 * 60));
    EXPECT_EQ(c.lastMessage(), std::nullopt);

    const auto started = phoneAlertsTitled(env.http, "Duskwell started");
    ASSERT_EQ(started.size(), 1u);
    EXPECT_EQ(started[0]["message"],
              "Your computer keeps running with the lid closed. I'll let you know when time is up.");
    EXPECT_EQ(started[0]["tags"], nlohmann::json::array({"crescent_moon"}));
    EXPECT_EQ(started[0]["priority"], 3);
    EXPECT_FALSE(started[0].contains("actions"));
    c.stop();

    c.start(KeepMode::auto_, std::nullopt);
    EXPECT_EQ(phoneAlertsTitled(env.http, "Duskwell started").at(1)["message"],
              "Your computer keeps running with the lid closed. I'll let you know when your AI tasks finish.");
    EXPECT_EQ(c.endDate(), addSeconds(env.clock.now(), 8 * 3600)) << "the auto cap";
    c.stop();
}

TEST_F(SessionStart, ASecondStartReAimsWithoutTakingTheMeansTwice) {
    c.start(KeepMode::timer, 30);
    env.clock.advance(100);
    c.start(KeepMode::until, std::nullopt);
    EXPECT_EQ(helperRuns(env).size(), 1u) << "one lid-on";
    EXPECT_EQ(env.commands.spawned().size(), 1u) << "one watchdog";
    EXPECT_EQ(env.power.assertionsCreated, 1);
    EXPECT_EQ(c.activeMode(), KeepMode::until);
    EXPECT_EQ(c.startDate(), env.clock.now());
    EXPECT_EQ(c.endDate(), c.nextOccurrence(c.untilDate()));
    c.stop();
}

void expectNothingHeld(const TestEnvironment& env, const AwakeController& c) {
    EXPECT_FALSE(c.isActive());
    EXPECT_FALSE(c.busy());
    EXPECT_TRUE(env.power.heldAssertions.empty());
    EXPECT_TRUE(env.commands.spawned().empty()) << "no watchdog";
    EXPECT_FALSE(env.settings.boolean(SettingsKey::restoreLid).has_value()) << "restore.lid never written";
    EXPECT_EQ(c.startDate(), std::nullopt);
}

TEST(SessionStartFailure, ARefusedOrUnverifiedInstallOrAFailingLidOnLeavesNothingHeld) {
    struct Case {
        const char* what;
        bool helper;
        AdminOutcome admin;
        const char* message;
    };
    const Case cases[] = {
        {"install refused", false, AdminOutcome::cancelled, "Permission setup was cancelled."},
        {"install that cannot be verified", false, AdminOutcome::succeeded, "Couldn't verify the permission."},
        {"lid-on failing", true, AdminOutcome::succeeded, "Couldn't change power settings."},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        TestEnvironment env;
        env.platform.resources["duskwell-power"] = "/opt/duskwell/duskwell-power";
        if (k.helper) env.installHelper();
        AwakeController c;
        bool busyDuringInstall = false;
        env.platform.onAdminScript = [&](const std::string&) { busyDuringInstall = c.busy(); };
        env.platform.adminResult = {k.admin, {}};  // a "success" after which no helper appears
        env.commands.answer(AppConfig::sudoPath() + " -n " + env.helperFile() + " lid-on", CommandResult{1, "denied"});
        c.start(KeepMode::timer, 30);
        EXPECT_EQ(c.lastMessage(), k.message);
        EXPECT_EQ(busyDuringInstall, !k.helper);
        EXPECT_EQ(env.platform.adminScripts.size(), k.helper ? 0u : 1u);
        EXPECT_EQ(c.helperInstalled(), k.helper);
        expectNothingHeld(env, c);
    }
}

TEST(SessionStartFailure, AVerifiedInstallGoesOnToStart) {
    TestEnvironment env;
    env.platform.resources["duskwell-power"] = "/opt/duskwell/duskwell-power";
    AwakeController c;
    env.platform.onAdminScript = [&](const std::string&) { env.installHelper(); };
    c.start(KeepMode::timer, 30);
    EXPECT_TRUE(c.helperInstalled());
    EXPECT_TRUE(c.isActive());
    EXPECT_FALSE(c.busy());
    c.stop();
}

// ---- stop ----

TEST_F(SessionStop, GivesEverythingBackInOrder) {
    env.power.batterySettings["powermode"] = 0;
    c.start(KeepMode::timer, 30);
    ASSERT_EQ(liveWatchdogs(env), 1u);

    // At "lid-off" the assertion is still held and "restore.lid" still set: lid-off first.
    bool lidOffFirst = false;
    env.commands.answer(AppConfig::sudoPath() + " -n " + env.helperFile() + " lid-off", [&](const auto&) {
        lidOffFirst = restoreLid(env) && !env.power.heldAssertions.empty() && liveWatchdogs(env) == 1;
        return CommandResult{0, ""};
    });
    const size_t before = helperRuns(env).size();
    c.stop();

    EXPECT_TRUE(lidOffFirst);
    auto runs = helperRuns(env);
    runs.erase(runs.begin(), runs.begin() + static_cast<std::ptrdiff_t>(before));
    ASSERT_GE(runs.size(), 2u);
    EXPECT_TRUE(runs[0].ends_with(" lid-off"));
    EXPECT_TRUE(runs[1].ends_with(" powermode 0")) << "performance restored after lid-off";
    EXPECT_FALSE(restoreLid(env));
    EXPECT_TRUE(env.power.heldAssertions.empty());
    EXPECT_EQ(liveWatchdogs(env), 0u);
    EXPECT_FALSE(c.watchdogRunning());
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.startDate(), std::nullopt);
    EXPECT_EQ(c.endDate(), std::nullopt);
}

TEST_F(SessionStop, AManualStopNeverSleepsEvenWithTheLidClosed) {
    env.power.lid = true;
    env.platform.bundle = true;
    c.setPhone(true);
    c.start(KeepMode::timer, 30);
    c.stop();
    EXPECT_FALSE(ran(env, sleepNowLine()));
    EXPECT_EQ(c.lastMessage(), std::nullopt);
    EXPECT_TRUE(env.platform.notifications.empty());
    const auto stopped = phoneAlertsTitled(env.http, "Duskwell stopped");
    ASSERT_EQ(stopped.size(), 1u);
    EXPECT_EQ(stopped[0]["message"], "Stopped manually. Your computer will sleep normally.");
    EXPECT_EQ(stopped[0]["tags"], nlohmann::json::array({"zzz"}));
}

TEST_F(SessionStop, AStopWithAReasonTellsEveryoneAndSleepsOnlyWithTheLidClosed) {
    env.platform.bundle = true;
    env.power.lid = false;
    c.setPhone(true);
    c.start(KeepMode::timer, 30);
    c.stop("Because.");
    EXPECT_EQ(c.lastMessage(), "Because.");
    ASSERT_EQ(env.platform.notifications.size(), 1u);
    EXPECT_EQ(env.platform.notifications[0], std::make_pair(std::string("Duskwell"), std::string("Because.")));
    const auto told = phoneAlertsTitled(env.http, "Duskwell");
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0]["message"], "Because.");
    EXPECT_EQ(told[0]["tags"], nlohmann::json::array({"zzz"}));
    EXPECT_FALSE(ran(env, sleepNowLine())) << "lid open: no forced sleep";

    env.power.lid = true;
    c.start(KeepMode::timer, 30);
    c.stop("Again.");
    EXPECT_TRUE(ran(env, sleepNowLine()));
}

TEST_F(SessionStop, IdleWithALeftoverLidSettingStillGivesItBack) {
    env.settings.setBool(SettingsKey::restoreLid, true);
    env.commands.clear();
    c.stop();
    const auto runs = helperRuns(env);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_TRUE(runs[0].ends_with(" lid-off"));
    EXPECT_FALSE(restoreLid(env));

    env.commands.clear();
    c.stop();
    EXPECT_TRUE(env.commands.lines().empty()) << "nothing left to give back";
}

// ---- the end of a period ----

TEST(SessionEnd, ATimerEndingWithTheLidClosedStopsAndSleepsAtOnce) {
    TestEnvironment env;
    env.installHelper();
    env.platform.bundle = true;
    env.power.lid = false;
    AwakeController c;
    c.setPhone(true);
    c.start(KeepMode::timer, 1);
    ticks(env, 30);
    env.power.lid = true;
    ticks(env, 29);
    ASSERT_TRUE(c.isActive()) << "59 s of a one-minute timer";
    EXPECT_FALSE(ran(env, sleepNowLine()));
    ticks(env, 1);
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.lastMessage(), "Time's up. Going to sleep.");
    EXPECT_TRUE(ran(env, sleepNowLine()));
    const auto lines = env.commands.lines();
    const auto lidOff = std::find_if(lines.begin(), lines.end(), [](const std::string& l) { return l.ends_with(" lid-off"); });
    const auto sleep = std::find(lines.begin(), lines.end(), sleepNowLine());
    EXPECT_LT(lidOff, sleep) << "lid sleep is given back before the Mac is put to sleep";
    ASSERT_EQ(env.platform.notifications.size(), 1u);
    EXPECT_EQ(env.platform.notifications[0].second, "Time's up. Going to sleep.");
    EXPECT_EQ(phoneAlertsTitled(env.http, "Duskwell").size(), 1u);
    EXPECT_FALSE(restoreLid(env));
    EXPECT_TRUE(env.power.heldAssertions.empty());
}

TEST(SessionEnd, UntilNineChosenAtTenEndsTomorrowTheEndIsAlwaysAfterNow) {
    TestEnvironment env;
    env.installHelper();
    env.clock.set(localTime(10, 0));
    AwakeController c;
    c.setUntilDate(localTime(9, 0));
    c.start(KeepMode::until, std::nullopt);
    EXPECT_EQ(c.endDate(), localTime(9, 0, 0, 23));
    c.stop();

    c.setUntilDate(localTime(11, 30, 0, 5));  // only the clock time counts
    c.start(KeepMode::until, std::nullopt);
    EXPECT_EQ(c.endDate(), localTime(11, 30));
    c.stop();
    EXPECT_EQ(c.nextOccurrence(localTime(10, 0)), localTime(10, 0, 0, 23)) << "exactly now: tomorrow";
    EXPECT_EQ(c.nextOccurrence(localTime(0, 0, 0, 1)), localTime(0, 0, 0, 23));
}

// ---- extend ----

TEST(SessionExtend, AnUncappedAutoPeriodRestartsItsQuietCountdown) {
    TestEnvironment env;
    env.installHelper();
    AwakeController c;
    c.setPhone(true);
    c.setAutoCapHours(0);
    c.start(KeepMode::auto_, std::nullopt);
    ASSERT_EQ(c.endDate(), std::nullopt);
    ticks(env, 540);
    ASSERT_EQ(phoneAlertsTitled(env.http, "Sleeping soon").size(), 1u);
    ASSERT_EQ(c.idleRemaining(), 60.0);

    c.extend(30);
    EXPECT_EQ(c.endDate(), std::nullopt);
    EXPECT_EQ(c.idleRemaining(), 600.0);
    EXPECT_FALSE(AwakeControllerTestAccess::idleWarned(c));
    ticks(env, 540);
    EXPECT_EQ(phoneAlertsTitled(env.http, "Sleeping soon").size(), 2u) << "the warning is armed again";
    EXPECT_TRUE(c.isActive());
    c.stop();
}

TEST(SessionExtend, MovesTheEndOfATimerOrTheCapOfAnAutoPeriodLeavingItsCountdownAlone) {
    TestEnvironment env;
    env.installHelper();
    env.clock.set(localTime(11, 0));
    AwakeController c;
    c.start(KeepMode::timer, 60);
    ASSERT_EQ(c.endDate(), localTime(12, 0));
    c.extend(60);
    EXPECT_EQ(c.endDate(), localTime(13, 0));
    c.stop();
    c.extend(60);
    EXPECT_EQ(c.endDate(), std::nullopt) << "nothing to extend while idle";

    c.setAutoCapHours(2);
    c.start(KeepMode::auto_, std::nullopt);
    const Date cap = *c.endDate();
    ticks(env, 100);
    c.extend(30);
    EXPECT_EQ(c.endDate(), addSeconds(cap, 30 * 60));
    EXPECT_EQ(c.idleRemaining(), 500.0);
    c.stop();
}

// ---- derived quantities ----

TEST_F(SessionDerived, TimerRemainingAndProgressFollowTheClockAnUnlimitedOneHasAFullRing) {
    EXPECT_EQ(c.progress(), 0.0);
    c.start(KeepMode::timer, 0);
    EXPECT_EQ(c.remaining(), std::nullopt);
    EXPECT_EQ(c.progress(), 1.0);
    c.start(KeepMode::timer, 10);
    EXPECT_EQ(c.remaining(), 600.0);
    EXPECT_EQ(c.progress(), 0.0);
    ticks(env, 150);
    EXPECT_EQ(c.remaining(), 450.0);
    EXPECT_DOUBLE_EQ(c.progress(), 0.25);
    c.stop();
}

TEST_F(SessionDerived, IdleRemainingFallsFromTheGraceToZeroNeverBelow) {
    EXPECT_EQ(c.idleRemaining(), std::nullopt) << "idle";
    c.setAutoCapHours(0);
    c.start(KeepMode::auto_, std::nullopt);
    EXPECT_EQ(c.idleRemaining(), 600.0);
    EXPECT_EQ(c.progress(), 1.0);
    AwakeControllerTestAccess::completeScan(
        c, testing::snapshotOf({testing::agentItem(AgentKind::claude, AgentState::working)}));
    EXPECT_EQ(c.idleRemaining(), std::nullopt) << "busy agents";
    EXPECT_EQ(c.progress(), 1.0);
    AwakeControllerTestAccess::completeScan(c, testing::snapshotOf({}));
    ticks(env, 300);
    EXPECT_EQ(c.idleRemaining(), 300.0);
    EXPECT_DOUBLE_EQ(c.progress(), 0.5);
    c.stop();
}

}  // namespace
}  // namespace duskwell
