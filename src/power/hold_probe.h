#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace duskwell {

// What the controller wants looked at: the means a running period set up. Plain values,
// built on the main thread and handed to the probe's queue.
struct HoldQuery {
    int pid = 0;               // this process: owner of the inhibitor or assertion
    bool inhibitor = false;    // is our idle-sleep inhibitor / assertion listed?
    bool lid = false;          // is lid-closed sleep off?
    bool profile = false;      // which power profile is active?
};

// What the system says. Nothing = the probe could not ask (no bus, no service, no tool),
// which never counts as a failure.
struct HoldObservation {
    std::optional<bool> inhibitorListed;
    std::optional<bool> lidSleepDisabled;
    std::optional<int> powerMode;     // as SystemInfo::batterySetting("powermode")
    std::optional<int> lowPowerMode;  // as SystemInfo::batterySetting("lowpowermode")
    bool operator==(const HoldObservation&) const = default;
};

// Asks the system whether what a period set still holds. `observe` blocks (bus calls with
// short timeouts, `pmset`), so it runs on a background serial queue, never on the main
// thread; an implementation must be callable from any one thread at a time.
class HoldProbe {
public:
    virtual ~HoldProbe() = default;
    virtual HoldObservation observe(const HoldQuery& query) = 0;
};

// The platform's probe (logind and power-profiles-daemon over D-Bus; `pmset` on macOS).
std::unique_ptr<HoldProbe> makePlatformHoldProbe();

// One entry of logind's ListInhibitors: a(ssssuu).
struct InhibitorEntry {
    std::string what;  // "idle:sleep", colon-separated
    std::string who;
    std::string why;
    std::string mode;  // "block" or "delay"
    std::uint32_t uid = 0;
    std::uint32_t pid = 0;
};

namespace HoldFacts {
// Ours: a blocking inhibitor of idle or sleep, taken by `pid` itself (an inhibitor fd held
// in-process), by a child of it (the systemd-inhibit helper process), or carrying our name
// for our user. `parentOf` answers a pid's parent, nothing when unknown.
bool isOurInhibitor(const InhibitorEntry& entry, int pid, std::uint32_t uid,
                    const std::function<std::optional<int>(int)>& parentOf);
// logind's lid handling values: HandleLidSwitch must be "ignore"; the external-power and
// docked variants, when known (older logind lacks them), too.
bool lidSwitchIgnored(const std::string& handleLidSwitch, const std::optional<std::string>& externalPower,
                      const std::optional<std::string>& docked);
}  // namespace HoldFacts

}  // namespace duskwell
