#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace duskwell {

// Outcome of running a shell script with administrator rights.
enum class AdminOutcome { succeeded, cancelled, failed };
struct AdminResult {
    AdminOutcome outcome = AdminOutcome::failed;
    std::string message;  // the failure's text, for `failed`
};

enum class NotificationPermission { notDetermined, denied, authorized, provisional };

// A button on a notification; `id` comes back through the button handler when it is picked.
struct NotificationButton {
    std::string id;
    std::string label;
};

// Everything about the user's session that is neither power nor processes: who and where
// we are, notifications, the login item, opening URLs, asking for administrator rights.
// Every operation answers neutrally when the facility is missing.
class Platform {
public:
    virtual ~Platform() = default;

    virtual std::string homeDirectory() const = 0;
    // Where the user's tools keep their settings by the XDG convention (OpenCode does, on
    // macOS too): $XDG_CONFIG_HOME where the platform honours it, else ~/.config.
    virtual std::string configDirectory() const { return homeDirectory() + "/.config"; }
    virtual std::string userName() const = 0;
    virtual int processId() const = 0;
    // The user's preferred language tags, most preferred first ("ko-KR", "en_US.UTF-8").
    virtual std::vector<std::string> preferredLanguages() const = 0;
    // Whether this process may post local notifications: on macOS only from an application
    // bundle (the notification centre aborts outside one); on Linux when a
    // notification service is on the session bus.
    virtual bool canPostNotifications() const = 0;
    virtual std::string bundleIdentifier() const = 0;
    // Path of a program shipped beside the executable ("duskwell-hook", "duskwell-cli",
    // "duskwell-power"), or nothing when it is missing.
    virtual std::optional<std::string> resourcePath(const std::string& name) const = 0;

    // Local notifications. Completions may run on any thread.
    virtual void requestNotificationAuthorization() = 0;
    virtual void notificationPermission(std::function<void(NotificationPermission)> completion) = 0;
    virtual void postNotification(const std::string& title, const std::string& body) = 0;
    // The same with buttons, where the platform shows them; elsewhere the buttons are left off.
    virtual void postNotificationWithButtons(const std::string& title, const std::string& body,
                                             const std::vector<NotificationButton>& buttons) {
        (void)buttons;
        postNotification(title, body);
    }
    // Who hears a picked button (its id); runs on the main thread. Empty: nobody.
    virtual void setNotificationButtonHandler(std::function<void(const std::string& id)> handler) { (void)handler; }

    // Login item: registered or not; `setLoginItem` answers the error text when it fails.
    virtual bool loginItemEnabled() const = 0;
    virtual std::optional<std::string> setLoginItem(bool enabled) = 0;

    virtual bool openURL(const std::string& url) = 0;

    // Runs one shell script as root after asking the user (blocks while the prompt shows).
    virtual AdminResult runAsAdmin(const std::string& script, const std::string& prompt) = 0;
};

}  // namespace duskwell
