#include <gtest/gtest.h>

#include <algorithm>

#include "core/awake_controller_test_support.h"
#include "testing/controller_fixture.h"
#include "core/localization.h"
#include "core/settings_keys.h"

namespace duskwell {
namespace {

using Describe = testing::ControllerTest;

using testing::agentItem;
using testing::phoneAlerts;
using testing::phoneAlertsTitled;
using testing::sleepNowLine;
using testing::ticks;
using testing::snapshotOf;
using testing::TestEnvironment;
using Access = AwakeControllerTestAccess;

// A running period with the phone on, local notifications possible and the lid open.
struct Running {
    explicit Running(KeepMode mode, int minutes = 0) {
        env.installHelper();
        env.platform.bundle = true;
        env.power.lid = false;
        c = std::make_unique<AwakeController>();
        c->setPhone(true);
        c->start(mode, minutes);
    }
    TestEnvironment env;
    std::unique_ptr<AwakeController> c;
};

// ---- battery ----

TEST(TickBattery, WarnsOnceWithinTenPointsThenStopsAtTheFloor) {
    Running r(KeepMode::timer);
    auto& env = r.env;
    auto& c = *r.c;

    env.power.setBattery(21, true);
    ticks(env, 5);
    EXPECT_TRUE(env.platform.notifications.empty()) << "21 % is more than ten points above";

    env.power.setBattery(20, true);
    ticks(env, 5);
    ASSERT_EQ(env.platform.notifications.size(), 1u);
    const std::string message = "Battery 20%. At 10% Duskwell will stop and sleep. Plug in to keep going.";
    EXPECT_EQ(env.platform.notifications[0], std::make_pair(std::string("Battery getting low"), message));
    const auto low = phoneAlertsTitled(env.http, "🔋 Battery getting low");
    ASSERT_EQ(low.size(), 1u);
    EXPECT_EQ(low[0]["message"], message);
    EXPECT_EQ(low[0]["priority"], 4);
    EXPECT_EQ(low[0]["tags"], nlohmann::json::array());
    ASSERT_TRUE(low[0].contains("actions"));
    EXPECT_EQ(low[0]["actions"].size(), 2u);

    env.power.setBattery(11, true);
    ticks(env, 5);
    EXPECT_EQ(env.platform.notifications.size(), 1u) << "one warning per period";
    EXPECT_TRUE(c.isActive());

    env.power.setBattery(10, true);
    ticks(env, 5);
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.lastMessage(), "Battery 10%. Stopped automatically.");
    EXPECT_EQ(env.platform.notifications.back().second, "Battery 10%. Stopped automatically.");
}

TEST(TickBattery, TheWarningNamesTheTimeLeftWhenKnownInEachLanguage) {
    for (const bool korean : {false, true}) {
        Running r(KeepMode::timer);
        Locale::overrideForTesting(korean);
        r.env.power.setBattery(15, true, korean ? 30 : 95);
        ticks(r.env, 5);
        ASSERT_EQ(r.env.platform.notifications.size(), 1u);
        if (korean) {
            EXPECT_EQ(r.env.platform.notifications[0].first, "배터리 부족");
            EXPECT_EQ(r.env.platform.notifications[0].second.rfind("배터리 15% · 약 30분 남음. 10%", 0), 0u);
        } else {
            EXPECT_EQ(r.env.platform.notifications[0].second,
                      "Battery 15% · about 1:35 left. At 10% Duskwell will stop and sleep. Plug in to keep going.");
        }
    }
    Locale::overrideForTesting(std::nullopt);
}

TEST(TickBattery, FloorZeroOrMainsPowerDisablesBothRules) {
    for (const bool onMains : {false, true}) {
        SCOPED_TRACE(onMains ? "on mains power" : "floor 0");
        Running r(KeepMode::timer);
        if (!onMains) r.c->setBatteryFloor(0);
        for (const int percent : {5, 0}) {
            r.env.power.setBattery(percent, !onMains);
            ticks(r.env, 10);
        }
        EXPECT_TRUE(r.c->isActive());
        EXPECT_TRUE(r.env.platform.notifications.empty());
        EXPECT_TRUE(phoneAlertsTitled(r.env.http, "🔋 Battery getting low").empty());
    }
}

// ---- heat ----

TEST(TickHeat, SeriousWarnsThePhoneOnceCriticalStopsOnlyWhenAsked) {
    Running r(KeepMode::timer);
    r.c->setStopOnHeat(false);
    r.env.power.thermal = 2;
    r.env.power.thermalObserver(2);
    ticks(r.env, 20);
    const auto hot = phoneAlertsTitled(r.env.http, "🌡️ Running hot");
    ASSERT_EQ(hot.size(), 1u);
    EXPECT_EQ(hot[0]["message"],
              "Your computer is running hot. Give it some air — Duskwell stops automatically if it gets worse.");
    EXPECT_EQ(hot[0]["priority"], 4);
    EXPECT_EQ(hot[0]["actions"].size(), 2u);
    EXPECT_TRUE(r.env.platform.notifications.empty()) << "no local notification for heat";

    r.env.power.thermal = 3;
    r.env.power.thermalObserver(3);
    ticks(r.env, 10);
    EXPECT_TRUE(r.c->isActive());
    r.c->setStopOnHeat(true);
    ticks(r.env, 1);
    EXPECT_FALSE(r.c->isActive());
    EXPECT_EQ(r.c->lastMessage(), "Your computer got too hot. Stopped automatically.");
}

// ---- precedence ----

TEST(TickPrecedence, TimeUpWinsOverTheBatteryFloorAndOnlyOneStopHappens) {
    Running r(KeepMode::timer, 1);
    r.env.power.setBattery(50, true);
    ticks(r.env, 59);
    ASSERT_TRUE(r.c->isActive());
    r.env.power.setBattery(5, true);  // read at tick 60, the very tick the timer ends
    ticks(r.env, 1);
    EXPECT_FALSE(r.c->isActive());
    EXPECT_EQ(r.c->lastMessage(), "Time's up. Going to sleep.");
    ASSERT_EQ(r.env.platform.notifications.size(), 1u) << "one stop, one notice";
    ticks(r.env, 10);
    EXPECT_EQ(r.env.platform.notifications.size(), 1u);
}

TEST(TickPrecedence, TheBatteryStopComesBeforeTheHeatStop) {
    Running r(KeepMode::timer);
    r.env.power.setBattery(5, true);
    r.env.power.thermal = 3;
    ticks(r.env, 5);  // both read at the same refresh
    EXPECT_FALSE(r.c->isActive());
    EXPECT_EQ(r.c->lastMessage(), "Battery 5%. Stopped automatically.");
    EXPECT_EQ(r.env.platform.notifications.size(), 1u);
}

TEST(TickPrecedence, MaximumTimeOfAnAutoPeriodStopsWhileAgentsWork) {
    Running r(KeepMode::auto_);
    auto& env = r.env;
    auto& c = *r.c;
    const auto working = snapshotOf({agentItem(AgentKind::claude, AgentState::working)});
    env.clock.advance(8 * 3600 - 3);
    Access::completeScan(c, working);
    for (int i = 0; i < 2; ++i) {
        env.dispatcher.tickSecond();
        Access::completeScan(c, working);  // the agents keep working
    }
    ASSERT_TRUE(c.isActive());
    env.dispatcher.tickSecond();
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.lastMessage(), "Maximum time reached. Going to sleep.");
}

// ---- the quiet rule ----

TEST(TickQuiet, WarnsAtNineMinutesABusyScanResetsAndRearmsThenStopsAtTen) {
    Running r(KeepMode::auto_);
    auto& env = r.env;
    auto& c = *r.c;
    ticks(env, 539);
    EXPECT_TRUE(phoneAlertsTitled(env.http, "Sleeping soon").empty());
    ticks(env, 1);
    const auto soon = phoneAlertsTitled(env.http, "Sleeping soon");
    ASSERT_EQ(soon.size(), 1u);
    EXPECT_EQ(soon[0]["message"], "All AI tasks are quiet. Sleeping in 1 minute.");
    EXPECT_EQ(soon[0]["tags"], nlohmann::json::array({"hourglass"}));
    EXPECT_EQ(soon[0]["priority"], 4);
    EXPECT_EQ(soon[0]["actions"].size(), 2u);
    ticks(env, 10);

    Access::completeScan(c, snapshotOf({agentItem(AgentKind::codex, AgentState::working)}));
    EXPECT_FALSE(Access::idleWarned(c));
    Access::completeScan(c, snapshotOf({agentItem(AgentKind::codex, AgentState::idle)}));
    EXPECT_EQ(c.idleRemaining(), 600.0);

    ticks(env, 539);
    EXPECT_EQ(phoneAlertsTitled(env.http, "Sleeping soon").size(), 1u);
    ticks(env, 1);
    EXPECT_EQ(phoneAlertsTitled(env.http, "Sleeping soon").size(), 2u);
    ticks(env, 59);
    EXPECT_TRUE(c.isActive());
    ticks(env, 1);
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.lastMessage(), "All AI tasks finished. Going to sleep.");
}

TEST(TickQuiet, OnlyAutoPeriodsHaveAQuietRule) {
    Running r(KeepMode::timer);
    ticks(r.env, 700);
    EXPECT_TRUE(r.c->isActive());
    EXPECT_TRUE(phoneAlertsTitled(r.env.http, "Sleeping soon").empty());
}

// ---- lid ----

TEST(TickLid, ClosingLocksAndDarkensTheInternalPanel) {
    Running r(KeepMode::timer);
    auto& env = r.env;
    env.power.displays = std::vector<DisplayInfo>{{true, false, true}};
    ticks(env, 1);
    env.power.lid = true;
    ticks(env, 1);
    EXPECT_EQ(env.power.locks, 1);
    EXPECT_EQ(env.power.displaySleeps, 1);
    EXPECT_EQ(r.c->lidClosed(), true);
    // Still awake three ticks later: darkened again on the display check.
    ticks(env, 3);
    EXPECT_EQ(env.power.locks, 1);
    EXPECT_EQ(env.power.displaySleeps, 2);
    env.power.displays = std::vector<DisplayInfo>{{true, true, false}};
    ticks(env, 6);
    EXPECT_EQ(env.power.displaySleeps, 2) << "an asleep panel is left alone";
}

TEST(TickLid, AClosingSeenFirstByTheRefreshStillLocks) {
    Running r(KeepMode::timer);
    auto& env = r.env;
    ticks(env, 4);
    env.power.lid = true;
    ticks(env, 1);  // tick 5: the readings refresh
    EXPECT_EQ(env.power.locks, 1);
}

TEST(TickLid, NeitherLockNorDarkenWithAnExternalDisplayAndLockingOffWhileIdleOrWithAnUnknownLid) {
    const std::vector<DisplayInfo> internal{{true, false, true}}, withExternal{{true, false, true}, {false, false, true}};
    struct Case {
        const char* what;
        bool running, lockOnClose;
        std::optional<bool> lid;
        std::vector<DisplayInfo> displays;
    };
    for (const Case& k : {Case{"an external display, locking off", true, false, true, withExternal},
                          Case{"idle", false, true, true, internal}, Case{"lid unknown", true, true, std::nullopt, internal}}) {
        SCOPED_TRACE(k.what);
        Running r(KeepMode::timer);
        if (!k.running) r.c->stop();
        r.c->setLockOnLidClose(k.lockOnClose);
        r.env.power.displays = k.displays;
        r.env.power.lid = k.lid;
        ticks(r.env, 7);
        EXPECT_EQ(r.env.power.locks, 0);
        EXPECT_EQ(r.env.power.displaySleeps, 0);
    }
}

// ---- cadences ----

TEST(TickCadence, StatusFileEveryFiveTicksUpdateCheckAtTenThenEverySixHours) {
    TestEnvironment env;
    AwakeController c;
    auto feedRequests = [&] {
        return std::count_if(env.http.requests.begin(), env.http.requests.end(),
                             [](const auto& p) { return p.request.url == AppConfig::versionFeedURL(); });
    };
    ticks(env, 4);
    EXPECT_FALSE(testing::readFile(AppConfig::statusFile()).has_value());
    ticks(env, 1);
    EXPECT_TRUE(testing::readFile(AppConfig::statusFile()).has_value());
    ticks(env, 4);
    EXPECT_EQ(feedRequests(), 0);
    ticks(env, 1);
    EXPECT_EQ(feedRequests(), 1);
    ticks(env, 21600 - 10 - 1);
    EXPECT_EQ(feedRequests(), 1);
    ticks(env, 1);
    EXPECT_EQ(feedRequests(), 2);
}

TEST(TickCadence, PhonePollEveryTwentyWhenIdleAndTenWhileRunning) {
    TestEnvironment env;
    env.installHelper();
    AwakeController c;
    c.setPhone(true);
    auto polls = [&] {
        return std::count_if(env.http.requests.begin(), env.http.requests.end(),
                             [](const auto& p) { return p.request.method == "GET" && p.request.url.find("/json?poll=1") != std::string::npos; });
    };
    auto answerPolls = [&] {
        while (!env.http.pending.empty()) env.http.respond({200, "", std::nullopt});
        env.dispatcher.runMain();
    };
    for (int i = 0; i < 40; ++i) { env.dispatcher.tickSecond(); answerPolls(); }
    EXPECT_EQ(polls(), 2);
    c.start(KeepMode::timer, 0);
    for (int i = 0; i < 40; ++i) { env.dispatcher.tickSecond(); answerPolls(); }
    EXPECT_EQ(polls(), 6);
    c.stop();
}

// ---- scan completion ----

SessionInfo session(const std::string& id, AgentState state, Date start) {
    SessionInfo s;
    s.id = id;
    s.kind = AgentKind::claude;
    s.state = state;
    s.project = "duskwell";
    s.start = start;
    s.at = start;
    return s;
}

TEST(ScanCompletion, AFinishedSessionIsReportedOnceInsteadOfAllDone) {
    Running r(KeepMode::auto_);
    auto& c = *r.c;
    const Date began = addSeconds(r.env.clock.now(), -12.5 * 60);
    for (const auto state : {AgentState::working, AgentState::idle, AgentState::idle})
        Access::completeScan(c, snapshotOf({agentItem(AgentKind::claude, state, 1)}, {session("s1", state, began)}));
    const std::string title = "✅ " + std::string(AgentKind(AgentKind::claude).title()) + " finished";
    const auto finished = phoneAlertsTitled(r.env.http, title);
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_EQ(finished[0]["message"], std::string(AgentKind(AgentKind::claude).title()) +
                                          " (duskwell) · took 12m · " + c.statusLine());
    EXPECT_EQ(finished[0]["actions"].size(), 2u);
    EXPECT_TRUE(phoneAlertsTitled(r.env.http, "🌙 All AI tasks done").empty())
        << "the finish message stands in for the all-done one";
}

TEST(ScanCompletion, AllDoneAfterWorkWhenNoSessionReported) {
    Running r(KeepMode::auto_);
    auto& c = *r.c;
    for (const auto state : {AgentState::working, AgentState::idle, AgentState::idle})
        Access::completeScan(c, snapshotOf({agentItem(AgentKind::ollama, state)}));
    const auto done = phoneAlertsTitled(r.env.http, "🌙 All AI tasks done");
    ASSERT_EQ(done.size(), 1u);
    EXPECT_EQ(done[0]["message"], "Sleeping in 10 minutes if quiet. " + c.statusLine());
}

TEST(ScanCompletion, WaitingForApprovalAlertsOncePerSpell) {
    Running r(KeepMode::timer);
    auto& c = *r.c;
    const auto waiting = snapshotOf({agentItem(AgentKind::claude, AgentState::waiting)});
    Access::completeScan(c, waiting);
    Access::completeScan(c, waiting);
    auto alerts = phoneAlertsTitled(r.env.http, "Waiting for you");
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0]["message"], "An AI agent is waiting for your approval.");
    EXPECT_EQ(alerts[0]["tags"], nlohmann::json::array({"raised_hand"}));
    EXPECT_EQ(alerts[0]["priority"], 4);
    Access::completeScan(c, snapshotOf({agentItem(AgentKind::claude, AgentState::working)}));
    Access::completeScan(c, waiting);
    EXPECT_EQ(phoneAlertsTitled(r.env.http, "Waiting for you").size(), 2u) << "a new spell alerts again";
}

TEST(ScanCompletion, IdleOrFrozenControllersSendNothing) {
    TestEnvironment env;
    env.installHelper();
    AwakeController c;
    c.setPhone(true);
    Access::completeScan(c, snapshotOf({agentItem(AgentKind::claude, AgentState::waiting)}));
    EXPECT_EQ(c.agents().items.size(), 1u);
    EXPECT_TRUE(phoneAlerts(env.http).empty());

    c.setFrozen(true);
    Access::completeScan(c, snapshotOf({}));
    EXPECT_EQ(c.agents().items.size(), 1u) << "a frozen controller ignores scans";
}

TEST_F(Describe, RunningAndFinishedForms) {
    const std::string title(AgentKind(AgentKind::claude).title());
    SessionInfo s = session("a", AgentState::working, addSeconds(env.clock.now(), -20));
    EXPECT_EQ(c.describe(s, true), title + " (duskwell) 1m in") << "at least one minute";
    s.start = addSeconds(env.clock.now(), -(59 * 60 + 59));
    EXPECT_EQ(c.describe(s, false), title + " (duskwell) · took 59m");
    s.project.reset();
    s.start.reset();
    EXPECT_EQ(c.describe(s, true), title);
}

// ---- notify ----

TEST(Notify, OnlyThroughAPlatformThatCanNotify) {
    TestEnvironment env;
    env.installHelper();
    env.platform.bundle = false;
    AwakeController c;
    c.start(KeepMode::timer, 30);
    c.stop("Reason.");
    EXPECT_TRUE(env.platform.notifications.empty());
    EXPECT_EQ(c.lastMessage(), "Reason.");
}

}  // namespace
}  // namespace duskwell
