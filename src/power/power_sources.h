#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace duskwell {

// One value of a power-source description, as the system reports it.
using PowerValue = std::variant<bool, std::int64_t, double, std::string>;
using PowerSourceDescription = std::map<std::string, PowerValue>;

struct DisplayInfo {
    bool builtin = false;
    bool asleep = false;
    bool active = false;
};

// The machine's power, display and thermal facilities. Every operation answers neutrally
// when a facility is missing: nothing, an empty list, false, nominal.
class PowerSources {
public:
    virtual ~PowerSources() = default;

    // Power sources with the macOS description keys ("Type", "Current Capacity",
    // "Max Capacity", "Power Source State", "Is Charging", "Time to Empty");
    // nothing when the list cannot be read.
    virtual std::optional<std::vector<PowerSourceDescription>> powerSources() = 0;
    // true = closed; nothing when the machine cannot tell (a desktop).
    virtual std::optional<bool> lidClosed() = 0;
    // Online displays; nothing when the query fails.
    virtual std::optional<std::vector<DisplayInfo>> onlineDisplays() = 0;
    virtual void displaySleepNow() = 0;
    // 0 nominal, 1 fair, 2 serious, 3 critical.
    virtual int thermalState() = 0;
    // Calls `onChange` (on the main thread) whenever the thermal state changes, where the
    // system announces it; a platform that only polls never calls it.
    virtual void observeThermalState(std::function<void(int)> onChange) = 0;
    // Whether lid-closed sleep is currently disabled (what the helper's "lid-on" sets).
    virtual bool sleepDisabled() = 0;
    // A setting of the battery power profile ("lowpowermode", "powermode").
    virtual std::optional<int> batterySetting(const std::string& key) = 0;

    // Idle-sleep assertion: an identifier when the system granted one.
    virtual std::optional<std::uint32_t> createIdleAssertion(const std::string& name) = 0;
    virtual void releaseIdleAssertion(std::uint32_t id) = 0;

    virtual bool screenLockAvailable() = 0;
    virtual void lockScreen() = 0;
};

}  // namespace duskwell
