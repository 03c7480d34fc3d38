#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/desktop_bus.h"
#include "core/platform.h"

namespace duskwell {

// The user's session on Linux.
//  - home from $HOME, else the password database; user name from the password database;
//  - languages from LANGUAGE (a colon list), then LC_ALL, LC_MESSAGES, LANG;
//  - resources beside the executable, then in <exe dir>/../libexec/duskwell (the install);
//  - notifications through org.freedesktop.Notifications on the session bus (authorised
//    exactly when such a service is on the bus), with buttons as notification actions;
//  - the login item as the systemd user unit ~/.config/systemd/user/duskwelld.service (or
//    the installed unit, when one starts this program), switched with
//    `systemctl --user enable|disable`; enabled means its default.target.wants link exists;
//  - URLs through xdg-open;
//  - administrator rights through pkexec, or sudo when stdin is a terminal.
// Programs are run with runCommand and looked up under `root` (usr/bin, then bin), so tests
// can point everything at stand-ins and a scripted runner.
class LinuxPlatform final : public Platform {
public:
    struct Options {
        std::string root = "/";
        std::string executable;         // empty: this process's own executable
        std::optional<bool> terminal;   // whether stdin is a terminal; nothing: ask
    };
    LinuxPlatform();
    explicit LinuxPlatform(Options options);

    std::string homeDirectory() const override;
    std::string configDirectory() const override;
    std::string userName() const override;
    int processId() const override;
    std::vector<std::string> preferredLanguages() const override;
    bool canPostNotifications() const override;
    std::string bundleIdentifier() const override { return "app.duskwell.Duskwell"; }
    std::optional<std::string> resourcePath(const std::string& name) const override;

    void requestNotificationAuthorization() override {}
    void notificationPermission(std::function<void(NotificationPermission)> completion) override;
    void postNotification(const std::string& title, const std::string& body) override;
    void postNotificationWithButtons(const std::string& title, const std::string& body,
                                     const std::vector<NotificationButton>& buttons) override;
    void setNotificationButtonHandler(std::function<void(const std::string& id)> handler) override;

    bool loginItemEnabled() const override;
    std::optional<std::string> setLoginItem(bool enabled) override;

    bool openURL(const std::string& url) override;
    AdminResult runAsAdmin(const std::string& script, const std::string& prompt) override;

    std::string unitFile() const;   // ~/.config/systemd/user/duskwelld.service
    std::string wantsLink() const;  // ~/.config/systemd/user/default.target.wants/duskwelld.service
    // The installed unit (under /etc, /usr/local/lib or /usr/lib systemd/user) that starts
    // this program, when there is one: the login item then enables it instead of writing
    // its own copy.
    std::optional<std::string> packagedUnit() const;

private:
    std::optional<std::string> tool(const std::string& name) const;
    std::string executable() const;
    bool isOwnUserUnit() const;  // ~/.config's unit is the one setLoginItem wrote
    bool stdinIsTerminal() const;
    Options options_;
    std::function<void(const std::string&)> buttonHandler_;  // main thread only
    mutable SessionBusClient session_;  // last: its pump thread stops before the rest goes
};

// The preferred languages from the locale environment: every non-empty entry of LANGUAGE,
// else the first non-empty of LC_ALL, LC_MESSAGES, LANG; "C" and "POSIX" read as "en".
// `lookup` answers a variable's value or null.
std::vector<std::string> languagesFromEnvironment(const std::function<const char*(const char*)>& lookup);

}  // namespace duskwell
