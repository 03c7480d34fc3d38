#include "app/action.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "app/quick_menu_model.h"
#include "app/view_model_testing.h"
#include "core/app_config.h"
#include "core/calendar.h"
#include "core/settings_keys.h"
#include "testing/controller_fixture.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using namespace viewtest;
using K = Action::Kind;

// A controller whose helper is installed, so that starting changes the (fake) power settings.
class PerformAction : public testing::ControllerWithHelper {
protected:
    void SetUp() override { env.commands.clear(); }
    size_t lidOnRuns() const { return env.commands.linesContaining("lid-on").size(); }
    void resource(const std::string& name) {
        testing::writeFile(env.home.path() + "/" + name + "-resource", "#!/bin/sh\n");
        env.platform.resources[name] = env.home.path() + "/" + name + "-resource";
    }
};

Action menuAction(const AwakeController& c, const std::string& title) {
    for (const auto& item : makeQuickMenu(c)) {
        if (item.title == title && item.action) return *item.action;
    }
    ADD_FAILURE() << "no menu item " << title;
    return Action::make(K::openPopover);
}

TEST_F(PerformAction, APresetItemSelectsTimerRemembersTheMinutesAndStartsUntilAITasksFinishStartsAuto) {
    const Date t0 = c.now();
    perform(c, menuAction(c, "2h"));
    EXPECT_EQ(c.mode(), KeepMode::timer);
    EXPECT_EQ(c.selectedMinutes(), 120);
    EXPECT_EQ(env.settings.integer(SettingsKey::selectedMinutes), 120);
    EXPECT_EQ(c.activeMode(), KeepMode::timer);
    EXPECT_EQ(c.endDate(), addSeconds(t0, 7200));
    EXPECT_EQ(lidOnRuns(), 1u);
    c.stop();

    perform(c, menuAction(c, "Until AI tasks finish"));
    EXPECT_EQ(c.mode(), KeepMode::auto_);
    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(c.activeMode(), KeepMode::auto_);
    EXPECT_EQ(lidOnRuns(), 2u);
}

TEST_F(PerformAction, ToggleStartsWithTheSelectionAndStopsWithoutAReason) {
    c.setMode(KeepMode::timer);
    c.setSelectedMinutes(30);
    const Date t0 = c.now();
    perform(c, Action::make(K::toggle));
    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(c.endDate(), addSeconds(t0, 1800));
    env.power.lid = true;
    perform(c, Action::make(K::toggle));
    EXPECT_FALSE(c.isActive());
    EXPECT_FALSE(c.lastMessage().has_value()) << "a manual stop gives no reason";
    EXPECT_EQ(env.commands.linesContaining("lid-off").size(), 1u);
    EXPECT_TRUE(env.commands.linesContaining(AppConfig::sleepNowProgram()).empty()) << "nor sleeps, lid closed or not";
}

TEST_F(PerformAction, StopAndExtendItemsOfTheActiveMenu) {
    c.start(KeepMode::timer, 60);
    const Date end = *c.endDate();
    perform(c, menuAction(c, "Extend 30 min"));
    EXPECT_EQ(c.endDate(), addSeconds(end, 1800));
    perform(c, menuAction(c, "Extend 1 hour"));
    EXPECT_EQ(c.endDate(), addSeconds(end, 5400));
    perform(c, menuAction(c, "Stop"));
    EXPECT_FALSE(c.isActive());
    EXPECT_FALSE(c.lastMessage().has_value());
}

TEST_F(PerformAction, ModePickerTimerStartAndUntilApply) {
    perform(c, Action::selectMode(KeepMode::until));
    EXPECT_EQ(c.mode(), KeepMode::until);
    EXPECT_EQ(env.settings.integer(SettingsKey::mode), 2);
    EXPECT_FALSE(c.isActive()) << "choosing a mode starts nothing";

    // 09:00 chosen at 10:20 means tomorrow morning.
    perform(c, Action::untilTime(9, 0));
    EXPECT_EQ(Calendar::clockTime(c.untilDate()), "09:00");
    perform(c, Action::make(K::applyUntil));
    ASSERT_TRUE(c.isActive());
    EXPECT_EQ(c.activeMode(), KeepMode::until);
    ASSERT_TRUE(c.endDate().has_value());
    EXPECT_EQ(Calendar::clockTime(*c.endDate()), "09:00");
    EXPECT_GT(secondsBetween(c.now(), *c.endDate()), 22 * 3600.0);
    perform(c, Action::make(K::stop));

    c.setSelectedMinutes(45);
    const Date t0 = c.now();
    perform(c, Action::make(K::startTimer));
    EXPECT_EQ(c.activeMode(), KeepMode::timer);
    EXPECT_EQ(c.endDate(), addSeconds(t0, 45 * 60));
}

TEST_F(PerformAction, BusyStartsNothing) {
    Access::viewsSetBusy(c, true);
    perform(c, Action::preset(30));
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(lidOnRuns(), 0u);
}

TEST_F(PerformAction, BehaviourSwitchesAndTheBatteryGuardPersist) {
    perform(c, Action::toggleSwitch(K::setLockOnLidClose, false));
    perform(c, Action::toggleSwitch(K::setStopOnHeat, false));
    perform(c, Action::batteryFloor(0));
    perform(c, Action::toggleSwitch(K::setPerformance, false));
    EXPECT_EQ(env.settings.boolean(SettingsKey::lockOnLidClose), false);
    EXPECT_EQ(env.settings.boolean(SettingsKey::stopOnHeat), false);
    EXPECT_EQ(env.settings.integer(SettingsKey::batteryFloor), 0);
    EXPECT_FALSE(c.maxPerformance());
    EXPECT_EQ(env.settings.boolean(SettingsKey::maxPerformance), false);

    perform(c, Action::toggleSwitch(K::setLaunchAtLogin, true));
    EXPECT_TRUE(env.platform.loginItem);
    EXPECT_TRUE(c.launchAtLogin());
}

TEST_F(PerformAction, PhoneSwitchTestAndCopy) {
    perform(c, Action::toggleSwitch(K::setPhone, true));
    EXPECT_TRUE(c.phone().enabled());
    const size_t before = env.http.requests.size();
    perform(c, Action::make(K::phoneTest));
    ASSERT_EQ(env.http.requests.size(), before + 1);
    EXPECT_NE(env.http.requests.back().request.body.value_or("").find("tada"), std::string::npos);

    const auto out = perform(c, Action::make(K::copyLink));
    EXPECT_EQ(out.clipboard, c.phone().subscribeURL());
    EXPECT_NE(out.clipboard->find("/phone/#"), std::string::npos);
    perform(c, Action::toggleSwitch(K::setPhone, false));
    EXPECT_FALSE(c.phone().enabled());
}

TEST_F(PerformAction, InstallButtonsConnectTheHookCopyTheCommandAndAskForTheAdministrator) {
    std::filesystem::create_directories(env.home.path() + "/.claude");
    for (const char* name : {"duskwell-hook", "duskwell-cli", "duskwell-power"}) resource(name);
    perform(c, Action::connectAgent(AgentKind::claude));
    EXPECT_TRUE(c.integrated().at(AgentKind::claude)) << c.lastMessage().value_or("");
    perform(c, Action::integration(AgentKind::claude, false));
    EXPECT_FALSE(c.integrated().at(AgentKind::claude));

    ASSERT_FALSE(c.cliInstalled());
    perform(c, Action::make(K::installCLI));
    EXPECT_TRUE(c.cliInstalled()) << c.lastMessage().value_or("");

    perform(c, Action::make(K::reinstallHelper));
    EXPECT_EQ(env.platform.adminScripts.size(), 1u);
    c.start(KeepMode::timer, 60);
    ASSERT_TRUE(c.isActive());
    perform(c, Action::make(K::uninstallHelper));
    EXPECT_FALSE(c.isActive()) << "the period ends while the helper can still restore";
    EXPECT_EQ(env.platform.adminScripts.size(), 2u);
}

TEST_F(PerformAction, DisplayNotificationsUpdateAndWebsite) {
    perform(c, Action::make(K::turnOffDisplay));
    EXPECT_EQ(env.power.displaySleeps, 1);

    perform(c, Action::make(K::openWebsite));
    ASSERT_EQ(env.platform.openedURLs.size(), 1u);
    EXPECT_EQ(env.platform.openedURLs[0], AppConfig::website());

    perform(c, Action::make(K::openUpdate));
    EXPECT_EQ(env.platform.openedURLs.size(), 1u) << "no update known: nothing to open";
    Access::viewsSetUpdate(c, UpdateInfo{"9.9.9", "https://example.test/dl"});
    perform(c, Action::make(K::openUpdate));
    ASSERT_EQ(env.platform.openedURLs.size(), 2u);
    EXPECT_EQ(env.platform.openedURLs[1], "https://example.test/dl");

    perform(c, Action::make(K::openNotificationSettings));
#ifdef __APPLE__
    ASSERT_EQ(env.platform.openedURLs.size(), 3u);
    EXPECT_NE(env.platform.openedURLs[2].find("Notifications-Settings"), std::string::npos);
#else
    EXPECT_EQ(env.platform.openedURLs.size(), 2u) << "Linux desktops have no such pane to open";
#endif
}

TEST_F(PerformAction, ScreensFollowTheGearBackAndThePopoverClosing) {
    perform(c, Action::make(K::popoverOpened));
    EXPECT_TRUE(c.popoverVisible());
    perform(c, Action::make(K::openSettings));
    EXPECT_EQ(c.screen(), Screen::settings);
    perform(c, Action::make(K::back));
    EXPECT_EQ(c.screen(), Screen::main);
    perform(c, Action::make(K::openSettings));
    perform(c, Action::make(K::popoverClosed));
    EXPECT_EQ(c.screen(), Screen::main) << "the popover reopens on the main page";
    EXPECT_FALSE(c.popoverVisible());
    EXPECT_TRUE(perform(c, Action::make(K::openPopover)).showPopover);
}

TEST_F(PerformAction, QuitLeavesTheStopToTheTerminationPath) {
    c.start(KeepMode::auto_, std::nullopt);
    const auto out = perform(c, menuAction(c, "Quit Duskwell"));
    EXPECT_TRUE(out.terminate);
    EXPECT_TRUE(c.isActive()) << "stopped once, by shutdown, not twice";
    perform(c, Action::make(K::shutdown));
    EXPECT_FALSE(c.isActive());
    EXPECT_FALSE(c.lastMessage().has_value());
    EXPECT_EQ(env.commands.linesContaining("lid-off").size(), 1u);
}

}  // namespace
}  // namespace duskwell
