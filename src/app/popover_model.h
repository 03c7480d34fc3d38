#pragma once
#include <optional>

#include "app/main_page_model.h"
#include "app/settings_page_model.h"
#include "core/keep_mode.h"

namespace duskwell {

class AwakeController;

// The popover shows one page, chosen by the controller's `screen`; only that page is built.
struct PopoverModel {
    Screen screen = Screen::main;
    std::optional<MainPageModel> main;
    std::optional<SettingsPageModel> settings;
    bool operator==(const PopoverModel&) const = default;
};

PopoverModel makePopoverModel(const AwakeController& c);

// True when `next` differs from `shown` only in the progress ring's clock and fill: the
// once-a-second change of a running period, which a shell updates in place instead of
// rebuilding the page (and losing a focused control with it).
bool onlyRingTicked(const PopoverModel& shown, const PopoverModel& next);

}  // namespace duskwell
