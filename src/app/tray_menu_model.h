#pragma once
#include <optional>
#include <string>
#include <vector>

#include "app/action.h"
#include "app/quick_menu_model.h"
#include "app/status_item_model.h"

namespace duskwell {

// The tray icon of a Linux desktop (a status notifier item with an exported menu), computed
// from the same view models as the Mac's status item and quick menu. The Linux layer only
// puts these values on the bus and hands clicked ids back through `actionFor`.

// One entry of the exported menu. Ids are stable across rebuilds: a clock ticking in the
// information line changes a label, not the layout, so hosts only refresh one item.
struct TrayMenuEntry {
    enum class Type { standard, separator };
    int id = 0;
    Type type = Type::standard;
    std::string label;  // underscores doubled: a single one would mark an access key
    bool enabled = false;
    std::optional<Action> action;
    bool operator==(const TrayMenuEntry&) const = default;
};

struct TrayMenu {
    std::vector<TrayMenuEntry> entries;  // the root's children, in order

    const TrayMenuEntry* find(int id) const;
    // What a click on `id` asks for; nothing for separators, the information line and
    // unknown ids (a host may click an item of a layout it read before a change).
    std::optional<Action> actionFor(int id) const;
    bool operator==(const TrayMenu&) const = default;
};

// There is no popover on Linux: "Open…" opens the terminal dashboard instead, and says so.
TrayMenu makeTrayMenu(const std::vector<QuickMenuItem>& quickMenu);

// What changed between two menus: hosts re-read the whole layout only for `layout`.
struct TrayMenuChange {
    enum class Kind { none, properties, layout };
    Kind kind = Kind::none;
    std::vector<int> changedIds;  // for `properties`: the entries whose label or state changed
    bool operator==(const TrayMenuChange&) const = default;
};
TrayMenuChange compareTrayMenus(const TrayMenu& before, const TrayMenu& after);

// The item itself. Icons are freedesktop theme names, which every tray host can draw in
// the desktop's own style: a night sky while idle, the sun while a period keeps the machine
// awake, a star while it waits for AI tasks.
struct TrayItem {
    std::string iconName;
    std::string title;         // the application's name, then the menu-bar clock if any
    std::string tooltipTitle;  // "Duskwell: Idle"
    std::string tooltipBody;   // the clock, or empty
    std::string label;         // the clock beside the icon, for hosts that show one
    bool operator==(const TrayItem&) const = default;
};
TrayItem makeTrayItem(const StatusItemModel& status);

// A left click on the icon: start with the current choice, or stop.
Action trayActivateAction();

}  // namespace duskwell
