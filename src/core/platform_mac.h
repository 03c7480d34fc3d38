#pragma once
#include "core/platform.h"

namespace duskwell {

// The application's bundle identifier (CFBundleIdentifier, set in src/app/mac/CMakeLists.txt).
// Processes outside the bundle (the terminal command) use it to reach the app's settings.
inline constexpr const char* kMacBundleIdentifier = "app.duskwell.Duskwell";

// The user's session on macOS: Foundation for who and where, the main bundle for resources,
// UserNotifications (only from an installed bundle), SMAppService for the login item,
// NSWorkspace for URLs and NSAppleScript for the administrator prompt.
class MacPlatform final : public Platform {
public:
    std::string homeDirectory() const override;
    std::string userName() const override;
    int processId() const override;
    std::vector<std::string> preferredLanguages() const override;
    bool canPostNotifications() const override;
    std::string bundleIdentifier() const override;
    std::optional<std::string> resourcePath(const std::string& name) const override;
    void requestNotificationAuthorization() override;
    void notificationPermission(std::function<void(NotificationPermission)> completion) override;
    void postNotification(const std::string& title, const std::string& body) override;
    bool loginItemEnabled() const override;
    std::optional<std::string> setLoginItem(bool enabled) override;
    bool openURL(const std::string& url) override;
    AdminResult runAsAdmin(const std::string& script, const std::string& prompt) override;
};

}  // namespace duskwell
