#include "power/hold_probe.h"

#include <string_view>

#include "core/app_config.h"

namespace duskwell {
namespace {

bool hasToken(std::string_view list, std::string_view token) {
    while (!list.empty()) {
        const auto colon = list.find(':');
        if (list.substr(0, colon) == token) return true;
        if (colon == std::string_view::npos) break;
        list.remove_prefix(colon + 1);
    }
    return false;
}

}  // namespace

bool HoldFacts::isOurInhibitor(const InhibitorEntry& e, int pid, std::uint32_t uid,
                               const std::function<std::optional<int>(int)>& parentOf) {
    if (e.mode != "block") return false;  // a delay lock keeps nothing awake
    if (!hasToken(e.what, "idle") && !hasToken(e.what, "sleep")) return false;
    if (pid > 0 && e.pid == static_cast<std::uint32_t>(pid)) return true;
    if (pid > 0 && e.pid > 0 && parentOf && parentOf(static_cast<int>(e.pid)) == pid) return true;
    return e.who == AppConfig::name && e.uid == uid;
}

bool HoldFacts::lidSwitchIgnored(const std::string& handleLidSwitch, const std::optional<std::string>& externalPower,
                                 const std::optional<std::string>& docked) {
    return handleLidSwitch == "ignore" && externalPower.value_or("ignore") == "ignore" &&
           docked.value_or("ignore") == "ignore";
}

}  // namespace duskwell
