#include "app/settings_page_model.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "app/main_page_model.h"
#include "app/view_model_testing.h"
#include "testing/fakes.h"
#include "testing/controller_fixture.h"

namespace duskwell {
namespace {

using SettingsPageModel = testing::ControllerTest;

using namespace viewtest;
using K = Action::Kind;

TEST_F(SettingsPageModel, HelperMissingAsksForThePermissionWithAnInstallButton) {
    Access::viewsSetHelperInstalled(c, false);
    inEachLanguage([&](bool ko) {
        const auto p = makeSettingsPage(c);
        EXPECT_EQ(p.title, pick(ko, "Settings", "설정"));
        EXPECT_EQ(p.back.title, pick(ko, "Back", "뒤로"));
        EXPECT_EQ(p.back.action, Action::make(K::back));
        EXPECT_EQ(p.permissions.title, pick(ko, "Permissions", "권한"));
        EXPECT_EQ(p.permissions.power.title, pick(ko, "Power control", "전원 제어"));
        EXPECT_EQ(p.permissions.power.value, pick(ko, "Required · asked on first start", "필요 · 처음 시작할 때 요청"));
        ASSERT_TRUE(p.permissions.power.button.has_value());
        EXPECT_EQ(p.permissions.power.button->title, pick(ko, "Install", "설치"));
        EXPECT_EQ(p.permissions.power.button->action, Action::make(K::reinstallHelper));
        EXPECT_TRUE(p.permissions.power.button->enabled);
    });
    Access::viewsSetHelperInstalled(c, true);
    inEachLanguage([&](bool ko) {
        const auto p = makeSettingsPage(c);
        EXPECT_EQ(p.permissions.power.value, pick(ko, "Installed", "설치됨"));
        EXPECT_EQ(p.permissions.power.button->title, pick(ko, "Remove", "제거"));
        EXPECT_EQ(p.permissions.power.button->action, Action::make(K::uninstallHelper));
        EXPECT_EQ(p.permissions.power.button->style, ButtonStyle::destructive);
    });
}

TEST_F(SettingsPageModel, BusyDisablesThePrivilegedButtonsOnly) {
    Access::viewsSetBusy(c, true);
    auto p = makeSettingsPage(c);
    EXPECT_FALSE(p.permissions.power.button->enabled);
    EXPECT_FALSE(p.shortcuts.terminal.button->enabled);
    Machine::overrideForTesting(Machine::Kind::mac);
    EXPECT_TRUE(makeSettingsPage(c).permissions.notifications.button->enabled) << "opening a pane needs no password";
    Machine::overrideForTesting(Machine::Kind::computer);
    for (const auto& t : p.behavior.toggles) EXPECT_TRUE(t.enabled) << t.title;
    Access::viewsSetHelperInstalled(c, true);
    EXPECT_FALSE(makeSettingsPage(c).permissions.power.button->enabled) << "Remove waits too";

    Access::viewsSetBusy(c, false);
    p = makeSettingsPage(c);
    EXPECT_TRUE(p.permissions.power.button->enabled);
    EXPECT_TRUE(p.shortcuts.terminal.button->enabled);
}

TEST_F(SettingsPageModel, IntegrationRowsForHookAgentsWithTheirThreeStates) {
    Access::viewsSetIntegrated(c, AgentKind::claude, true);
    Access::viewsSetIntegrated(c, AgentKind::codex, false);
    inEachLanguage([&](bool ko) {
        const auto s = makeSettingsPage(c).integration;
        EXPECT_EQ(s.title, pick(ko, "Agent integration", "에이전트 연동"));
        EXPECT_EQ(s.note, pick(ko, "Tracks exactly when agents start and finish. Settings are backed up before editing.",
                               "에이전트가 언제 시작하고 끝나는지 정확히 추적해요. 편집 전에 설정을 백업해요."));
        ASSERT_EQ(s.rows.size(), 4u);
        EXPECT_EQ(s.rows[2].title, "Gemini CLI");
        EXPECT_EQ(s.rows[3].title, "OpenCode");
        EXPECT_EQ(s.rows[0].title, "Claude Code");
        EXPECT_EQ(s.rows[0].state, pick(ko, "Connected · hooks", "연결됨 · 훅"));
        EXPECT_TRUE(s.rows[0].toggle.on);
        EXPECT_EQ(s.rows[0].toggle.action, Action::integration(AgentKind::claude, false));
        EXPECT_EQ(s.rows[1].title, "Codex");
        // Codex is not set up in the temporary home.
        EXPECT_EQ(s.rows[1].state, pick(ko, "Not installed", "설치되지 않음"));
        EXPECT_FALSE(s.rows[1].toggle.on);
        EXPECT_FALSE(s.rows[1].toggle.enabled);
    });
    // Installed but not connected: estimated from activity, and the switch connects it.
    std::filesystem::create_directories(env.home.path() + "/.codex");
    const auto row = makeSettingsPage(c).integration.rows.at(1);
    EXPECT_EQ(row.state, "Not connected · estimated from activity");
    EXPECT_TRUE(row.toggle.enabled);
    EXPECT_EQ(row.toggle.action, Action::integration(AgentKind::codex, true));
    // OpenCode is connected through a plugin, not hooks.
    Access::viewsSetIntegrated(c, AgentKind::opencode, true);
    inEachLanguage([&](bool ko) {
        EXPECT_EQ(makeSettingsPage(c).integration.rows.at(3).state, pick(ko, "Connected · plugin", "연결됨 · 플러그인"));
    });
}

TEST_F(SettingsPageModel, PhoneSectionShowsItsStepsOnlyWhileEnabled) {
    auto s = makeSettingsPage(c).phone;
    EXPECT_EQ(s.toggle.title, "Phone alerts");
    EXPECT_FALSE(s.toggle.on);
    EXPECT_EQ(s.toggle.action, Action::toggleSwitch(K::setPhone, true));
    EXPECT_TRUE(s.steps.empty());
    EXPECT_FALSE(s.qrText.has_value());
    EXPECT_FALSE(s.test.has_value());

    c.phone().setEnabled(true);
    inEachLanguage([&](bool ko) {
        s = makeSettingsPage(c).phone;
        EXPECT_TRUE(s.toggle.on);
        EXPECT_EQ(s.toggle.action, Action::toggleSwitch(K::setPhone, false));
        EXPECT_EQ(s.steps, ko ? (std::vector<std::string>{"무료 ntfy 앱 설치", "QR을 스캔해 구독"})
                              : (std::vector<std::string>{"Install the free ntfy app", "Scan the QR to subscribe"}));
        EXPECT_EQ(s.qrText, c.phone().subscribeURL());
        EXPECT_EQ(s.test->action, Action::make(K::phoneTest));
        EXPECT_EQ(s.copy->action, Action::make(K::copyLink));
        EXPECT_EQ(s.features, ko ? (std::vector<std::string>{"완료, 곧 잠자기, 중단", "알림에서 1시간 연장 또는 중단"})
                                 : (std::vector<std::string>{"Done, sleeping soon, stopped", "Extend 1h or stop from the alert"}));
    });
}

TEST_F(SettingsPageModel, BehaviorSwitchesShowTheSettingsAndCarryTheNewValue) {
    c.setStopOnHeat(false);
    inEachLanguage([&](bool ko) {
        const auto b = makeSettingsPage(c).behavior;
        EXPECT_EQ(b.title, pick(ko, "Behavior", "동작"));
        ASSERT_EQ(b.toggles.size(), 4u);
        EXPECT_EQ(b.toggles[0].title, pick(ko, "Max performance", "최대 성능"));
        EXPECT_TRUE(b.toggles[0].on);
        EXPECT_EQ(b.toggles[0].action, Action::toggleSwitch(K::setPerformance, false));
        EXPECT_EQ(b.toggles[1].title, pick(ko, "Lock when lid closes", "뚜껑을 닫으면 잠금"));
        EXPECT_EQ(b.toggles[2].title, pick(ko, "Heat protection", "과열 보호"));
        EXPECT_FALSE(b.toggles[2].on);
        EXPECT_EQ(b.toggles[2].action, Action::toggleSwitch(K::setStopOnHeat, true));
        EXPECT_EQ(b.toggles[3].title, pick(ko, "Open at login", "로그인 시 열기"));
        EXPECT_EQ(b.batteryTitle, pick(ko, "Battery guard", "배터리 보호"));
        EXPECT_EQ(b.batteryOptions.front().title, pick(ko, "Off", "끔"));
        EXPECT_EQ(b.batteryOptions.front().action, Action::batteryFloor(0));
        EXPECT_EQ(b.batterySelected, 10);
    });
    // A floor that is not among the choices still shows, in order.
    c.setBatteryFloor(25);
    std::vector<int> values;
    for (const auto& o : makeSettingsPage(c).behavior.batteryOptions) values.push_back(o.value);
    EXPECT_EQ(values, (std::vector<int>{0, 5, 10, 15, 20, 25, 30}));
}

TEST_F(SettingsPageModel, ShortcutsNotificationsMessageAndBottomRow) {
    Access::viewsSetNotificationsAllowed(c, std::nullopt);
    inEachLanguage([&](bool ko) {
        const auto p = makeSettingsPage(c);
        EXPECT_EQ(p.shortcuts.title, pick(ko, "Shortcuts & automation", "단축키와 자동화"));
        EXPECT_EQ(p.shortcuts.hotKey.value, "space") << "duskwelld toggles from its dashboard";
        EXPECT_FALSE(p.permissions.notifications.button->enabled) << "no settings pane to open on Linux";
        EXPECT_EQ(p.shortcuts.terminal.value, "duskwell start · stop · status");
        EXPECT_EQ(p.shortcuts.terminal.button->title, pick(ko, "Install", "설치"));
        EXPECT_EQ(p.shortcuts.terminal.button->action, Action::make(K::installCLI));
        EXPECT_EQ(p.permissions.notifications.value, pick(ko, "Off", "꺼짐"));
        EXPECT_EQ(p.permissions.notifications.button->action, Action::make(K::openNotificationSettings));
        EXPECT_FALSE(p.message.has_value());
        EXPECT_EQ(p.website.action, Action::make(K::openWebsite));
        EXPECT_EQ(p.quit.action, Action::make(K::quit));
    });
    Access::viewsSetNotificationsAllowed(c, true);
    c.setLastMessage("Couldn't change power settings.");
    const auto p = makeSettingsPage(c);
    EXPECT_EQ(p.permissions.notifications.value, "Allowed");
    EXPECT_EQ(p.message, "Couldn't change power settings.");
}

// Every text that names the machine or a platform's power feature, in both languages, as
// the Mac app and as duskwelld show it.
TEST_F(SettingsPageModel, MachineTextsSayMacOnlyOnTheMac) {
    struct Row {
        Machine::Kind kind;
        bool ko;
        const char* note;  // the shortcuts note, which names the machine mid-sentence
        const char* performance;
        const char* login;
        const char* notifications;
        const char* hotKey;
        const char* untilCaption;
    };
    const Row rows[] = {
        {Machine::Kind::mac, false,
         "Tell your agent to run `duskwell start` before long tasks — it keeps your Mac awake and sleeps when done.",
         "Disables Low Power Mode while running", "Starts in the menu bar", "Mac notifications", "⌥⌘L",
         "Then your Mac sleeps"},
        {Machine::Kind::mac, true,
         "긴 작업 전에 에이전트에게 `duskwell start`를 실행하라고 하세요 — Mac을 깨워 두고 끝나면 재워요.",
         "실행 중에는 저전력 모드를 꺼요", "메뉴 막대에서 시작해요", "Mac 알림", "⌥⌘L", "그다음 Mac이 잠들어요"},
        {Machine::Kind::computer, false,
         "Tell your agent to run `duskwell start` before long tasks — it keeps your computer awake and sleeps when "
         "done.",
         "Leaves the power-saver profile while running", "Starts in the background when you log in",
         "Desktop notifications", "space", "Then your computer sleeps"},
        {Machine::Kind::computer, true,
         "긴 작업 전에 에이전트에게 `duskwell start`를 실행하라고 하세요 — 컴퓨터를 깨워 두고 끝나면 재워요.",
         "실행 중에는 절전 프로필을 꺼요", "로그인하면 백그라운드에서 시작해요", "데스크톱 알림", "space",
         "그다음 컴퓨터가 잠들어요"},
    };
    c.setMode(KeepMode::until);
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.kind == Machine::Kind::mac ? "mac " : "computer ") + (r.ko ? "ko" : "en"));
        Machine::overrideForTesting(r.kind);
        Locale::overrideForTesting(r.ko);
        const auto p = makeSettingsPage(c);
        EXPECT_EQ(p.shortcuts.note, r.note);
        EXPECT_EQ(p.behavior.toggles[0].subtitle, r.performance);
        EXPECT_EQ(p.behavior.toggles[3].subtitle, r.login);
        EXPECT_EQ(p.permissions.notifications.title, r.notifications);
        EXPECT_EQ(p.permissions.notifications.button->enabled, r.kind == Machine::Kind::mac);
        EXPECT_EQ(p.shortcuts.hotKey.value, r.hotKey);
        const auto main = makeMainPage(c);
        ASSERT_TRUE(main.until.has_value());
        EXPECT_EQ(main.until->caption, r.untilCaption);
    }
    Locale::overrideForTesting(false);
    Machine::overrideForTesting(Machine::Kind::computer);
}

}  // namespace
}  // namespace duskwell
