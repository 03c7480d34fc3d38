#pragma once
#include <optional>
#include <string>
#include <vector>

#include "power/power_sources.h"

namespace duskwell {

// One reading of the internal battery.
struct BatteryInfo {
    std::optional<int> percent;
    bool onBattery = false;
    bool charging = false;
    bool hasBattery = false;
    std::optional<int> minutesLeft;

    bool operator==(const BatteryInfo&) const = default;
};

struct DisplaySummary {
    bool builtinAwake = false;
    bool hasExternal = false;
    bool operator==(const DisplaySummary&) const = default;
};

// Stateless readers over the installed PowerSources.
namespace SystemInfo {
BatteryInfo battery();
std::optional<bool> lidClosed();
bool sleepDisabled();
std::optional<int> batterySetting(const std::string& key);
void displaySleepNow();
DisplaySummary displays();
int thermalState();

// The decisions, separated from the facility so they can be tested on plain values.
BatteryInfo batteryFrom(const std::optional<std::vector<PowerSourceDescription>>& sources);
DisplaySummary summarizeDisplays(const std::optional<std::vector<DisplayInfo>>& displays);
// `pmset -g`: whether the "SleepDisabled" line ends in 1.
bool parseSleepDisabled(const std::string& pmsetOutput);
// `pmset -g custom`: `key` in the "Battery Power" section only.
std::optional<int> parseBatterySetting(const std::string& pmsetCustomOutput, const std::string& key);
}  // namespace SystemInfo

namespace ScreenLock {
bool available();
void lock();
}  // namespace ScreenLock

// The idle-sleep assertion held while a period runs. Acquiring twice holds one assertion;
// releasing when none is held does nothing. Destroying it does not release (stop does).
class IdleAssertion {
public:
    static constexpr const char* name = "Owlguard: 뚜껑을 닫아도 계속 실행";
    void acquire();
    void release();
    bool held() const { return held_; }
    std::uint32_t id() const { return id_; }

private:
    std::uint32_t id_ = 0;
    bool held_ = false;
};

}  // namespace duskwell
