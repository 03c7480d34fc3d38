#include "core/json_file_settings.h"
#include "core/neutral_services.h"
#include "core/platform_linux.h"
#include "core/real_services.h"
#include "core/system_clock.h"
#include "power/command_runner_posix.h"
#include "power/power_sources_linux.h"

namespace duskwell {

struct RealServices::Impl {
    explicit Impl(Dispatcher& dispatcher)
        : settings(platform.homeDirectory() + "/.duskwell/settings.json"),
          http(makePlatformHttpClient()),
          processes(makePlatformProcessSource()) {
        if (!http) http = std::make_unique<UnavailableHttpClient>(dispatcher);
        if (!processes) processes = std::make_unique<EmptyProcessSource>();
        set.clock = &clock;
        set.dispatcher = &dispatcher;
        set.commands = &commands;
        set.power = &power;
        set.settings = &settings;
        set.platform = &platform;
        set.http = http.get();
        set.processes = processes.get();
        scope = std::make_unique<ServicesScope>(set);
    }

    // Declared in the order they are needed: the settings file lives in the platform's home.
    SystemClock clock;
    PosixCommandRunner commands;
    LinuxPowerSources power;
    LinuxPlatform platform;
    JsonFileSettings settings;
    std::unique_ptr<HttpClient> http;
    std::unique_ptr<ProcessSource> processes;
    Services set;
    std::unique_ptr<ServicesScope> scope;  // last: uninstalled first
};

RealServices::RealServices(Dispatcher& dispatcher) : impl_(std::make_unique<Impl>(dispatcher)) {}
RealServices::~RealServices() = default;
const Services& RealServices::installed() const { return impl_->set; }

}  // namespace duskwell
