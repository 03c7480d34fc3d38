// The dashboard's decisions: which key does what on which page, how raw terminal input
// becomes keys, and how a frame is fitted into the window.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/popover_model.h"
#include "app/view_model_testing.h"
#include "core/awake_controller.h"
#include "dashboard.h"
#include "dashboard_keys.h"
#include "terminal_text.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using K = Action::Kind;
using Cmd = DashboardCommand;

std::optional<Action> actionFor(const std::vector<KeyBinding>& b, Key key) {
    auto c = commandForKey(b, key);
    if (!c || c->kind != Cmd::Kind::perform) return std::nullopt;
    return c->action;
}
std::optional<Action> actionFor(const std::vector<KeyBinding>& b, char ch) { return actionFor(b, Key::character(ch)); }

TEST(DashboardKeys, DecodesPrintablesEnterEscAndArrows) {
    using Kind = Key::Kind;
    EXPECT_EQ(decodeKeys("a q"), (std::vector<Key>{Key::character('a'), Key::character(' '), Key::character('q')}));
    EXPECT_EQ(decodeKeys("\r\n"), (std::vector<Key>{Key::special(Kind::enter)}));
    EXPECT_EQ(decodeKeys("\x1b"), (std::vector<Key>{Key::special(Kind::escape)}));
    EXPECT_EQ(decodeKeys("\x1b[A\x1bOB"), (std::vector<Key>{Key::special(Kind::up), Key::special(Kind::down)}));
    // Sequences we do not bind vanish whole instead of leaking their letters as keys.
    EXPECT_EQ(decodeKeys("\x1b[1;5Cs"), (std::vector<Key>{Key::character('s')}));
    EXPECT_EQ(decodeKeys("\x1b[15~"), std::vector<Key>{});
    EXPECT_EQ(decodeKeys("\x1bq"), std::vector<Key>{});  // Alt+q is not q
    EXPECT_EQ(decodeKeys("\x7f\x01"), std::vector<Key>{});
}

class DashboardWithController : public ::testing::Test {
protected:
    testing::TestEnvironment env;
    AwakeController c;

    // The bindings the running dashboard uses for the controller's current state.
    std::vector<KeyBinding> bindings() { return makeDashboardView(c, std::nullopt, false).bindings; }
};

TEST_F(DashboardWithController, IdleMainPageBindsTheHeroButtonModesSettingsPhoneAndQuit) {
    const auto b = bindings();
    EXPECT_EQ(actionFor(b, ' '), Action::make(K::toggle));
    EXPECT_EQ(actionFor(b, 'a'), Action::selectMode(KeepMode::auto_));
    EXPECT_EQ(actionFor(b, 't'), Action::selectMode(KeepMode::timer));
    EXPECT_EQ(actionFor(b, 'u'), Action::selectMode(KeepMode::until));
    EXPECT_EQ(actionFor(b, 's'), Action::make(K::openSettings));
    EXPECT_EQ(actionFor(b, 'p'), Action::toggleSwitch(K::setPhone, true));  // off now: p turns it on
    EXPECT_EQ(commandForKey(b, Key::character('q'))->kind, Cmd::Kind::quit);
    // Idle: no extend row; auto mode: no preset chips.
    EXPECT_FALSE(commandForKey(b, Key::character('+')));
    EXPECT_FALSE(commandForKey(b, Key::character('1')));
    // Privileged controls have no key while busy; quitting always works.
    viewtest::Access::viewsSetBusy(c, true);
    EXPECT_FALSE(commandForKey(bindings(), Key::character(' ')));
    EXPECT_EQ(commandForKey(bindings(), Key::character('q'))->kind, Cmd::Kind::quit);
}

TEST_F(DashboardWithController, SettingsPageBindsBackSwitchesHelperAndBatteryGuard) {
    c.setScreen(Screen::settings);
    c.setBatteryFloor(10);
    auto b = bindings();
    EXPECT_EQ(actionFor(b, Key::special(Key::Kind::escape)), Action::make(K::back));
    EXPECT_EQ(actionFor(b, 'b'), Action::make(K::back));
    EXPECT_EQ(actionFor(b, 'm'), Action::toggleSwitch(K::setPerformance, !c.maxPerformance()));
    EXPECT_EQ(actionFor(b, 'l'), Action::toggleSwitch(K::setLockOnLidClose, !c.lockOnLidClose()));
    EXPECT_EQ(actionFor(b, 'h'), Action::toggleSwitch(K::setStopOnHeat, !c.stopOnHeat()));
    EXPECT_EQ(actionFor(b, 'o'), Action::toggleSwitch(K::setLaunchAtLogin, !c.launchAtLogin()));
    EXPECT_EQ(actionFor(b, 'w'), Action::make(K::reinstallHelper));  // not installed: Install
    // An agent that is not set up here has a disabled switch, and so no key.
    EXPECT_FALSE(commandForKey(b, Key::character('1')));
    std::filesystem::create_directories(env.home.path() + "/.claude");
    b = bindings();
    EXPECT_EQ(actionFor(b, '1'), Action::integration(AgentKind::claude, true));
    EXPECT_FALSE(commandForKey(b, Key::character(' ')));  // the main page's keys are gone

    // The battery guard steps to its neighbours.
    const auto& choices = batteryFloorChoices();
    const auto at = std::find(choices.begin(), choices.end(), 10) - choices.begin();
    ASSERT_GT(at, 0);
    EXPECT_EQ(actionFor(b, '['), Action::batteryFloor(choices[static_cast<std::size_t>(at - 1)]));
    EXPECT_EQ(actionFor(b, ']'), Action::batteryFloor(choices[static_cast<std::size_t>(at + 1)]));

    viewtest::Access::viewsSetHelperInstalled(c, true);
    b = bindings();
    EXPECT_EQ(actionFor(b, 'w'), Action::make(K::uninstallHelper));  // installed: Remove
    // No notification settings to open here, but n still answers (with a notice).
    EXPECT_EQ(actionFor(b, 'n'), Action::make(K::openNotificationSettings));
}

TEST(DashboardKeys, UntilPickerStepsToTheNeighbouringQuarterHours) {
    testing::TestEnvironment env;  // the footer texts pick a language
    PopoverModel m;
    m.screen = Screen::main;
    m.main.emplace();
    m.main->until.emplace();
    auto shifted = [&](int h, int min, char key) {
        m.main->until->hour = h;
        m.main->until->minute = min;
        return actionFor(keyBindings(m, Action{}), key);
    };
    EXPECT_EQ(shifted(10, 0, ']'), Action::untilTime(10, 15));
    EXPECT_EQ(shifted(10, 7, ']'), Action::untilTime(10, 15));
    EXPECT_EQ(shifted(10, 7, '['), Action::untilTime(10, 0));
    EXPECT_EQ(shifted(10, 0, '['), Action::untilTime(9, 45));
    EXPECT_EQ(shifted(0, 0, '['), Action::untilTime(23, 45));
    EXPECT_EQ(shifted(23, 50, ']'), Action::untilTime(0, 0));
    EXPECT_EQ(actionFor(keyBindings(m, Action{}), Key::special(Key::Kind::enter)), m.main->until->apply.action);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const auto& l : lines) all += l + "\n";
    return all;
}

TEST_F(DashboardWithController, FrameFillsTheWindowExactlyWithTheKeyMapAtTheBottom) {
    int scroll = 0;
    for (auto [w, h] : {std::pair{80, 24}, std::pair{40, 12}, std::pair{120, 50}}) {
        const auto lines = renderDashboard(makeDashboardView(c, welcomeText(), false), w, h, scroll);
        ASSERT_EQ(static_cast<int>(lines.size()), h);
        for (const auto& l : lines) EXPECT_LE(displayWidth(l), w) << l;
        EXPECT_NE(lines.back().find("quit"), std::string::npos) << joined(lines);
        EXPECT_NE(lines.front().find("Duskwell"), std::string::npos);
    }
}

TEST_F(DashboardWithController, TallSettingsPageScrollsAndSaysThereIsMore) {
    c.setScreen(Screen::settings);
    const DashboardView v = makeDashboardView(c, std::nullopt, false);
    int scroll = 0;
    const std::string top = joined(renderDashboard(v, 80, 16, scroll));
    EXPECT_NE(top.find("more below"), std::string::npos) << top;
    EXPECT_EQ(top.find("Permissions"), std::string::npos);
    scroll = 1000;  // clamped to the last page
    const std::string bottom = joined(renderDashboard(v, 80, 16, scroll));
    EXPECT_LT(scroll, 1000);
    EXPECT_GT(scroll, 0);
    EXPECT_NE(bottom.find("Permissions"), std::string::npos) << bottom;
    EXPECT_EQ(bottom.find("more below"), std::string::npos);
}

// Presets sit on the digits and show them beside their chips; the key map names exactly
// the digits there are, and 0 is no limit.
TEST_F(DashboardWithController, TimerPresetsAreDigitsShownBesideTheChipsAndCountedInTheKeyMap) {
    c.setMode(KeepMode::timer);
    const DashboardView v = makeDashboardView(c, welcomeText(), false);
    const auto& presets = AwakeController::presets();
    EXPECT_EQ(actionFor(v.bindings, '1'), Action::preset(presets[0]));
    EXPECT_EQ(actionFor(v.bindings, '0'), Action::preset(0));
    EXPECT_FALSE(commandForKey(v.bindings, Key::character(static_cast<char>('1' + presets.size()))));
    int scroll = 0;
    const std::string frame = joined(renderDashboard(v, 100, 40, scroll));
    for (const std::string shown : {"[1] 30m", "[0] ∞", "[space] Start", "Welcome to Duskwell"})
        EXPECT_NE(frame.find(shown), std::string::npos) << shown << "\n" << frame;
    EXPECT_NE(frame.find("1-" + std::to_string(presets.size()) + "/0 presets"), std::string::npos) << frame;
    c.setScreen(Screen::settings);
    EXPECT_FALSE(makeDashboardView(c, welcomeText(), false).welcome.has_value());
}

}  // namespace
}  // namespace duskwell
