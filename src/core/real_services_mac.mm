#include "core/settings_store_mac.h"
#include "core/neutral_services.h"
#include "core/platform_mac.h"
#include "core/real_services.h"
#include "core/system_clock.h"
#include "power/command_runner_posix.h"
#include "power/power_sources_mac.h"

namespace duskwell {

struct RealServices::Impl {
    explicit Impl(Dispatcher& dispatcher)
        : http(makePlatformHttpClient()),
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

    SystemClock clock;
    PosixCommandRunner commands;
    MacPowerSources power;
    MacPlatform platform;
    UserDefaultsSettings settings;
    std::unique_ptr<HttpClient> http;
    std::unique_ptr<ProcessSource> processes;
    Services set;
    std::unique_ptr<ServicesScope> scope;  // last: uninstalled first
};

RealServices::RealServices(Dispatcher& dispatcher) : impl_(std::make_unique<Impl>(dispatcher)) {}
RealServices::~RealServices() = default;
const Services& RealServices::installed() const { return impl_->set; }

}  // namespace duskwell
