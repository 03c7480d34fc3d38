#pragma once
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

}  // namespace PowerHelper
}  // namespace duskwell
