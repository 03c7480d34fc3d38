#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "power/power_sources_linux.h"

namespace fs = std::filesystem;

namespace duskwell {
namespace {

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

// The first line of a sysfs attribute, trimmed; nothing when unreadable or empty.
std::optional<std::string> attribute(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    line = trim(line);
    if (line.empty()) return std::nullopt;
    return line;
}

std::optional<std::int64_t> integerAttribute(const fs::path& file) {
    const auto text = attribute(file);
    if (!text) return std::nullopt;
    std::size_t used = 0;
    try {
        const long long v = std::stoll(*text, &used);
        if (used != text->size()) return std::nullopt;
        return v;
    } catch (...) {
        return std::nullopt;
    }
}

// Directory entries sorted by name, so readings do not depend on the kernel's order.
std::vector<fs::path> sortedEntries(const fs::path& dir) {
    std::vector<fs::path> out;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) out.push_back(it->path());
    std::sort(out.begin(), out.end());
    return out;
}

bool isExternalSupply(const std::string& type) { return type == "Mains" || type.rfind("USB", 0) == 0; }

std::optional<PowerSourceDescription> describeBattery(const fs::path& dir, bool externalOnline) {
    // Batteries of mice and keyboards report scope "Device"; a battery slot may be empty.
    if (attribute(dir / "scope") == "Device") return std::nullopt;
    if (integerAttribute(dir / "present") == 0) return std::nullopt;

    PowerSourceDescription d;
    d["Type"] = std::string("InternalBattery");

    const auto capacity = integerAttribute(dir / "capacity");
    const auto energyNow = integerAttribute(dir / "energy_now");
    const auto energyFull = integerAttribute(dir / "energy_full");
    const auto chargeNow = integerAttribute(dir / "charge_now");
    const auto chargeFull = integerAttribute(dir / "charge_full");
    if (capacity && *capacity >= 0 && *capacity <= 100) {
        d["Current Capacity"] = *capacity;
        d["Max Capacity"] = std::int64_t{100};
    } else if (energyNow && energyFull && *energyNow >= 0) {
        d["Current Capacity"] = *energyNow;
        d["Max Capacity"] = *energyFull;
    } else if (chargeNow && chargeFull && *chargeNow >= 0) {
        d["Current Capacity"] = *chargeNow;
        d["Max Capacity"] = *chargeFull;
    }

    // "Discharging" is decisive; "Charging" means an adapter even if no supply says so;
    // "Full", "Not charging" and "Unknown" follow whether any adapter is online.
    const auto status = attribute(dir / "status").value_or("");
    const bool onBattery = status == "Discharging" || (status != "Charging" && !externalOnline);
    d["Power Source State"] = std::string(onBattery ? "Battery Power" : "AC Power");
    d["Is Charging"] = status == "Charging";

    if (onBattery) {
        std::optional<std::int64_t> minutes;
        if (const auto seconds = integerAttribute(dir / "time_to_empty_now"); seconds && *seconds > 0) {
            minutes = *seconds / 60;
        } else {
            const auto powerNow = integerAttribute(dir / "power_now");
            const auto currentNow = integerAttribute(dir / "current_now");
            // Some drivers report the draw as a negative number while discharging.
            if (energyNow && powerNow && *powerNow != 0)
                minutes = std::llround(static_cast<double>(*energyNow) / std::llabs(*powerNow) * 60.0);
            else if (chargeNow && currentNow && *currentNow != 0)
                minutes = std::llround(static_cast<double>(*chargeNow) / std::llabs(*currentNow) * 60.0);
        }
        if (minutes) d["Time to Empty"] = *minutes;
    }
    return d;
}

}  // namespace

std::vector<PowerSourceDescription> describeUPower(const UPowerReading& up) {
    if (!up.batteryPresent) return {};
    PowerSourceDescription d;
    d["Type"] = std::string("InternalBattery");
    if (up.percent && *up.percent >= 0 && *up.percent <= 100) {
        d["Current Capacity"] = static_cast<std::int64_t>(std::llround(*up.percent));
        d["Max Capacity"] = std::int64_t{100};
    }
    d["Power Source State"] = std::string(up.onBattery ? "Battery Power" : "AC Power");
    d["Is Charging"] = up.charging;
    if (up.onBattery && up.secondsToEmpty) d["Time to Empty"] = *up.secondsToEmpty / 60;
    return {d};
}

LinuxPowerSources::LinuxPowerSources(std::string root) : root_(std::move(root)) {}
LinuxPowerSources::~LinuxPowerSources() = default;

std::optional<std::vector<PowerSourceDescription>> LinuxPowerSources::powerSources() {
    if (const auto up = system_.upower(SystemBusClient::UPowerPart::battery)) return describeUPower(*up);
    const fs::path base = fs::path(root_) / "sys/class/power_supply";
    std::error_code ec;
    if (!fs::is_directory(base, ec)) return std::nullopt;
    const auto supplies = sortedEntries(base);

    // Adapters first: a battery's state depends on whether any of them is online.
    bool externalOnline = false;
    for (const auto& dir : supplies)
        if (isExternalSupply(attribute(dir / "type").value_or("")) && integerAttribute(dir / "online") == 1)
            externalOnline = true;

    std::vector<PowerSourceDescription> out;
    for (const auto& dir : supplies) {
        if (attribute(dir / "type") != "Battery") continue;
        if (auto d = describeBattery(dir, externalOnline)) out.push_back(std::move(*d));
    }
    return out;
}

std::optional<bool> LinuxPowerSources::lidClosed() {
    if (const auto up = system_.upower(SystemBusClient::UPowerPart::lidAndLine); up && up->lidClosed) return up->lidClosed;
    for (const auto& dir : sortedEntries(fs::path(root_) / "proc/acpi/button/lid")) {
        const auto line = attribute(dir / "state");  // "state:      open"
        if (!line || line->rfind("state:", 0) != 0) continue;
        const std::string value = trim(line->substr(6));
        if (value == "closed") return true;
        if (value == "open") return false;
    }
    return std::nullopt;
}

std::optional<std::vector<DisplayInfo>> LinuxPowerSources::onlineDisplays() { return std::nullopt; }

void LinuxPowerSources::displaySleepNow() {}

int LinuxPowerSources::thermalState() {
    int worst = 0;
    for (const auto& zone : sortedEntries(fs::path(root_) / "sys/class/thermal")) {
        if (zone.filename().string().rfind("thermal_zone", 0) != 0) continue;
        if (attribute(zone / "mode") == "disabled") continue;
        const auto temp = integerAttribute(zone / "temp");
        if (!temp) continue;
        for (int n = 0; n < 32; ++n) {
            const std::string prefix = "trip_point_" + std::to_string(n) + "_";
            const auto type = attribute(zone / (prefix + "type"));
            if (!type) break;
            const auto at = integerAttribute(zone / (prefix + "temp"));
            if (!at || *at <= 0 || *temp < *at) continue;  // a trip at or below 0 is unset
            int level = 0;
            if (*type == "critical") level = 3;
            else if (*type == "hot") level = 2;
            else if (*type == "passive") level = 1;
            worst = std::max(worst, level);
        }
    }
    return worst;
}

void LinuxPowerSources::observeThermalState(std::function<void(int)>) {}

bool LinuxPowerSources::sleepDisabled() {
    std::ifstream in(fs::path(root_) / "run/systemd/logind.conf.d/duskwell.conf");
    for (std::string line; std::getline(in, line);) {
        line = trim(line);
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        if (trim(line.substr(0, eq)) == "HandleLidSwitch" && trim(line.substr(eq + 1)) == "ignore") return true;
    }
    return false;
}

std::optional<int> profileSetting(const std::string& profile, const std::string& key) {
    if (profile != "power-saver" && profile != "balanced" && profile != "performance") return std::nullopt;
    if (key == "lowpowermode") return profile == "power-saver" ? 1 : 0;
    if (key == "powermode") {
        if (profile == "power-saver") return 1;
        if (profile == "performance") return 2;
        return 0;
    }
    return std::nullopt;
}

std::optional<int> LinuxPowerSources::batterySetting(const std::string& key) {
    if (key != "lowpowermode" && key != "powermode") return std::nullopt;
    const auto profile = system_.powerProfile();
    if (!profile) return std::nullopt;
    return profileSetting(*profile, key);
}

std::optional<std::uint32_t> LinuxPowerSources::createIdleAssertion(const std::string& name) {
    auto lock = system_.inhibit("idle:sleep", "Duskwell", name, "block");
    if (!lock) return std::nullopt;  // logind refused or is not running
    const std::uint32_t id = nextId_++;
    inhibitors_.emplace(id, std::move(*lock));
    return id;
}

void LinuxPowerSources::releaseIdleAssertion(std::uint32_t id) { inhibitors_.erase(id); }

bool LinuxPowerSources::screenLockAvailable() {
    return system_.logindAvailable() || session_.screenSaverAvailable();
}

void LinuxPowerSources::lockScreen() {
    if (!system_.lockSession()) session_.lockScreenSaver();
}

}  // namespace duskwell
