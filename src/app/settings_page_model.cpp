#include "app/settings_page_model.h"

#include <algorithm>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"
#include "integration/agent_integration.h"

namespace duskwell {
namespace {

using K = Action::Kind;

Button button(std::string title, std::string symbol, Action action, bool enabled = true,
              ButtonStyle style = ButtonStyle::plain) {
    return Button{std::move(title), std::move(symbol), action, enabled, style};
}

ToggleRow toggle(std::string symbol, std::string title, std::string subtitle, bool on, Action action,
                 bool enabled = true) {
    return ToggleRow{std::move(symbol), std::move(title), std::move(subtitle), on, action, enabled};
}

IntegrationSectionModel makeIntegration(const AwakeController& c) {
    IntegrationSectionModel s;
    s.title = T("에이전트 연동", "Agent integration");
    s.note = T("에이전트가 언제 시작하고 끝나는지 정확히 추적해요. 편집 전에 설정을 백업해요.",
               "Tracks exactly when agents start and finish. Settings are backed up before editing.");
    for (AgentKind kind : AgentKind::allCases()) {
        if (!kind.supportsHooks()) continue;
        const auto it = c.integrated().find(kind);
        const bool on = it != c.integrated().end() && it->second;
        const bool available = AgentIntegration::isAvailable(kind);
        IntegrationRowModel row;
        row.symbol = std::string(kind.symbol());
        row.tint = std::string(kind.tint());
        row.title = std::string(kind.title());
        if (on && AgentIntegration::awaitsTrust(kind)) {
            row.state = T("연결됨 · " + row.title + "에서 Trust를 선택하세요", "Connected · choose Trust in " + row.title);
        } else if (on && kind == AgentKind::opencode) {
            row.state = T("연결됨 · 플러그인", "Connected · plugin");
        } else if (on) {
            row.state = T("연결됨 · 훅", "Connected · hooks");
        } else if (!available) {
            row.state = T("설치되지 않음", "Not installed");
        } else {
            row.state = T("연결 안 됨 · 활동으로 추정", "Not connected · estimated from activity");
        }
        // An agent that is not set up on this Mac has no settings file to edit: its switch
        // can only be turned off (should a stale hook remain), never on.
        row.toggle = toggle(row.symbol, row.title, row.state, on, Action::integration(kind, !on), on || available);
        s.rows.push_back(std::move(row));
    }
    return s;
}

PhoneSectionModel makePhone(const AwakeController& c) {
    PhoneSectionModel s;
    const bool on = c.phone().enabled();
    s.toggle = toggle("iphone.gen3.radiowaves.left.and.right", T("폰 알림", "Phone alerts"), "", on,
                      Action::toggleSwitch(K::setPhone, !on));
    if (!on) return s;
    s.steps = {T("무료 ntfy 앱 설치", "Install the free ntfy app"), T("QR을 스캔해 구독", "Scan the QR to subscribe")};
    s.qrText = c.phone().subscribeURL();
    s.test = button(T("테스트", "Test"), "paperplane.fill", Action::make(K::phoneTest));
    s.copy = button(T("복사", "Copy"), "doc.on.doc", Action::make(K::copyLink));
    s.lastResult = c.phone().lastResult();
    s.features = {T("완료, 곧 잠자기, 중단", "Done, sleeping soon, stopped"),
                  T("알림에서 1시간 연장 또는 중단", "Extend 1h or stop from the alert")};
    s.server = InfoRowModel{"server.rack", T("ntfy 서버", "ntfy server"),
                            c.phone().hasToken() ? T("액세스 토큰 있음", "Access token set")
                                                 : T("액세스 토큰 없음", "No access token"),
                            c.phone().serverURL(), button(T("변경", "Change"), "", Action::make(K::editPhoneServer))};
    return s;
}

BehaviorSectionModel makeBehavior(const AwakeController& c) {
    BehaviorSectionModel s;
    s.title = T("동작", "Behavior");
    s.toggles.push_back(toggle("gauge.with.dots.needle.67percent", T("최대 성능", "Max performance"),
                               TP("실행 중에는 저전력 모드를 꺼요", "Disables Low Power Mode while running",
                                  "실행 중에는 절전 프로필을 꺼요", "Leaves the power-saver profile while running"),
                               c.maxPerformance(), Action::toggleSwitch(K::setPerformance, !c.maxPerformance())));
    s.toggles.push_back(toggle("lock.fill", T("뚜껑을 닫으면 잠금", "Lock when lid closes"),
                               T("열면 잠금 화면이 보여요", "Shows the lock screen when opened"), c.lockOnLidClose(),
                               Action::toggleSwitch(K::setLockOnLidClose, !c.lockOnLidClose())));
    s.toggles.push_back(toggle("flame.fill", T("과열 보호", "Heat protection"),
                               T("너무 뜨거워지면 멈추고 잠들어요", "Stops and sleeps if it gets too hot"),
                               c.stopOnHeat(), Action::toggleSwitch(K::setStopOnHeat, !c.stopOnHeat())));
    s.toggles.push_back(toggle("power", T("로그인 시 열기", "Open at login"),
                               TP("메뉴 막대에서 시작해요", "Starts in the menu bar", "로그인하면 백그라운드에서 시작해요",
                                  "Starts in the background when you log in"),
                               c.launchAtLogin(),
                               Action::toggleSwitch(K::setLaunchAtLogin, !c.launchAtLogin())));
    s.batterySymbol = "battery.25";
    s.batteryTitle = T("배터리 보호", "Battery guard");
    s.batterySubtitle = T("이 수준 아래로 내려가면 멈추고 잠들어요", "Stops and sleeps below this level");
    std::vector<int> values = batteryFloorChoices();
    // A floor set elsewhere (an older version, the settings file) still shows as selected.
    if (std::find(values.begin(), values.end(), c.batteryFloor()) == values.end() && c.batteryFloor() > 0) {
        values.insert(std::upper_bound(values.begin(), values.end(), c.batteryFloor()), c.batteryFloor());
    }
    for (int v : values) {
        s.batteryOptions.push_back({v == 0 ? T("끔", "Off") : std::to_string(v) + "%", v, Action::batteryFloor(v)});
    }
    s.batterySelected = c.batteryFloor();
    return s;
}

ShortcutSectionModel makeShortcuts(const AwakeController& c) {
    ShortcutSectionModel s;
    s.title = T("단축키와 자동화", "Shortcuts & automation");
    s.note = TM("긴 작업 전에 에이전트에게 `duskwell start`를 실행하라고 하세요 — {machine:을} 깨워 두고 끝나면 재워요.",
                "Tell your agent to run `duskwell start` before long tasks — it keeps your {machine} awake and "
                "sleeps when done.");
    // duskwelld has no system-wide hot key; its dashboard toggles with the space bar.
    const bool mac = Machine::isMac();
    s.hotKey = mac ? InfoRowModel{"command", T("토글 단축키", "Toggle shortcut"), T("어디서나 작동", "Works anywhere"),
                                  "⌥⌘L", std::nullopt}
                   : InfoRowModel{"command", T("토글 단축키", "Toggle shortcut"),
                                  T("대시보드에서 작동", "Works in the dashboard"), "space", std::nullopt};
    const bool installed = c.cliInstalled();
    s.terminal = {"terminal.fill", T("터미널 명령", "Terminal command"),
                  T("`duskwell start`로 제어", "Control with `duskwell start`"), "duskwell start · stop · status",
                  button(installed ? T("다시 설치", "Reinstall") : T("설치", "Install"), "terminal.fill",
                         Action::make(K::installCLI), !c.busy())};
    return s;
}

PermissionSectionModel makePermissions(const AwakeController& c) {
    PermissionSectionModel s;
    s.title = T("권한", "Permissions");
    s.note = T("암호로 한 번 설치하는 작은 도우미가 정해진 전원 설정만 바꿔요.",
               "A tiny helper installed once with your password changes only specific power settings.");
    // Installing and removing the helper ask for the administrator's password: never two at once.
    const bool enabled = !c.busy();
    if (c.helperInstalled()) {
        s.power = {"bolt.shield.fill", T("전원 제어", "Power control"), "", T("설치됨", "Installed"),
                   button(T("제거", "Remove"), "", Action::make(K::uninstallHelper), enabled, ButtonStyle::destructive)};
    } else {
        s.power = {"bolt.shield.fill", T("전원 제어", "Power control"), "",
                   T("필요 · 처음 시작할 때 요청", "Required · asked on first start"),
                   button(T("설치", "Install"), "", Action::make(K::reinstallHelper), enabled, ButtonStyle::prominent)};
    }
    // Permission not asked yet reads as off: nothing will be shown until the user allows it.
    // Linux desktops have no notification settings pane to open: the button stays disabled.
    const bool mac = Machine::isMac();
    s.notifications = {"bell.fill", TP("Mac 알림", "Mac notifications", "데스크톱 알림", "Desktop notifications"),
                       "", c.notificationsAllowed().value_or(false) ? T("허용됨", "Allowed") : T("꺼짐", "Off"),
                       button(T("열기", "Open"), "", Action::make(K::openNotificationSettings), mac)};
    return s;
}

}  // namespace

const std::vector<int>& batteryFloorChoices() {
    static const std::vector<int> values{0, 5, 10, 15, 20, 30};
    return values;
}

SettingsPageModel makeSettingsPage(const AwakeController& c) {
    SettingsPageModel page;
    page.title = T("설정", "Settings");
    page.back = button(T("뒤로", "Back"), "chevron.left", Action::make(K::back));
    page.integration = makeIntegration(c);
    page.phone = makePhone(c);
    page.behavior = makeBehavior(c);
    page.shortcuts = makeShortcuts(c);
    page.permissions = makePermissions(c);
    page.message = c.lastMessage();
    page.website = button(T("웹사이트", "Website"), "safari", Action::make(K::openWebsite));
    page.quit = button(T("종료", "Quit"), "", Action::make(K::quit));
    return page;
}

}  // namespace duskwell
