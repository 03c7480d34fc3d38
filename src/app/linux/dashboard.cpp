#include "dashboard.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"
#include "app/settings_page_model.h"
#include "phone/qr_code.h"
#include "terminal_text.h"

namespace duskwell {
namespace {

struct Style {
    bool color;
    std::string bold(const std::string& s) const { return color ? "\x1b[1m" + s + "\x1b[0m" : s; }
    std::string dim(const std::string& s) const { return color ? "\x1b[2m" + s + "\x1b[0m" : s; }
    std::string inverse(const std::string& s) const { return color ? "\x1b[7m" + s + "\x1b[0m" : s; }
};

// Terminal stand-ins for the symbols the models name.
std::string glyph(const std::string& symbol) {
    if (symbol == "sparkles") return "✦";
    if (symbol == "bolt.fill") return "⚡";
    if (symbol == "moon.stars" || symbol == "moon.stars.fill") return "☾";
    return "";
}

std::string keyed(const std::vector<KeyBinding>& bindings, const Action& action, const std::string& title) {
    if (auto key = keyLabelFor(bindings, action)) return "[" + *key + "] " + title;
    return title;
}

std::string box(bool on) { return on ? "[x]" : "[ ]"; }

std::string ringBar(double progress, int cells) {
    const int filled = std::clamp(static_cast<int>(std::lround(progress * cells)), 0, cells);
    std::string s;
    for (int i = 0; i < cells; ++i) s += i < filled ? "█" : "░";
    return s;
}

void mainPage(const DashboardView& v, const MainPageModel& m, const Style& st, std::vector<std::string>& out) {
    const auto& b = v.bindings;
    out.push_back(st.bold(m.header.name) + " · " + m.header.tagline);
    if (v.welcome) out.push_back(st.inverse(" " + *v.welcome + " "));
    out.push_back("");

    // Hero card.
    const auto& h = m.hero;
    std::string ring = h.ring.text.empty() ? glyph(h.ring.symbol) : h.ring.text;
    if (!h.ring.text.empty() && !h.ring.symbol.empty()) ring = glyph(h.ring.symbol) + " " + ring;
    if (!h.ring.caption.empty()) ring += " " + h.ring.caption;
    out.push_back(st.bold(h.headline) + "   " + ring);
    out.push_back(h.detail);
    out.push_back(ringBar(h.ring.progress, 30) + " " + std::to_string(static_cast<int>(std::lround(h.ring.progress * 100))) + "%");
    std::string buttons = keyed(b, h.mainButton.action, st.bold(h.mainButton.title));
    for (const auto& e : h.extendRow) buttons += "   " + keyed(b, e.action, e.title);
    out.push_back(buttons);
    out.push_back("");

    // Mode picker.
    std::string modes = T("모드: ", "Mode: ");
    for (const auto& seg : m.modePicker) {
        const std::string t = keyed(b, seg.action, seg.title);
        modes += (seg.selected ? st.inverse(" " + t + " ") : " " + t + " ") + " ";
    }
    out.push_back(modes);
    out.push_back("");

    // The mode's card.
    if (m.agents) {
        const auto& a = *m.agents;
        for (const auto& row : a.rows) {
            std::string line = "  " + row.title;
            if (row.count) line += " ×" + *row.count;
            line += " — " + row.subtitle + "  [" + row.status.text + "]";
            out.push_back(line);
        }
        if (a.more) out.push_back("  " + *a.more);
        if (a.emptyTitle) out.push_back("  " + *a.emptyTitle);
        if (a.emptyDetail) out.push_back("  " + st.dim(*a.emptyDetail));
        if (a.hint) out.push_back("  " + a.hint->text + "  " + keyed(b, a.hint->connect.action, a.hint->connect.title));
        out.push_back("  " + st.dim(a.footText + " · " + a.cap));
    }
    if (m.timer) {
        std::string chips = " ";
        for (const auto& chip : m.timer->chips) {
            const std::string t = keyed(b, chip.action, chip.title);
            chips += (chip.selected ? st.inverse(" " + t + " ") : " " + t + " ") + " ";
        }
        out.push_back(chips);
    }
    if (m.until) {
        const auto& u = *m.until;
        out.push_back("  " + u.title + " " + st.bold(u.time) + T("   [ / ] 15분씩", "   [ / ] 15 min steps"));
        out.push_back("  " + u.caption + "   " + keyed(b, u.apply.action, u.apply.title));
    }
    out.push_back("");

    // Status strip.
    std::string strip;
    for (const StatPillModel* p : {&m.status.power, &m.status.lid, &m.status.heat}) {
        if (!strip.empty()) strip += "   ";
        strip += p->title + ": " + st.bold(p->value);
        if (p->detail) strip += " (" + *p->detail + ")";
    }
    out.push_back(strip);

    // Footer items.
    std::string foot;
    for (const auto& f : m.footer) {
        if (!foot.empty()) foot += "  ·  ";
        foot += f.button ? keyed(b, f.button->action, f.text) : f.text;
    }
    if (!foot.empty()) out.push_back(foot);
}

void infoRow(const InfoRowModel& r, const std::vector<KeyBinding>& b, std::vector<std::string>& out) {
    std::string line = "  " + r.title;
    if (!r.subtitle.empty()) line += " — " + r.subtitle;
    if (!r.value.empty()) line += "   " + r.value;
    if (r.button) line += "   " + keyed(b, r.button->action, r.button->title);
    out.push_back(line);
}

void settingsPage(const DashboardView& v, const SettingsPageModel& s, const Style& st, std::vector<std::string>& out) {
    const auto& b = v.bindings;
    out.push_back("‹ " + keyed(b, s.back.action, s.back.title) + "   " + st.bold(s.title));
    if (s.message) out.push_back("ℹ " + *s.message);
    out.push_back("");

    out.push_back(st.bold(s.integration.title));
    out.push_back("  " + st.dim(s.integration.note));
    for (const auto& row : s.integration.rows) {
        out.push_back("  " + keyed(b, row.toggle.action, box(row.toggle.on) + " " + row.title) + "   " + row.state);
    }
    out.push_back("");

    const auto& p = s.phone;
    out.push_back(st.bold(keyed(b, p.toggle.action, box(p.toggle.on) + " " + p.toggle.title)));
    int n = 1;
    for (const auto& step : p.steps) out.push_back("  " + std::to_string(n++) + ". " + step);
    for (const auto& line : v.qrLines) out.push_back("  " + line);
    if (p.qrText) out.push_back("  " + *p.qrText);
    if (p.test) out.push_back("  " + keyed(b, p.test->action, p.test->title) + (p.lastResult ? "   " + *p.lastResult : ""));
    for (const auto& f : p.features) out.push_back("  " + st.dim(f));
    out.push_back("");

    const auto& be = s.behavior;
    out.push_back(st.bold(be.title));
    for (const auto& t : be.toggles) {
        out.push_back("  " + keyed(b, t.action, box(t.on) + " " + t.title) + " — " + st.dim(t.subtitle));
    }
    std::string guard = "  [ / ] " + be.batteryTitle + ":";
    for (const auto& o : be.batteryOptions) {
        guard += o.value == be.batterySelected ? " " + st.inverse(o.title) : " " + o.title;
    }
    out.push_back(guard);
    out.push_back("        " + st.dim(be.batterySubtitle));
    out.push_back("");

    out.push_back(st.bold(s.shortcuts.title));
    out.push_back("  " + st.dim(s.shortcuts.note));
    infoRow(s.shortcuts.hotKey, b, out);
    infoRow(s.shortcuts.terminal, b, out);
    out.push_back("");

    out.push_back(st.bold(s.permissions.title));
    out.push_back("  " + st.dim(s.permissions.note));
    infoRow(s.permissions.power, b, out);
    infoRow(s.permissions.notifications, b, out);
    out.push_back("");
    out.push_back(s.website.title + ": " + AppConfig::website() + "   " + keyed(b, s.quit.action, s.quit.title));
}

// The key map: the bindings with a footer hint, then the page's fixed groups.
std::vector<std::string> keyMap(const DashboardView& v, int width) {
    std::vector<std::string> items;
    const bool settings = v.popover.screen == Screen::settings;
    if (!settings) items.push_back(T("a/t/u 모드", "a/t/u mode"));
    if (!settings && v.popover.main && v.popover.main->timer && v.popover.main->timer->chips.size() > 1) {
        // The chips say how many presets there are: keys 1..N, and 0 for no limit.
        const std::string last = std::to_string(std::min<std::size_t>(v.popover.main->timer->chips.size() - 1, 9));
        items.push_back(T("1-" + last + "/0 프리셋", "1-" + last + "/0 presets"));
    }
    if (settings) items.push_back(T("1-9 연동 · m/l/h/o 스위치 · [ ] 배터리", "1-9 agents · m/l/h/o switches · [ ] battery"));
    for (const auto& kb : v.bindings) {
        if (!kb.hint.empty()) items.push_back(kb.keyLabel + " " + kb.hint);
    }
    std::vector<std::string> lines(1);
    for (const auto& item : items) {
        std::string& cur = lines.back();
        const std::string sep = cur.empty() ? "" : "  ·  ";
        if (!cur.empty() && displayWidth(cur + sep + item) > width - 2) lines.emplace_back(item);  // margins
        else cur += sep + item;
    }
    return lines;
}

}  // namespace

bool terminalWantsColor() {
    const char* noColor = std::getenv("NO_COLOR");
    return !(noColor && *noColor) && !terminalIsDumb();
}

bool terminalIsDumb() {
    const char* term = std::getenv("TERM");
    return term && std::string_view(term) == "dumb";
}

std::optional<std::string> noticeInsteadOf(const Action& action) {
    switch (action.kind) {
        case Action::Kind::turnOffDisplay:
            return T("여기서는 화면을 끌 수 없어요 — 데스크톱의 전원 설정을 쓰세요",
                     "Screen off isn't available here — use your desktop's power settings");
        case Action::Kind::openNotificationSettings:
            return T("데스크톱 알림은 데스크톱 설정의 알림 항목에서 바꿔요",
                     "Desktop notifications are set in your desktop's settings, under Notifications");
        default:
            return std::nullopt;
    }
}

void addNoticeBindings(std::vector<KeyBinding>& bindings, const PopoverModel& popover) {
    if (!popover.settings || !popover.settings->permissions.notifications.button) return;
    const Button& open = *popover.settings->permissions.notifications.button;
    if (open.enabled || !noticeInsteadOf(open.action)) return;  // bound already, or nothing to say
    bindings.push_back(KeyBinding{Key::character('n'), "n", "", DashboardCommand{DashboardCommand::Kind::perform, open.action}});
}

std::string welcomeText() {
    return T("Duskwell에 오신 것을 환영합니다 — s를 눌러 에이전트 연동, 폰 알림, 전원 도우미를 설정하세요",
             "Welcome to Duskwell — press s to connect your agents, phone alerts and the power helper");
}

DashboardView makeDashboardView(AwakeController& c, std::optional<std::string> welcome, bool color) {
    PopoverModel popover = makePopoverModel(c);
    const Action phoneToggle =
        popover.settings ? popover.settings->phone.toggle.action : makeSettingsPage(c).phone.toggle.action;
    return makeDashboardView(makeStatusItemModel(c), std::move(popover), phoneToggle, std::move(welcome), color);
}

DashboardView makeDashboardView(StatusItemModel status, PopoverModel popover, const Action& phoneToggle,
                                std::optional<std::string> welcome, bool color) {
    DashboardView v;
    v.status = std::move(status);
    v.popover = std::move(popover);
    v.color = color;
    if (v.popover.screen == Screen::main) v.welcome = std::move(welcome);
    v.bindings = keyBindings(v.popover, phoneToggle);
    addNoticeBindings(v.bindings, v.popover);
    if (v.popover.settings && v.popover.settings->phone.qrText) {
        if (auto code = makeQrCode(*v.popover.settings->phone.qrText)) {
            std::istringstream lines(renderQrForTerminal(*code, color ? QrStyle::ansi : QrStyle::plain));
            for (std::string line; std::getline(lines, line);) v.qrLines.push_back(line);
        }
    }
    return v;
}

std::vector<std::string> renderDashboard(const DashboardView& v, int width, int height, int& scroll) {
    width = std::max(width, 20);
    height = std::max(height, 6);
    const Style st{v.color};

    // Title bar: the status item (icon and live title) on the right.
    std::string item = glyph(v.status.symbol);
    if (v.status.title) item += *v.status.title;
    const std::string name = std::string(AppConfig::name);
    // The last column stays empty: a glyph some terminal draws wider than we count must not
    // wrap the line and scroll the frame.
    const int gap = std::max(1, width - displayWidth(name) - displayWidth(item) - 3);
    std::string title = " " + name + std::string(static_cast<std::size_t>(gap), ' ') + item + " ";
    title = st.inverse(fitToWidth(title, width - 1, true));

    std::vector<std::string> body;
    if (v.notice) body.push_back(st.inverse(" ℹ " + *v.notice + " "));
    if (v.popover.screen == Screen::settings && v.popover.settings) settingsPage(v, *v.popover.settings, st, body);
    else if (v.popover.main) mainPage(v, *v.popover.main, st, body);

    const std::vector<std::string> keys = keyMap(v, width);
    const int space = std::max(1, height - 2 - static_cast<int>(keys.size()));  // title and rule
    const int maxScroll = std::max(0, static_cast<int>(body.size()) - space);
    scroll = std::clamp(scroll, 0, maxScroll);

    std::vector<std::string> out;
    out.push_back(title);
    for (int i = 0; i < space; ++i) {
        const int at = scroll + i;
        std::string line = at < static_cast<int>(body.size()) ? body[static_cast<std::size_t>(at)] : "";
        if (i == space - 1 && at + 1 < static_cast<int>(body.size())) line = st.dim(T("… 더 보기: j", "… more below: j"));
        out.push_back(fitToWidth(" " + line, width - 1));
    }
    out.push_back(st.dim(std::string(static_cast<std::size_t>(width - 1), '-')));
    for (const auto& k : keys) out.push_back(fitToWidth(" " + k, width - 1));
    out.resize(static_cast<std::size_t>(height));
    return out;
}

}  // namespace duskwell
