#include "app/status_item_model.h"

#include <gtest/gtest.h>

#include "app/view_model_testing.h"
#include "testing/fakes.h"
#include "testing/controller_fixture.h"

namespace duskwell {
namespace {

using StatusItemModel = testing::ControllerWithHelper;

using namespace viewtest;

TEST_F(StatusItemModel, IdleShowsTheMoonAloneWithTheIdleTooltip) {
    inEachLanguage([&](bool ko) {
        const auto m = makeStatusItemModel(c);
        EXPECT_EQ(m.symbol, "moon.stars");
        EXPECT_FALSE(m.title.has_value());
        EXPECT_EQ(m.tooltip, pick(ko, "Duskwell: Idle", "Duskwell: 대기 중"));
        EXPECT_EQ(m.accessibilityDescription, "Duskwell");
    });
}

TEST_F(StatusItemModel, ATimerShowsTheBoltAndItsRemainingTimeAfterOneSpace) {
    c.start(KeepMode::timer, 90);
    ASSERT_TRUE(c.isActive());
    inEachLanguage([&](bool ko) {
        const auto m = makeStatusItemModel(c);
        EXPECT_EQ(m.symbol, "bolt.fill");
        EXPECT_EQ(m.title, " 1:30");
        EXPECT_EQ(m.tooltip, pick(ko, "Duskwell: Running with the lid closed", "Duskwell: 뚜껑을 닫아도 계속 실행 중"));
    });
}

// The title's figures follow the menu-bar title, tested with the controller.
TEST_F(StatusItemModel, AutoShowsSparkles) {
    c.start(KeepMode::auto_, std::nullopt);
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::working, 2)}));
    EXPECT_EQ(makeStatusItemModel(c).symbol, "sparkles");
    EXPECT_EQ(makeStatusItemModel(c).title, " 2");
}

}  // namespace
}  // namespace duskwell
