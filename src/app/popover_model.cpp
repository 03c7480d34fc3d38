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

bool onlyRingTicked(const PopoverModel& shown, const PopoverModel& next) {
    if (shown == next || !shown.main || !next.main) return false;
    // A clock that appears or vanishes needs a label the page does not have, or drops one.
    if (shown.main->hero.ring.text.empty() != next.main->hero.ring.text.empty()) return false;
    auto withoutClock = [](PopoverModel m) {
        m.main->hero.ring.text.clear();
        m.main->hero.ring.progress = 0;
        return m;
    };
    return withoutClock(shown) == withoutClock(next);
}

}  // namespace duskwell
