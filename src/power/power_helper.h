#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace duskwell {

// The root-owned helper that changes the power settings, run through `sudo -n`.
namespace PowerHelper {

// An install or uninstall failure, with the user-facing text in the app's language.
class InstallError {
public:
    enum class Case { failed, badUser, missingResource, cancelled };
    static InstallError failed(std::string message) { return {Case::failed, std::move(message)}; }
    static InstallError badUser() { return {Case::badUser, {}}; }
    static InstallError missingResource() { return {Case::missingResource, {}}; }
    static InstallError cancelled() { return {Case::cancelled, {}}; }

    Case kind() const { return case_; }
    const std::string& message() const { return message_; }
    std::string localizedDescription() const;
    bool operator==(const InstallError&) const = default;

private:
    InstallError(Case c, std::string m) : case_(c), message_(std::move(m)) {}
    Case case_;
    std::string message_;
};

std::string helperPath();
std::string sudoersPath();
bool isInstalled();
// Runs the helper with `arguments`; logs one line and answers false when it fails.
bool run(const std::vector<std::string>& arguments);
// Nothing on success.
std::optional<InstallError> install();
std::optional<InstallError> uninstall();
std::string installScript(const std::string& user, const std::string& source);
std::string adminScriptSource(const std::string& script, const std::string& prompt);

// Name of the helper program shipped beside the executable.
inline constexpr const char* resourceName = "duskwell-power";

// Where one system keeps the helper, its sudoers rule and the former product's files.
// SHA-256 of the helper this build ships (computed when the build is configured).
std::string expectedHelperSha256();

struct InstallLayout {
    std::string helper;        // installed helper (its folder is created when missing)
    std::string sudoers;       // the sudoers rule
    std::string group;         // group owning both files
    std::string formerRule;    // removed on every install so two rules never coexist
    std::string formerHelper;
    std::string hashTool;      // prints "<sha256>  <file>"
    std::string helperSha256 = expectedHelperSha256();  // what the copied helper must hash to
};
InstallLayout macLayout();
InstallLayout linuxLayout();
// This system's layout, with `helperPath()` and `sudoersPath()`.
InstallLayout currentLayout();
std::string installScript(const InstallLayout& layout, const std::string& user, const std::string& source);

// The login names admitted into the sudoers line: ^[A-Za-z0-9._-]+$.
bool isValidUserName(const std::string& user);
// An argument list as the failure log shows it: ["lowpower", "0"].
std::string formatArguments(const std::vector<std::string>& arguments);

// A watchdog acts only while `file` still holds `token`: the next launch of the app
// removes the file first, so a late watchdog of a killed run never undoes a new period.
struct WatchdogGuard {
    std::string file;
    std::string token;  // [0-9a-f]
};

// The detached shell that waits for process `pid` to end, then gives lid sleep back and
// writes back the recorded performance values. Uses `AppConfig::sudoPath()` (which is
// /usr/bin/sudo outside tests) and `helperPath()`, both quoted.
std::string watchdogScript(int pid, std::optional<std::int64_t> lowPower,
                           std::optional<std::int64_t> powerMode,
                           const std::optional<WatchdogGuard>& guard = std::nullopt);

// Single-quotes `text` for the shell: ' becomes '\'' inside the quotes.
std::string shellQuote(const std::string& text);

}  // namespace PowerHelper
}  // namespace duskwell
