#pragma once
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "power/power_sources.h"

namespace duskwell {

// Linux power facilities, all read below `root` ("/" normally; tests pass a fake tree):
//  - batteries from sys/class/power_supply, described with the macOS keys;
//  - the lid from proc/acpi/button/lid/*/state;
//  - thermal state from sys/class/thermal zones against their trip points;
//  - lid sleep disabled when run/systemd/logind.conf.d/duskwell.conf (written by the power
//    helper) sets HandleLidSwitch=ignore;
//  - battery settings from power-profiles-daemon (usr/bin/powerprofilesctl, via runCommand);
//  - the idle assertion as a logind inhibitor: a usr/bin/systemd-inhibit child whose stdin
//    is our pipe, so it ends when we release it or die;
//  - the screen lock through usr/bin/loginctl lock-session (via runCommand).
// Programs are looked up under `root` too, so tests can put recording stand-ins there.
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

    // How long a new inhibitor must survive before it counts as granted (seconds).
    double inhibitorGrace = 0.1;

    class Inhibitor;

private:
    std::optional<std::string> tool(const std::string& name) const;

    std::string root_;
    std::map<std::uint32_t, std::unique_ptr<Inhibitor>> inhibitors_;
    std::uint32_t nextId_ = 1;
};

// power-profiles-daemon's profile as a battery setting: "lowpowermode" is 1 for
// "power-saver", else 0; "powermode" is 1 power-saver, 0 balanced, 2 performance.
std::optional<int> profileSetting(const std::string& profile, const std::string& key);

}  // namespace duskwell
