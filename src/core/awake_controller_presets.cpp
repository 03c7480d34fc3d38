#include "core/awake_controller.h"

namespace duskwell {

// The durations the quick menu and the timer card offer, shortest first: half an hour for a
// quick task, then doublings up to a working day (8 h, the same as the auto cap's default).
// "No limit" is not a preset; the timer card adds its own "∞" chip for 0 minutes.
const std::vector<int>& AwakeController::presets() {
    static const std::vector<int> minutes{30, 60, 120, 240, 480};
    return minutes;
}

}  // namespace duskwell
