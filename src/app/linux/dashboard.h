#pragma once
#include <optional>
#include <string>
#include <vector>

#include "app/popover_model.h"
#include "app/status_item_model.h"
#include "dashboard_keys.h"

namespace duskwell {

class AwakeController;

// Everything one frame of the terminal dashboard shows, built from the view models; the
// renderer below only lays it out.
struct DashboardView {
    StatusItemModel status;
    PopoverModel popover;
    std::vector<KeyBinding> bindings;
    std::optional<std::string> welcome;  // first launch: where to find the settings
    std::optional<std::string> notice;   // the answer to the last key, when it has one
    std::vector<std::string> qrLines;    // the phone's subscribe QR code, when the settings page shows it
    bool color = true;                   // ANSI attributes (bold, dim, inverse)
};

// Builds the frame's content for the controller's current state. `welcome` is shown on the
// main page until the user first opens the settings.
DashboardView makeDashboardView(AwakeController& c, std::optional<std::string> welcome, bool color);
// The same from models built elsewhere (an attached dashboard gets them from the service).
// `phoneToggle` is the settings page's phone switch action.
DashboardView makeDashboardView(StatusItemModel status, PopoverModel popover, const Action& phoneToggle,
                                std::optional<std::string> welcome, bool color);

// How the terminal may be drawn on: colour unless NO_COLOR is set or TERM is "dumb"; a dumb
// terminal gets no cursor movement at all (the callers fall back to plain lines).
bool terminalWantsColor();
bool terminalIsDumb();

// What a key whose action does nothing on this system says instead ("d", the notification
// settings' "Open"); nothing for every other action.
std::optional<std::string> noticeInsteadOf(const Action& action);
// Bindings for controls that are disabled here but still answer with a notice.
void addNoticeBindings(std::vector<KeyBinding>& bindings, const PopoverModel& popover);

// The first-launch hint.
std::string welcomeText();

// Lays the frame out in exactly `height` lines of at most `width` columns: a title bar with
// the status item, the page (scrolled by `scroll` lines when it is taller than the space,
// clamped into range and written back), and the key map in the last lines.
std::vector<std::string> renderDashboard(const DashboardView& view, int width, int height, int& scroll);

}  // namespace duskwell
