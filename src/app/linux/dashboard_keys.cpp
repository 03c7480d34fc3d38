#include "dashboard_keys.h"

#include "core/localization.h"

namespace duskwell {
namespace {

using Cmd = DashboardCommand;

Cmd performing(const Action& a) { return Cmd{Cmd::Kind::perform, a}; }

// Not `bind`: with a string literal for `hint`, argument-dependent lookup prefers std::bind
// (a better match than converting to std::string) and the binding silently vanishes.
void bindKey(std::vector<KeyBinding>& out, char c, std::string hint, Cmd cmd) {
    std::string label = c == ' ' ? "space" : std::string(1, c);
    out.push_back(KeyBinding{Key::character(c), std::move(label), std::move(hint), std::move(cmd)});
}

void bindButton(std::vector<KeyBinding>& out, char c, const Button& b, bool inFooter = false) {
    if (!b.enabled) return;
    bindKey(out, c, inFooter ? b.title : "", performing(b.action));
}

// The until picker moves to the next or previous quarter hour, wrapping around midnight.
Action untilShifted(const UntilCardModel& u, int direction) {
    const int at = u.hour * 60 + u.minute;
    int target = direction > 0 ? (at / 15 + 1) * 15 : ((at + 14) / 15 - 1) * 15;
    target = (target % 1440 + 1440) % 1440;
    return Action::untilTime(target / 60, target % 60);
}

void mainBindings(std::vector<KeyBinding>& out, const MainPageModel& m) {
    bindButton(out, ' ', m.hero.mainButton, /*inFooter=*/true);
    const char modeKeys[] = {'a', 't', 'u'};
    for (std::size_t i = 0; i < m.modePicker.size() && i < 3; ++i) {
        if (m.modePicker[i].enabled) bindKey(out, modeKeys[i], "", performing(m.modePicker[i].action));
    }
    const char extendKeys[] = {'+', '>'};
    for (std::size_t i = 0; i < m.hero.extendRow.size() && i < 2; ++i) bindButton(out, extendKeys[i], m.hero.extendRow[i]);
    if (m.timer) {
        // Presets on 1..9, the unlimited chip (the last one) on 0.
        const auto& chips = m.timer->chips;
        for (std::size_t i = 0; i < chips.size(); ++i) {
            const bool last = i + 1 == chips.size();
            if (!last && i >= 9) continue;
            if (!chips[i].enabled) continue;
            bindKey(out, last ? '0' : static_cast<char>('1' + i), "", performing(chips[i].action));
        }
    }
    if (m.until) {
        bindKey(out, '[', "", performing(untilShifted(*m.until, -1)));
        bindKey(out, ']', "", performing(untilShifted(*m.until, 1)));
        if (m.until->apply.enabled) {
            out.push_back(KeyBinding{Key::special(Key::Kind::enter), "Enter", "", performing(m.until->apply.action)});
        }
    }
    if (m.agents && m.agents->hint) bindButton(out, 'c', m.agents->hint->connect);
    for (const auto& item : m.footer) {
        if (item.button && item.button->action.kind == Action::Kind::turnOffDisplay) bindButton(out, 'd', *item.button);
    }
    bindButton(out, 's', m.header.gear, /*inFooter=*/true);
}

void settingsBindings(std::vector<KeyBinding>& out, const SettingsPageModel& s) {
    if (s.back.enabled) {
        out.push_back(KeyBinding{Key::special(Key::Kind::escape), "Esc", s.back.title, performing(s.back.action)});
        bindKey(out, 'b', "", performing(s.back.action));
    }
    for (std::size_t i = 0; i < s.integration.rows.size() && i < 9; ++i) {
        const auto& t = s.integration.rows[i].toggle;
        if (t.enabled) bindKey(out, static_cast<char>('1' + i), "", performing(t.action));
    }
    if (s.phone.test) bindButton(out, 'x', *s.phone.test);
    // The QR code gets a screen of its own: within the page it would not fit 24 lines.
    if (s.phone.qrText) bindKey(out, 'r', "", Cmd{Cmd::Kind::showCode, std::nullopt});
    if (s.phone.server && s.phone.server->button) bindButton(out, 'v', *s.phone.server->button);
    const char behaviorKeys[] = {'m', 'l', 'h', 'o'};
    for (std::size_t i = 0; i < s.behavior.toggles.size() && i < 4; ++i) {
        if (s.behavior.toggles[i].enabled) bindKey(out, behaviorKeys[i], "", performing(s.behavior.toggles[i].action));
    }
    // The battery guard picker steps through its values.
    const auto& opts = s.behavior.batteryOptions;
    std::size_t at = 0;
    for (std::size_t i = 0; i < opts.size(); ++i) {
        if (opts[i].value == s.behavior.batterySelected) at = i;
    }
    if (!opts.empty()) {
        if (at > 0) bindKey(out, '[', "", performing(opts[at - 1].action));
        if (at + 1 < opts.size()) bindKey(out, ']', "", performing(opts[at + 1].action));
    }
    if (s.shortcuts.terminal.button) bindButton(out, 'i', *s.shortcuts.terminal.button);
    if (s.permissions.power.button) bindButton(out, 'w', *s.permissions.power.button);
    if (s.permissions.notifications.button) bindButton(out, 'n', *s.permissions.notifications.button);
    out.push_back(KeyBinding{Key::special(Key::Kind::down), "j/↓", "", Cmd{Cmd::Kind::scrollDown, std::nullopt}});
    bindKey(out, 'j', T("아래로", "scroll"), Cmd{Cmd::Kind::scrollDown, std::nullopt});
    out.push_back(KeyBinding{Key::special(Key::Kind::up), "k/↑", "", Cmd{Cmd::Kind::scrollUp, std::nullopt}});
    bindKey(out, 'k', "", Cmd{Cmd::Kind::scrollUp, std::nullopt});
}

}  // namespace

std::vector<Key> decodeKeys(std::string_view bytes) {
    std::vector<Key> keys;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const unsigned char b = static_cast<unsigned char>(bytes[i]);
        if (b == 0x1b) {
            if (i + 1 >= bytes.size()) {
                keys.push_back(Key::special(Key::Kind::escape));
                continue;
            }
            const char next = bytes[i + 1];
            if (next == '[' || next == 'O') {
                // CSI / SS3: parameters, then one final byte in 0x40..0x7e.
                std::size_t j = i + 2;
                while (j < bytes.size() && !(bytes[j] >= 0x40 && bytes[j] <= 0x7e)) ++j;
                if (j < bytes.size()) {
                    if (bytes[j] == 'A' && j == i + 2) keys.push_back(Key::special(Key::Kind::up));
                    if (bytes[j] == 'B' && j == i + 2) keys.push_back(Key::special(Key::Kind::down));
                }
                i = j;
                continue;
            }
            if (next == 0x1b) {  // Esc pressed twice
                keys.push_back(Key::special(Key::Kind::escape));
                continue;
            }
            // Alt+key: not bound; drop both bytes.
            ++i;
            continue;
        }
        if (b == '\r' || b == '\n') {
            keys.push_back(Key::special(Key::Kind::enter));
            if (b == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') ++i;
            continue;
        }
        if (b == 0x7f || b == 0x08) {
            keys.push_back(Key::special(Key::Kind::backspace));
            continue;
        }
        if (b >= 0x20 && b < 0x7f) keys.push_back(Key::character(static_cast<char>(b)));
    }
    return keys;
}

std::vector<KeyBinding> keyBindings(const PopoverModel& model, const Action& phoneToggle) {
    std::vector<KeyBinding> out;
    if (model.screen == Screen::settings && model.settings) {
        settingsBindings(out, *model.settings);
    } else if (model.main) {
        mainBindings(out, *model.main);
    }
    bindKey(out, 'p', T("폰 알림 켜기/끄기", "phone on/off"), performing(phoneToggle));
    bindKey(out, 'q', T("종료", "quit"), Cmd{Cmd::Kind::quit, std::nullopt});
    return out;
}

std::optional<DashboardCommand> commandForKey(const std::vector<KeyBinding>& bindings, const Key& key) {
    for (const auto& b : bindings) {
        if (b.key == key) return b.command;
    }
    return std::nullopt;
}

std::optional<std::string> keyLabelFor(const std::vector<KeyBinding>& bindings, const Action& action) {
    for (const auto& b : bindings) {
        if (b.command.kind == DashboardCommand::Kind::perform && b.command.action == action &&
            b.key.kind == Key::Kind::character)
            return b.keyLabel;
    }
    for (const auto& b : bindings) {
        if (b.command.kind == DashboardCommand::Kind::perform && b.command.action == action) return b.keyLabel;
    }
    return std::nullopt;
}

}  // namespace duskwell
