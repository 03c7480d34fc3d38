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
    bool color = true;                   // ANSI attributes (bold, dim, inverse)
    // The phone's QR code on a screen of its own (the settings page links to it); shown
    // only while the settings page offers the code.
    bool codePage = false;
    std::optional<std::string> prompt;   // an entry line in place of the key map
};

// Builds the frame's content for the controller's current state. `welcome` is shown on the
// main page until the user first opens the settings.
DashboardView makeDashboardView(AwakeController& c, std::optional<std::string> welcome, bool color);

// Turns `view` into the code page: the QR code and a way back (Esc, r, b), q still quits.
// Nothing changes when the settings page offers no code.
void showCodePage(DashboardView& view);

// The first-launch hint.
std::string welcomeText();

// Lays the frame out in exactly `height` lines of at most `width` columns: a title bar with
// the status item, the page (scrolled by `scroll` lines when it is taller than the space,
// clamped into range and written back), and the key map in the last lines. The code page
// is the QR code at the size that fits `height` with the instructions beside it.
std::vector<std::string> renderDashboard(const DashboardView& view, int width, int height, int& scroll);

}  // namespace duskwell
