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

}  // namespace duskwell
