#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/platform.h"

namespace duskwell {

// The desktop's D-Bus services that Duskwell talks to on Linux, in process (sd-bus). Every
// operation answers neutrally (nothing, false) when the bus or the service is missing, and
// none waits longer than a short call timeout. Builds without libsystemd get the neutral
// answers throughout.

// An open file descriptor, closed when the owner goes.
class OwnedFd {
public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd_(fd) {}
    ~OwnedFd();
    OwnedFd(OwnedFd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    OwnedFd& operator=(OwnedFd&& other) noexcept;
    int get() const { return fd_; }

private:
    int fd_ = -1;
};

// What UPower says about the machine's power.
struct UPowerReading {
    bool onBattery = false;
    std::optional<bool> lidClosed;            // nothing when the machine has no lid
    bool batteryPresent = false;              // the display device is a present battery
    std::optional<double> percent;
    std::optional<std::int64_t> secondsToEmpty;
    bool charging = false;
};

// logind, power-profiles-daemon and UPower on the system bus. One connection, opened on
// first use and again after the bus went away. Calls may come from any thread.
class SystemBusClient {
public:
    SystemBusClient();
    ~SystemBusClient();
    SystemBusClient(const SystemBusClient&) = delete;
    SystemBusClient& operator=(const SystemBusClient&) = delete;

    // logind's Inhibit: the lock lasts as long as the returned descriptor is open (our death
    // closes it too). `what` like "idle:sleep", `mode` "block" or "delay".
    std::optional<OwnedFd> inhibit(const std::string& what, const std::string& who, const std::string& why,
                                   const std::string& mode);
    // power-profiles-daemon's ActiveProfile ("power-saver", "balanced", "performance").
    // Changing it is the root helper's job (docs/power.md).
    std::optional<std::string> powerProfile();
    // Locks this user's session through logind (XDG_SESSION_ID, else our own session, else
    // the user's display session). False when logind refused or is not there.
    bool lockSession();
    bool logindAvailable();
    // `battery` also reads the display device (a second call).
    enum class UPowerPart { lidAndLine, battery };
    std::optional<UPowerReading> upower(UPowerPart part);

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// org.freedesktop.Notifications and org.freedesktop.ScreenSaver on the session bus.
class SessionBusClient {
public:
    SessionBusClient();
    ~SessionBusClient();
    SessionBusClient(const SessionBusClient&) = delete;
    SessionBusClient& operator=(const SessionBusClient&) = delete;

    // Whether a notification service is on the bus now.
    bool notificationsAvailable();
    // Posts a notification; `onButton` runs on the bus's pump thread (not the caller's)
    // with the id of the button the user picked. False when nothing was shown.
    bool notify(const std::string& appName, const std::string& title, const std::string& body,
                const std::vector<NotificationButton>& buttons, std::function<void(const std::string&)> onButton);
    bool screenSaverAvailable();
    bool lockScreenSaver();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// Listens for logind's PrepareForShutdown(true) on the system bus. `onNotice` runs on the
// bus's pump thread; the owner hops to its own queue. `listening` is false when there is no
// system bus (the daemon then relies on SIGTERM alone).
class ShutdownNotice {
public:
    explicit ShutdownNotice(std::function<void()> onNotice);
    ~ShutdownNotice();
    ShutdownNotice(const ShutdownNotice&) = delete;
    ShutdownNotice& operator=(const ShutdownNotice&) = delete;
    bool listening() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace duskwell
