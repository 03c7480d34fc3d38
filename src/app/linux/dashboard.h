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
    std::vector<std::string> qrLines;    // the phone's subscribe QR code, when the settings page shows it
    bool color = true;                   // ANSI attributes (bold, dim, inverse)
};

// Builds the frame's content for the controller's current state. `welcome` is shown on the
// main page until the user first opens the settings.
DashboardView makeDashboardView(AwakeController& c, std::optional<std::string> welcome, bool color);

// The first-launch hint.
std::string welcomeText();

// Lays the frame out in exactly `height` lines of at most `width` columns: a title bar with
// the status item, the page (scrolled by `scroll` lines when it is taller than the space,
// clamped into range and written back), and the key map in the last lines.
std::vector<std::string> renderDashboard(const DashboardView& view, int width, int height, int& scroll);

}  // namespace duskwell
