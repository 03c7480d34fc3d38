#include "core/app_config.h"

#include <cstdlib>

#include "core/platform.h"
#include "core/services.h"
#include "duskwell_version.h"

namespace duskwell::AppConfig {

std::string version() { return DUSKWELL_VERSION; }

std::string testOverride([[maybe_unused]] const char* name, std::string fallback) {
#if DUSKWELL_TEST_OVERRIDES
    const std::string var = std::string("DUSKWELL_TEST_") + name;
    const char* v = std::getenv(var.c_str());
    return (v && *v) ? std::string(v) : fallback;
#else
    return fallback;  // a release build: nothing from the environment can redirect root's commands
#endif
}

std::string supportDir() { return services().platform->homeDirectory() + "/.duskwell"; }
std::string sessionsDir() { return supportDir() + "/sessions"; }
std::string hookScript() { return supportDir() + "/hook"; }
std::string statusFile() { return supportDir() + "/status.json"; }
std::string controlSocket() { return supportDir() + "/control.sock"; }
std::string watchdogToken() { return supportDir() + "/watchdog"; }

std::string helperPath() {
#ifdef __APPLE__
    return testOverride("HELPER", "/Library/PrivilegedHelperTools/duskwell-power");
#else
    return testOverride("HELPER", "/usr/local/libexec/duskwell-power");
#endif
}

std::string sudoersPath() { return "/etc/sudoers.d/duskwell"; }

std::string website() { return "https://duskwell.app"; }
std::string versionFeedURL() { return testOverride("FEED", website() + "/version.json"); }
std::string ntfyServer() { return testOverride("NTFY", "https://ntfy.sh"); }

std::string sudoPath() { return testOverride("SUDO", "/usr/bin/sudo"); }

std::string sleepNowProgram() {
#ifdef __APPLE__
    return testOverride("SLEEP", "/usr/bin/pmset");
#else
    return testOverride("SLEEP", "/usr/bin/systemctl");
#endif
}

std::string sleepNowArgument() {
#ifdef __APPLE__
    return "sleepnow";
#else
    return "suspend";
#endif
}

}  // namespace duskwell::AppConfig
