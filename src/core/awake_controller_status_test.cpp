#include <gtest/gtest.h>

#include "core/awake_controller_test_support.h"
#include "core/localization.h"

namespace duskwell {
namespace {

using testing::TestEnvironment;
using Access = AwakeControllerTestAccess;

TEST(StatusTexts, ClocksRoundUpPickTheirUnitAndNeverShowANegativeOrBrokenFigure) {
    Locale::overrideForTesting(false);
    EXPECT_EQ(AwakeController::shortClock(0.2), "1s");
    EXPECT_EQ(AwakeController::shortClock(0), "0s");
    EXPECT_EQ(AwakeController::shortClock(59), "59s");
    EXPECT_EQ(AwakeController::shortClock(59.5), "1m");
    EXPECT_EQ(AwakeController::shortClock(60), "1m");
    EXPECT_EQ(AwakeController::shortClock(61), "2m");
    EXPECT_EQ(AwakeController::shortClock(3599), "60m");
    EXPECT_EQ(AwakeController::shortClock(3600), "1:00");
    EXPECT_EQ(AwakeController::shortClock(3725), "1:02");
    EXPECT_EQ(AwakeController::shortClock(36000 + 59 * 60 + 59), "10:59");
    EXPECT_EQ(AwakeController::shortClock(-12), "0s");
    EXPECT_EQ(AwakeController::shortClock(std::nan("")), "0s");
    EXPECT_EQ(AwakeController::longClock(59.1), "1:00");
    EXPECT_EQ(AwakeController::longClock(0), "0:00");
    EXPECT_EQ(AwakeController::longClock(605), "10:05");
    EXPECT_EQ(AwakeController::longClock(3599.5), "1:00:00");
    EXPECT_EQ(AwakeController::longClock(3661), "1:01:01");
    EXPECT_EQ(AwakeController::label(0), "Unlimited");
    EXPECT_EQ(AwakeController::label(1), "1m");
    EXPECT_EQ(AwakeController::label(45), "45m");
    EXPECT_EQ(AwakeController::label(60), "1h");
    EXPECT_EQ(AwakeController::label(90), "1h 30m");
    EXPECT_EQ(AwakeController::label(120), "2h");
    EXPECT_EQ(AwakeController::label(125), "2h 5m");

    Locale::overrideForTesting(true);    EXPECT_EQ(AwakeController::shortClock(0.2), "1s");
    EXPECT_EQ(AwakeController::shortClock(61), "2분");
    EXPECT_EQ(AwakeController::label(0), "무제한");
    EXPECT_EQ(AwakeController::label(30), "30분");
    EXPECT_EQ(AwakeController::label(120), "2시간");
    EXPECT_EQ(AwakeController::label(90), "1시간 30분");
    Locale::overrideForTesting(std::nullopt);
}

TEST(MenuBarTitle, FollowsTheModeAndTheAgents) {
    TestEnvironment env;
    env.installHelper();
    AwakeController c;
    EXPECT_EQ(c.menuBarTitle(), std::nullopt) << "idle: the icon alone";

    c.start(KeepMode::timer, 0);
    ASSERT_TRUE(c.isActive());
    EXPECT_EQ(c.menuBarTitle(), "∞");

    c.start(KeepMode::timer, 90);  // re-aim
    EXPECT_EQ(c.menuBarTitle(), "1:30");
    for (int i = 0; i < 31; ++i) env.dispatcher.tickSecond();
    EXPECT_EQ(c.menuBarTitle(), "1:29");

    c.start(KeepMode::auto_, std::nullopt);
    Access::completeScan(c, testing::snapshotOf({testing::agentItem(AgentKind::claude, AgentState::working),
                                                 testing::agentItem(AgentKind::codex, AgentState::working)}));
    EXPECT_EQ(c.menuBarTitle(), "2");
    Access::completeScan(c, testing::snapshotOf({testing::agentItem(AgentKind::claude, AgentState::waiting)}));
    EXPECT_EQ(c.menuBarTitle(), "AI") << "busy but nobody working";
    Access::completeScan(c, testing::snapshotOf({testing::agentItem(AgentKind::claude, AgentState::idle)}));
    EXPECT_EQ(c.menuBarTitle(), "10m") << "quiet: the countdown to sleep";
    c.stop();
}

}  // namespace
}  // namespace duskwell
