#include "app/popover_model.h"

#include "core/awake_controller.h"

namespace duskwell {

PopoverModel makePopoverModel(const AwakeController& c) {
    PopoverModel m;
    m.screen = c.screen();
    if (m.screen == Screen::settings) {
        m.settings = makeSettingsPage(c);
    } else {
        m.main = makeMainPage(c);
    }
    return m;
}

}  // namespace duskwell
