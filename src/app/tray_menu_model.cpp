#include "app/tray_menu_model.h"

#include <algorithm>
#include <map>

#include "core/app_config.h"
#include "core/localization.h"

namespace duskwell {
namespace {

std::string withoutAccessKeys(const std::string& text) {
    std::string out;
    for (char ch : text) {
        out += ch;
        if (ch == '_') out += '_';
    }
    return out;
}

// An action's id comes from what it does, so the same item keeps its id whatever surrounds
// it; separators and the information line are numbered by place (they have nothing else).
int idFor(const QuickMenuItem& item, int position, int separatorsBefore) {
    if (item.kind == QuickMenuItem::Kind::separator) return 1 + separatorsBefore;
    if (!item.action) return 100 + position;
    return 1000 * (static_cast<int>(item.action->kind) + 1) + item.action->number;
}

std::string trimmed(const std::string& s) {
    const auto first = s.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : s.substr(first);
}

}  // namespace

const TrayMenuEntry* TrayMenu::find(int id) const {
    const auto it = std::find_if(entries.begin(), entries.end(), [&](const TrayMenuEntry& e) { return e.id == id; });
    return it == entries.end() ? nullptr : &*it;
}

std::optional<Action> TrayMenu::actionFor(int id) const {
    const TrayMenuEntry* e = find(id);
    if (!e || !e->enabled) return std::nullopt;
    return e->action;
}

TrayMenu makeTrayMenu(const std::vector<QuickMenuItem>& quickMenu) {
    TrayMenu menu;
    int separators = 0;
    for (std::size_t i = 0; i < quickMenu.size(); ++i) {
        const QuickMenuItem& item = quickMenu[i];
        TrayMenuEntry e;
        e.id = idFor(item, static_cast<int>(i), separators);
        if (item.kind == QuickMenuItem::Kind::separator) {
            e.type = TrayMenuEntry::Type::separator;
            ++separators;
        } else {
            const bool opensDashboard = item.action && item.action->kind == Action::Kind::openPopover;
            e.label = withoutAccessKeys(opensDashboard ? T("대시보드 열기…", "Open dashboard…") : item.title);
            e.enabled = item.enabled();
            e.action = item.action;
        }
        menu.entries.push_back(std::move(e));
    }
    return menu;
}

TrayMenuChange compareTrayMenus(const TrayMenu& before, const TrayMenu& after) {
    TrayMenuChange change;
    const bool sameShape = std::equal(before.entries.begin(), before.entries.end(), after.entries.begin(),
                                      after.entries.end(), [](const TrayMenuEntry& a, const TrayMenuEntry& b) {
                                          return a.id == b.id && a.type == b.type;
                                      });
    if (!sameShape) {
        change.kind = TrayMenuChange::Kind::layout;
        return change;
    }
    for (std::size_t i = 0; i < after.entries.size(); ++i) {
        const TrayMenuEntry& a = before.entries[i];
        const TrayMenuEntry& b = after.entries[i];
        if (a.label != b.label || a.enabled != b.enabled || a.action != b.action) change.changedIds.push_back(b.id);
    }
    if (!change.changedIds.empty()) change.kind = TrayMenuChange::Kind::properties;
    return change;
}

TrayItem makeTrayItem(const StatusItemModel& status) {
    static const std::map<std::string, std::string> icons{
        {"moon.stars", "weather-clear-night"},
        {"bolt.fill", "weather-clear"},
        {"sparkles", "starred"},
    };
    TrayItem item;
    const auto icon = icons.find(status.symbol);
    item.iconName = icon == icons.end() ? "weather-clear-night" : icon->second;
    item.title = std::string(AppConfig::name) + status.title.value_or("");
    item.tooltipTitle = status.tooltip;
    item.label = trimmed(status.title.value_or(""));
    item.tooltipBody = item.label;
    return item;
}

Action trayActivateAction() { return Action::make(Action::Kind::toggle); }

}  // namespace duskwell
