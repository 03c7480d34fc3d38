#pragma once
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "core/desktop_bus.h"
#include "power/power_sources.h"

namespace duskwell {

// Linux power facilities. Files are read below `root` ("/" normally; tests pass a fake
// tree); the D-Bus services come from the system and session buses (tests point
// DBUS_SYSTEM_BUS_ADDRESS / DBUS_SESSION_BUS_ADDRESS at private buses):
//  - batteries and the lid from UPower when it runs; otherwise batteries from
//    sys/class/power_supply, described with the macOS keys, and the lid from
//    proc/acpi/button/lid/*/state;
//  - thermal state from sys/class/thermal zones against their trip points;
//  - lid sleep disabled when run/systemd/logind.conf.d/duskwell.conf (written by the power
//    helper) sets HandleLidSwitch=ignore;
//  - battery settings from power-profiles-daemon's ActiveProfile;
//  - the idle assertion as a logind inhibitor lock (Inhibit "idle:sleep", mode "block"):
//    a descriptor we hold, so the lock ends when we release it or die;
//  - the screen lock through logind's session Lock, else org.freedesktop.ScreenSaver.
// Displays and display sleep are neutral: a headless daemon has no cheap, safe way to ask.
// Thermal changes are not announced; the controller reads the state every five seconds.
class LinuxPowerSources final : public PowerSources {
public:
    explicit LinuxPowerSources(std::string root = "/");
    ~LinuxPowerSources() override;

    std::optional<std::vector<PowerSourceDescription>> powerSources() override;
    std::optional<bool> lidClosed() override;
    std::optional<std::vector<DisplayInfo>> onlineDisplays() override;
    void displaySleepNow() override;
    int thermalState() override;
    void observeThermalState(std::function<void(int)> onChange) override;
    bool sleepDisabled() override;
    std::optional<int> batterySetting(const std::string& key) override;
    std::optional<std::uint32_t> createIdleAssertion(const std::string& name) override;
    void releaseIdleAssertion(std::uint32_t id) override;
    bool screenLockAvailable() override;
    void lockScreen() override;

private:
    std::string root_;
    SystemBusClient system_;
    SessionBusClient session_;
    std::map<std::uint32_t, OwnedFd> inhibitors_;
    std::uint32_t nextId_ = 1;
};

// power-profiles-daemon's profile as a battery setting: "lowpowermode" is 1 for
// "power-saver", else 0; "powermode" is 1 power-saver, 0 balanced, 2 performance.
std::optional<int> profileSetting(const std::string& profile, const std::string& key);

// UPower's display device as the power-source list: one internal battery, or none.
std::vector<PowerSourceDescription> describeUPower(const UPowerReading& reading);

}  // namespace duskwell
