#pragma once
#include <string>
#include <string_view>

namespace duskwell {

// Static configuration. Paths under the home folder follow the installed Platform's home
// (a temporary one in tests).
namespace AppConfig {

inline constexpr std::string_view name = "Duskwell";
std::string version();

std::string supportDir();   // ~/.duskwell
std::string sessionsDir();  // ~/.duskwell/sessions
std::string hookScript();   // ~/.duskwell/hook
std::string statusFile();   // ~/.duskwell/status.json
std::string controlSocket();  // ~/.duskwell/control.sock
std::string watchdogToken();  // ~/.duskwell/watchdog: the running watchdog's token

// Privileged helper and its sudoers rule. macOS: /Library/PrivilegedHelperTools/...;
// Linux: /usr/local/libexec/duskwell-power (root-owned, outside any user's reach).
std::string helperPath();
std::string sudoersPath();

std::string website();         // product website, no trailing slash
std::string versionFeedURL();  // website + "/version.json"
std::string ntfyServer();      // public ntfy server, no trailing slash

// Programs the app runs. Test builds point them at recording stand-ins through the
// DUSKWELL_TEST_* environment variables (see docs/ARCHITECTURE.md); normal use never
// sets them.
std::string sudoPath();                 // /usr/bin/sudo
std::string sleepNowProgram();          // macOS /usr/bin/pmset, Linux /usr/bin/systemctl
std::string sleepNowArgument();         // macOS "sleepnow", Linux "suspend"

inline constexpr double idleGrace = 600;
// The longest period anything may ask for (a timer, the auto cap, an extension): an end
// further out is clamped to it, so a huge number can never wrap into the past.
inline constexpr int maxPeriodMinutes = 7 * 24 * 60;
inline constexpr double idleWarnBefore = 60;

// A DUSKWELL_TEST_<name> override from the environment, or the fallback.
std::string testOverride(const char* name, std::string fallback);

}  // namespace AppConfig
}  // namespace duskwell
