#pragma once
#include <memory>

#include "power/power_sources.h"

namespace duskwell {

// macOS power facilities: IOPowerSources, the IOPMrootDomain clamshell state, CoreGraphics
// displays, `pmset` (through runCommand), NSProcessInfo's thermal state, IOPM assertions
// and the login framework's lock call. Main thread.
class MacPowerSources final : public PowerSources {
public:
    MacPowerSources();
    ~MacPowerSources() override;

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

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace duskwell
