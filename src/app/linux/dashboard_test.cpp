// The dashboard's decisions: which key does what on which page, how raw terminal input
// becomes keys, and how a frame is fitted into the window.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/popover_model.h"
#include "app/view_model_testing.h"
#include "core/awake_controller.h"
#include "dashboard.h"
#include "dashboard_keys.h"
#include "phone/qr_code.h"
#include "phone_server_prompt.h"
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
    EXPECT_EQ(decodeKeys("\x7f\x01\x08"),
              (std::vector<Key>{Key::special(Kind::backspace), Key::special(Kind::backspace)}));
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

// At 80x24 the subscribe code cannot share the settings page: r gives it the whole window,
// drawn at the size that fits, with the words beside it; Esc returns.
TEST_F(DashboardWithController, ThePhoneCodeHasAScreenOfItsOwnThatFits80x24) {
    c.setPhone(true);
    c.setScreen(Screen::settings);
    for (const std::string server : {"", "https://ntfy.example-home.net:8443"}) {
        SCOPED_TRACE(server.empty() ? "public server" : server);
        ASSERT_TRUE(c.setPhoneServer(server));
        DashboardView v = makeDashboardView(c, std::nullopt, false);
        EXPECT_EQ(commandForKey(v.bindings, Key::character('r'))->kind, Cmd::Kind::showCode);
        const std::string link = *v.popover.settings->phone.qrText;
        showCodePage(v);
        EXPECT_EQ(commandForKey(v.bindings, Key::special(Key::Kind::escape))->kind, Cmd::Kind::hideCode);
        EXPECT_EQ(commandForKey(v.bindings, Key::character('q'))->kind, Cmd::Kind::quit);
        EXPECT_FALSE(commandForKey(v.bindings, Key::character('m'))) << "the settings' keys rest meanwhile";

        int scroll = 0;
        const auto lines = renderDashboard(v, 80, 24, scroll);
        ASSERT_EQ(lines.size(), 24u);
        for (const auto& l : lines) EXPECT_LE(displayWidth(l), 79) << l;
        // The code is the drawing for 24 lines, whole, at the left of the window.
        const auto drawing = drawQrForTerminal(link, QrStyle::plain, 24);
        ASSERT_TRUE(drawing.has_value());
        std::size_t row = 0;
        for (std::size_t at = 0, end; (end = drawing->find('\n', at)) != std::string::npos; at = end + 1, ++row) {
            const std::string codeLine = drawing->substr(at, end - at);
            ASSERT_LT(row, lines.size());
            EXPECT_EQ(lines[row].substr(0, codeLine.size()), codeLine) << "row " << row;
        }
        EXPECT_NE(joined(lines).find("Esc back"), std::string::npos) << joined(lines);
    }
}

TEST_F(DashboardWithController, TheServerRowShowsTheServerAndTokenStateAndVAsksForThem) {
    c.setPhone(true);
    c.setScreen(Screen::settings);
    ASSERT_TRUE(c.setPhoneServer("https://ntfy.example.com"));
    ASSERT_TRUE(c.setPhoneToken("tk_hidden_value"));
    int scroll = 0;
    const DashboardView v = makeDashboardView(c, std::nullopt, false);
    const std::string frame = joined(renderDashboard(v, 120, 80, scroll));
    EXPECT_NE(frame.find("ntfy server — Access token set   https://ntfy.example.com   [v] Change"), std::string::npos)
        << frame;
    EXPECT_EQ(frame.find("tk_hidden_value"), std::string::npos);
    const auto action = actionFor(v.bindings, 'v');
    ASSERT_TRUE(action.has_value());
    EXPECT_TRUE(perform(c, *action).askPhoneServer);
}

// Keys typed into the server and token line, and what the dashboard is then asked to set.
TEST(PhoneServerPrompt, TakesTheServerThenTheTokenAndNeverShowsTheToken) {
    testing::TestEnvironment env;
    using R = PhoneServerPrompt::Result;
    const std::string publicServer = "https://ntfy.sh";
    struct Case {
        const char* what;
        std::string current;
        std::string typed;  // "\r" is Enter, "\x7f" Backspace, "\x1b" Esc
        R result;
        std::string server;
        std::optional<std::optional<std::string>> token;
    };
    const Case cases[] = {
        {"new server and token", publicServer, "https://ntfy.example.com\rtk_abc\r", R::done,
         "https://ntfy.example.com", std::optional<std::string>("tk_abc")},
        {"empty line: the public server, token kept", "https://old.example.com",
         std::string(23, '\x7f') + "\r\r", R::done, "", std::nullopt},
        {"the offered address kept, token removed", "https://old.example.com", "\r-\r", R::done,
         "https://old.example.com", std::optional<std::string>()},
        {"a path is refused and the line stays", publicServer, "https://x.example.com/p\r", R::editing, "",
         std::nullopt},
        {"corrected with Backspace", publicServer, "https://x.example.com/p\x7f\x7f\r\r", R::done,
         "https://x.example.com", std::nullopt},
        {"Esc cancels", publicServer, "https://x.example.com\rtk_abc\x1b", R::cancelled, "", std::nullopt},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        PhoneServerPrompt prompt(k.current, publicServer);
        R result = R::editing;
        std::string shown;
        for (const Key& key : decodeKeys(k.typed)) {
            result = prompt.feed(key);
            shown += prompt.line() + "\n";
            if (result != R::editing) break;
        }
        EXPECT_EQ(result, k.result);
        EXPECT_EQ(shown.find("tk_abc"), std::string::npos) << shown;
        if (result == R::editing) {
            EXPECT_NE(prompt.line().find("https://host[:port]"), std::string::npos);
        }
        if (result != R::done) continue;
        EXPECT_EQ(prompt.server(), k.server);
        EXPECT_EQ(prompt.tokenChange(), k.token);
    }
}

}  // namespace
}  // namespace duskwell
