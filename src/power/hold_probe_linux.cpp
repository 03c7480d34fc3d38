#include "power/hold_probe_linux.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#if DUSKWELL_HAVE_SDBUS
#include <systemd/sd-bus.h>
#endif

#include "agents/proc_parsers.h"
#include "power/power_sources_linux.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;

// The helper's drop-in: a fallback when logind cannot be asked. It only shows what was
// written, not what logind loaded, so its absence proves nothing.
std::optional<bool> dropInSaysIgnore(const std::string& root) {
    std::ifstream in(fs::path(root) / "run/systemd/logind.conf.d/duskwell.conf");
    for (std::string line; std::getline(in, line);) {
        if (line.find("HandleLidSwitch=ignore") == 0) return true;
    }
    return std::nullopt;
}

#if DUSKWELL_HAVE_SDBUS

std::optional<std::string> readText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// The parent of a live process, from the real process table.
std::optional<int> parentOf(int pid) {
    const auto text = readText(fs::path("/proc") / std::to_string(pid) / "stat");
    if (!text) return std::nullopt;
    const auto stat = ProcParsers::parseStat(*text);
    if (!stat) return std::nullopt;
    return stat->ppid;
}

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";

struct BusClose {
    void operator()(sd_bus* bus) const {
        sd_bus_close(bus);
        sd_bus_unref(bus);
    }
};
struct MessageUnref {
    void operator()(sd_bus_message* m) const { sd_bus_message_unref(m); }
};
using BusPtr = std::unique_ptr<sd_bus, BusClose>;
using MessagePtr = std::unique_ptr<sd_bus_message, MessageUnref>;

class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    sd_bus_error* get() { return &error_; }

private:
    sd_bus_error error_{};  // SD_BUS_ERROR_NULL, which is a C compound literal
};

// A private connection to the system bus, authenticated and greeted within `timeout`
// microseconds (sd-bus would otherwise wait its own, much longer, time for a stalled
// daemon), whose every call then gives up after `timeout` too. Nothing when there is no bus.
BusPtr openSystemBus(std::uint64_t timeout) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(timeout);
    sd_bus* raw = nullptr;
    if (sd_bus_new(&raw) < 0) return nullptr;
    BusPtr bus(raw);
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (sd_bus_set_address(raw, address && *address ? address : "unix:path=/run/dbus/system_bus_socket") < 0)
        return nullptr;
    if (sd_bus_set_bus_client(raw, 1) < 0 || sd_bus_set_method_call_timeout(raw, timeout) < 0) return nullptr;
    if (sd_bus_start(raw) < 0) return nullptr;
    while (sd_bus_is_ready(raw) <= 0) {
        const int r = sd_bus_process(raw, nullptr);
        if (r < 0) return nullptr;
        if (r > 0) continue;
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || sd_bus_wait(raw, static_cast<std::uint64_t>(left.count())) < 0) return nullptr;
    }
    return bus;
}

std::optional<std::vector<InhibitorEntry>> listInhibitors(sd_bus* bus) {
    BusError error;
    sd_bus_message* raw = nullptr;
    if (sd_bus_call_method(bus, kLogind, kLogindPath, kLogindManager, "ListInhibitors", error.get(), &raw, "") < 0)
        return std::nullopt;
    MessagePtr reply(raw);
    if (sd_bus_message_enter_container(raw, 'a', "(ssssuu)") < 0) return std::nullopt;
    std::vector<InhibitorEntry> out;
    for (;;) {
        const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
        std::uint32_t uid = 0, pid = 0;
        const int r = sd_bus_message_read(raw, "(ssssuu)", &what, &who, &why, &mode, &uid, &pid);
        if (r < 0) return std::nullopt;
        if (r == 0) break;
        out.push_back({what, who, why, mode, uid, pid});
    }
    return out;
}

std::optional<std::string> stringProperty(sd_bus* bus, const char* service, const char* path, const char* interface,
                                          const char* name) {
    BusError error;
    char* value = nullptr;
    if (sd_bus_get_property_string(bus, service, path, interface, name, error.get(), &value) < 0) return std::nullopt;
    std::string out(value ? value : "");
    std::free(value);
    return out;
}

std::optional<std::string> activeProfile(sd_bus* bus) {
    // The current name first, then the one older power-profiles-daemon releases own.
    if (auto p = stringProperty(bus, "org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles",
                                "org.freedesktop.UPower.PowerProfiles", "ActiveProfile"))
        return p;
    return stringProperty(bus, "net.hadess.PowerProfiles", "/net/hadess/PowerProfiles", "net.hadess.PowerProfiles",
                          "ActiveProfile");
}

#endif

class LinuxHoldProbe final : public HoldProbe {
public:
    LinuxHoldProbe(std::string root, double timeout) : root_(std::move(root)), timeout_(timeout) {}

    HoldObservation observe(const HoldQuery& query) override {
        HoldObservation seen;
#if DUSKWELL_HAVE_SDBUS
        const BusPtr bus = openSystemBus(static_cast<std::uint64_t>(timeout_ * 1e6));
        if (bus && query.inhibitor) {
            if (const auto list = listInhibitors(bus.get())) {
                bool ours = false;
                for (const auto& entry : *list)
                    ours = ours || HoldFacts::isOurInhibitor(entry, query.pid, ::getuid(), parentOf);
                seen.inhibitorListed = ours;
            }
        }
        if (bus && query.lid) {
            if (const auto lid = stringProperty(bus.get(), kLogind, kLogindPath, kLogindManager, "HandleLidSwitch")) {
                seen.lidSleepDisabled = HoldFacts::lidSwitchIgnored(
                    *lid, stringProperty(bus.get(), kLogind, kLogindPath, kLogindManager, "HandleLidSwitchExternalPower"),
                    stringProperty(bus.get(), kLogind, kLogindPath, kLogindManager, "HandleLidSwitchDocked"));
            }
        }
        if (bus && query.profile) {
            if (const auto profile = activeProfile(bus.get())) {
                seen.powerMode = profileSetting(*profile, "powermode");
                seen.lowPowerMode = profileSetting(*profile, "lowpowermode");
            }
        }
#endif
        if (query.lid && !seen.lidSleepDisabled) seen.lidSleepDisabled = dropInSaysIgnore(root_);
        return seen;
    }

private:
    std::string root_;
    [[maybe_unused]] double timeout_;  // unused in a build without sd-bus
};

}  // namespace

std::unique_ptr<HoldProbe> makeLinuxHoldProbe(std::string root, double callTimeoutSeconds) {
    return std::make_unique<LinuxHoldProbe>(std::move(root), callTimeoutSeconds);
}

std::unique_ptr<HoldProbe> makePlatformHoldProbe() { return makeLinuxHoldProbe(); }

}  // namespace duskwell
