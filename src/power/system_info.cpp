#include "power/system_info.h"

#include <cmath>
#include <sstream>

#include "core/services.h"

namespace duskwell {
namespace {

PowerSources& power() { return *services().power; }

template <class V>
const V* valueAs(const PowerSourceDescription& d, const std::string& key) {
    auto it = d.find(key);
    if (it == d.end()) return nullptr;
    return std::get_if<V>(&it->second);
}

std::vector<std::string> nonEmptyLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(line);
    return lines;
}

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

std::optional<int> parseDecimal(const std::string& s) {
    if (s.empty()) return std::nullopt;
    size_t i = (s[0] == '-' || s[0] == '+') ? 1 : 0;
    if (i == s.size()) return std::nullopt;
    long long v = 0;
    for (; i < s.size(); ++i) {
        if (s[i] < '0' || s[i] > '9') return std::nullopt;
        v = v * 10 + (s[i] - '0');
        if (v > 2147483647LL) return std::nullopt;
    }
    return static_cast<int>(s[0] == '-' ? -v : v);
}

}  // namespace

BatteryInfo SystemInfo::batteryFrom(const std::optional<std::vector<PowerSourceDescription>>& sources) {
    BatteryInfo info;
    if (!sources) return info;
    for (const auto& d : *sources) {
        const auto* type = valueAs<std::string>(d, "Type");
        if (!type || *type != "InternalBattery") continue;
        // A later internal battery overwrites an earlier one, field by field.
        info.hasBattery = true;
        const auto* current = valueAs<std::int64_t>(d, "Current Capacity");
        const auto* maximum = valueAs<std::int64_t>(d, "Max Capacity");
        if (current && maximum && *maximum >= 1)
            info.percent = static_cast<int>(std::round(static_cast<double>(*current) / *maximum * 100.0));
        const auto* state = valueAs<std::string>(d, "Power Source State");
        info.onBattery = state && *state == "Battery Power";
        const auto* charging = valueAs<bool>(d, "Is Charging");
        info.charging = charging && *charging;
        if (info.onBattery) {
            const auto* left = valueAs<std::int64_t>(d, "Time to Empty");
            if (left && *left >= 1) info.minutesLeft = static_cast<int>(*left);
        }
    }
    return info;
}

DisplaySummary SystemInfo::summarizeDisplays(const std::optional<std::vector<DisplayInfo>>& displays) {
    DisplaySummary s;
    if (!displays) return s;
    const size_t n = std::min<size_t>(displays->size(), 16);
    for (size_t i = 0; i < n; ++i) {
        const auto& d = (*displays)[i];
        if (!d.builtin) s.hasExternal = true;
        else if (!d.asleep && d.active) s.builtinAwake = true;
    }
    return s;
}

bool SystemInfo::parseSleepDisabled(const std::string& pmsetOutput) {
    for (const auto& line : nonEmptyLines(pmsetOutput)) {
        if (line.find("SleepDisabled") == std::string::npos) continue;
        const std::string t = trim(line);
        return !t.empty() && t.back() == '1';
    }
    return false;
}

std::optional<int> SystemInfo::parseBatterySetting(const std::string& output, const std::string& key) {
    bool inBattery = false;
    for (const auto& line : nonEmptyLines(output)) {
        if (line[0] != ' ') {
            inBattery = line.rfind("Battery Power", 0) == 0;
            continue;
        }
        if (!inBattery) continue;
        std::vector<std::string> pieces;
        std::string piece;
        for (char ch : line) {
            if (ch == ' ' || ch == '\t') {
                if (!piece.empty()) pieces.push_back(std::move(piece));
                piece.clear();
            } else {
                piece += ch;
            }
        }
        if (!piece.empty()) pieces.push_back(std::move(piece));
        if (pieces.size() >= 2 && pieces.front() == key) {
            std::string last = pieces.back();
            if (!last.empty() && last.back() == '\r') last.pop_back();
            return parseDecimal(last);
        }
    }
    return std::nullopt;
}

BatteryInfo SystemInfo::battery() { return batteryFrom(power().powerSources()); }
std::optional<bool> SystemInfo::lidClosed() { return power().lidClosed(); }
bool SystemInfo::sleepDisabled() { return power().sleepDisabled(); }
std::optional<int> SystemInfo::batterySetting(const std::string& key) { return power().batterySetting(key); }
void SystemInfo::displaySleepNow() { power().displaySleepNow(); }
DisplaySummary SystemInfo::displays() { return summarizeDisplays(power().onlineDisplays()); }
int SystemInfo::thermalState() { return power().thermalState(); }

bool ScreenLock::available() { return power().screenLockAvailable(); }
void ScreenLock::lock() { power().lockScreen(); }

void IdleAssertion::acquire() {
    if (held_) return;
    if (auto id = power().createIdleAssertion(name)) {
        id_ = *id;
        held_ = true;
    }
}

void IdleAssertion::release() {
    if (!held_) return;
    power().releaseIdleAssertion(id_);
    held_ = false;
}

}  // namespace duskwell
