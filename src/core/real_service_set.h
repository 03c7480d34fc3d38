#pragma once
// The part of every composition root that does not depend on the operating system: which
// services exist, their order of construction, and their installation.
#include <memory>

#include "agents/process_table.h"
#include "core/neutral_services.h"
#include "core/services.h"
#include "core/settings_store.h"
#include "core/system_clock.h"
#include "phone/http_client.h"
#include "power/hold_probe.h"
#include "power/command_runner_posix.h"

namespace duskwell {

template <class PowerSourcesT, class PlatformT>
struct RealServiceSet {
    // `makeSettings` may read the platform (the settings file lives in its home folder).
    template <class MakeSettings>
    RealServiceSet(Dispatcher& dispatcher, MakeSettings makeSettings)
        : settings(makeSettings(platform)), http(makePlatformHttpClient()), processes(makePlatformProcessSource()),
          hold(makePlatformHoldProbe()) {
        if (!http) http = std::make_unique<UnavailableHttpClient>(dispatcher);
        if (!processes) processes = std::make_unique<EmptyProcessSource>();
        set.clock = &clock;
        set.dispatcher = &dispatcher;
        set.commands = &commands;
        set.power = &power;
        set.settings = settings.get();
        set.platform = &platform;
        set.http = http.get();
        set.processes = processes.get();
        set.hold = hold.get();
        scope = std::make_unique<ServicesScope>(set);
    }

    // Declared in the order they are needed.
    SystemClock clock;
    PosixCommandRunner commands;
    PowerSourcesT power;
    PlatformT platform;
    std::unique_ptr<SettingsStore> settings;
    std::unique_ptr<HttpClient> http;
    std::unique_ptr<ProcessSource> processes;
    std::unique_ptr<HoldProbe> hold;
    Services set;
    std::unique_ptr<ServicesScope> scope;  // last: uninstalled first
};

}  // namespace duskwell
