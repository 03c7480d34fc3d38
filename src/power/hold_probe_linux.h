#pragma once
#include <memory>
#include <string>

#include "power/hold_probe.h"

namespace duskwell {

// The Linux probe: logind's ListInhibitors and its HandleLidSwitch* properties, and
// power-profiles-daemon's ActiveProfile, on the system bus (DBUS_SYSTEM_BUS_ADDRESS or the
// standard socket), each call bounded by `callTimeoutSeconds`. An inhibitor's owner is
// looked up in the real /proc. Without a bus or logind the lid falls back to the helper's
// drop-in below `root` ("/" in use, a temporary tree in tests); the rest is unknown, and a
// build without sd-bus answers from the drop-in alone. One fresh connection per check: once
// a minute while a period runs, nothing held in between.
std::unique_ptr<HoldProbe> makeLinuxHoldProbe(std::string root = "/", double callTimeoutSeconds = 1.0);

}  // namespace duskwell
