#include "core/desktop_bus.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <variant>

#if DUSKWELL_HAVE_SDBUS
#include "core/dbus_connection_linux.h"
#endif

namespace duskwell {

OwnedFd::~OwnedFd() {
    if (fd_ >= 0) ::close(fd_);
}

OwnedFd& OwnedFd::operator=(OwnedFd&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

#if DUSKWELL_HAVE_SDBUS

namespace {

constexpr const char* logind = "org.freedesktop.login1";
constexpr const char* logindPath = "/org/freedesktop/login1";
constexpr const char* logindManager = "org.freedesktop.login1.Manager";
constexpr const char* upowerName = "org.freedesktop.UPower";
constexpr const char* notifications = "org.freedesktop.Notifications";
constexpr const char* notificationsPath = "/org/freedesktop/Notifications";

// power-profiles-daemon's old name first; newer releases also answer under UPower's.
struct ProfileService {
    const char* name;
    const char* path;
};
constexpr ProfileService profileServices[] = {
    {"net.hadess.PowerProfiles", "/net/hadess/PowerProfiles"},
    {"org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles"},
};

using Value = std::variant<bool, double, std::int64_t, std::uint32_t, std::string>;

// The reply of Properties.GetAll, keeping the types Duskwell reads and skipping the rest.
std::map<std::string, Value> readProperties(sd_bus_message* m) {
    std::map<std::string, Value> out;
    if (sd_bus_message_enter_container(m, 'a', "{sv}") < 0) return out;
    while (sd_bus_message_enter_container(m, 'e', "sv") > 0) {
        const char* key = nullptr;
        if (sd_bus_message_read(m, "s", &key) < 0) break;
        char type = 0;
        const char* contents = nullptr;
        if (sd_bus_message_peek_type(m, &type, &contents) < 0 || !contents) break;
        const std::string name = key;
        bool kept = true;
        if (sd_bus_message_enter_container(m, 'v', contents) < 0) break;
        switch (contents[0]) {
            case 'b': {
                int v = 0;
                kept = sd_bus_message_read(m, "b", &v) >= 0;
                if (kept) out[name] = v != 0;
                break;
            }
            case 'd': {
                double v = 0;
                kept = sd_bus_message_read(m, "d", &v) >= 0;
                if (kept) out[name] = v;
                break;
            }
            case 'x': {
                std::int64_t v = 0;
                kept = sd_bus_message_read(m, "x", &v) >= 0;
                if (kept) out[name] = v;
                break;
            }
            case 'u': {
                std::uint32_t v = 0;
                kept = sd_bus_message_read(m, "u", &v) >= 0;
                if (kept) out[name] = v;
                break;
            }
            case 's': {
                const char* v = nullptr;
                kept = sd_bus_message_read(m, "s", &v) >= 0;
                if (kept) out[name] = std::string(v ? v : "");
                break;
            }
            default:
                kept = sd_bus_message_skip(m, contents) >= 0;
        }
        if (!kept || sd_bus_message_exit_container(m) < 0 || sd_bus_message_exit_container(m) < 0) break;
    }
    return out;
}

template <class T>
std::optional<T> get(const std::map<std::string, Value>& values, const std::string& key) {
    const auto it = values.find(key);
    if (it == values.end()) return std::nullopt;
    if (const T* v = std::get_if<T>(&it->second)) return *v;
    return std::nullopt;
}

// A connection opened on first use and again once the bus has gone away.
class LazyBus {
public:
    explicit LazyBus(dbus::Bus bus, std::function<void()> beforeReopen = {})
        : bus_(bus), beforeReopen_(std::move(beforeReopen)) {}
    dbus::Connection* get() {
        std::lock_guard lock(mutex_);
        if (connection_ && !connection_->isOpen()) {
            if (beforeReopen_) beforeReopen_();  // subscriptions go before their connection
            connection_.reset();
        }
        if (!connection_) connection_ = dbus::Connection::open(bus_);
        return connection_.get();
    }

private:
    dbus::Bus bus_;
    std::function<void()> beforeReopen_;
    std::mutex mutex_;
    std::unique_ptr<dbus::Connection> connection_;
};

std::optional<std::map<std::string, Value>> getAll(dbus::Connection& c, const char* name, const char* path,
                                                   const char* interface) {
    auto reply = c.call(name, path, "org.freedesktop.DBus.Properties", "GetAll",
                        [interface](sd_bus_message* m) { return sd_bus_message_append(m, "s", interface); });
    if (!reply) return std::nullopt;
    return readProperties(reply.get());
}

}  // namespace

// ---- system bus ----

struct SystemBusClient::Impl {
    LazyBus bus{dbus::Bus::system};

    // The object path of the session to lock: XDG_SESSION_ID's, ours, else the user's
    // display session (a user service belongs to no session of its own).
    std::optional<std::string> sessionPath(dbus::Connection& c) {
        auto readPath = [](const dbus::MessagePtr& reply) -> std::optional<std::string> {
            const char* path = nullptr;
            if (!reply || sd_bus_message_read(reply.get(), "o", &path) < 0 || !path) return std::nullopt;
            return std::string(path);
        };
        if (const char* id = std::getenv("XDG_SESSION_ID"); id && *id) {
            if (auto p = readPath(c.call(logind, logindPath, logindManager, "GetSession",
                                         [id](sd_bus_message* m) { return sd_bus_message_append(m, "s", id); })))
                return p;
        }
        const std::uint32_t pid = static_cast<std::uint32_t>(::getpid());
        if (auto p = readPath(c.call(logind, logindPath, logindManager, "GetSessionByPID",
                                     [pid](sd_bus_message* m) { return sd_bus_message_append(m, "u", pid); })))
            return p;
        const std::uint32_t uid = ::getuid();
        const auto user = readPath(c.call(logind, logindPath, logindManager, "GetUser",
                                          [uid](sd_bus_message* m) { return sd_bus_message_append(m, "u", uid); }));
        if (!user) return std::nullopt;
        auto reply = c.call(logind, user->c_str(), "org.freedesktop.DBus.Properties", "Get", [](sd_bus_message* m) {
            return sd_bus_message_append(m, "ss", "org.freedesktop.login1.User", "Display");
        });
        const char* id = nullptr;
        const char* path = nullptr;
        if (!reply || sd_bus_message_read(reply.get(), "v", "(so)", &id, &path) < 0 || !path ||
            std::string(path) == "/")
            return std::nullopt;
        return std::string(path);
    }
};

SystemBusClient::SystemBusClient() : impl_(std::make_unique<Impl>()) {}
SystemBusClient::~SystemBusClient() = default;

std::optional<OwnedFd> SystemBusClient::inhibit(const std::string& what, const std::string& who,
                                                const std::string& why, const std::string& mode) {
    dbus::Connection* c = impl_->bus.get();
    if (!c) return std::nullopt;
    auto reply = c->call(logind, logindPath, logindManager, "Inhibit", [&](sd_bus_message* m) {
        return sd_bus_message_append(m, "ssss", what.c_str(), who.c_str(), why.c_str(), mode.c_str());
    });
    int fd = -1;
    if (!reply || sd_bus_message_read(reply.get(), "h", &fd) < 0 || fd < 0) return std::nullopt;
    // The message owns its descriptor: keep a copy of our own.
    const int own = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (own < 0) return std::nullopt;
    return OwnedFd(own);
}

std::optional<std::string> SystemBusClient::powerProfile() {
    dbus::Connection* c = impl_->bus.get();
    if (!c) return std::nullopt;
    for (const auto& s : profileServices)
        if (auto p = c->stringProperty(s.name, s.path, s.name, "ActiveProfile")) return p;
    return std::nullopt;
}

bool SystemBusClient::lockSession() {
    dbus::Connection* c = impl_->bus.get();
    if (!c) return false;
    const auto path = impl_->sessionPath(*c);
    return path && c->call(logind, path->c_str(), "org.freedesktop.login1.Session", "Lock") != nullptr;
}

bool SystemBusClient::logindAvailable() {
    dbus::Connection* c = impl_->bus.get();
    return c && c->hasOwner(logind);
}

std::optional<UPowerReading> SystemBusClient::upower(UPowerPart part) {
    dbus::Connection* c = impl_->bus.get();
    if (!c) return std::nullopt;
    const auto root = getAll(*c, upowerName, "/org/freedesktop/UPower", upowerName);
    if (!root) return std::nullopt;
    UPowerReading r;
    r.onBattery = get<bool>(*root, "OnBattery").value_or(false);
    if (get<bool>(*root, "LidIsPresent") == true) r.lidClosed = get<bool>(*root, "LidIsClosed").value_or(false);

    if (part != UPowerPart::battery) return r;
    const auto device = getAll(*c, upowerName, "/org/freedesktop/UPower/devices/DisplayDevice",
                               "org.freedesktop.UPower.Device");
    if (device) {
        constexpr std::uint32_t batteryType = 2;
        constexpr std::uint32_t charging = 1;
        r.batteryPresent = get<bool>(*device, "IsPresent") == true && get<std::uint32_t>(*device, "Type") == batteryType;
        if (r.batteryPresent) {
            r.percent = get<double>(*device, "Percentage");
            if (const auto t = get<std::int64_t>(*device, "TimeToEmpty"); t && *t > 0) r.secondsToEmpty = *t;
            r.charging = get<std::uint32_t>(*device, "State") == charging;
        }
    }
    return r;
}

// ---- session bus ----

struct SessionBusClient::Impl {
    dbus::Connection* subscribed = nullptr;
    dbus::Subscription invoked;
    dbus::Subscription closed;
    LazyBus bus{dbus::Bus::session, [this] {
                    invoked.reset();
                    closed.reset();
                    subscribed = nullptr;
                }};
    std::mutex mutex;  // guards `pending`: written by callers, read on the pump thread
    // Per shown notification: its button ids and who hears the picked one.
    struct Pending {
        std::vector<std::string> ids;
        std::function<void(const std::string&)> onButton;
    };
    std::map<std::uint32_t, Pending> pending;

    // Subscribes once per connection (a new connection after the bus came back needs anew).
    void listen(dbus::Connection& c) {
        if (subscribed == &c) return;
        invoked = c.subscribe(nullptr, notificationsPath, notifications, "ActionInvoked", [this](sd_bus_message* m) {
            std::uint32_t id = 0;
            const char* key = nullptr;
            if (sd_bus_message_read(m, "us", &id, &key) < 0 || !key) return;
            std::function<void(const std::string&)> handler;
            {
                std::lock_guard lock(mutex);
                const auto it = pending.find(id);
                // Only a button we offered: any peer on the bus can send this signal.
                if (it == pending.end() ||
                    std::find(it->second.ids.begin(), it->second.ids.end(), key) == it->second.ids.end())
                    return;
                handler = std::move(it->second.onButton);
                pending.erase(it);  // one answer per notification
            }
            if (handler) handler(key);
        });
        closed = c.subscribe(nullptr, notificationsPath, notifications, "NotificationClosed", [this](sd_bus_message* m) {
            std::uint32_t id = 0;
            std::uint32_t reason = 0;
            if (sd_bus_message_read(m, "uu", &id, &reason) < 0) return;
            std::lock_guard lock(mutex);
            pending.erase(id);
        });
        subscribed = &c;
    }
};

SessionBusClient::SessionBusClient() : impl_(std::make_unique<Impl>()) {}

SessionBusClient::~SessionBusClient() {
    // The subscriptions go before the connection they belong to.
    impl_->invoked.reset();
    impl_->closed.reset();
}

bool SessionBusClient::notificationsAvailable() {
    dbus::Connection* c = impl_->bus.get();
    return c && c->hasOwner(notifications);
}

bool SessionBusClient::notify(const std::string& appName, const std::string& title, const std::string& body,
                              const std::vector<NotificationButton>& buttons,
                              std::function<void(const std::string&)> onButton) {
    dbus::Connection* c = impl_->bus.get();
    if (!c) return false;
    if (!buttons.empty() && onButton) impl_->listen(*c);
    auto reply = c->call(notifications, notificationsPath, notifications, "Notify", [&](sd_bus_message* m) {
        int r = sd_bus_message_append(m, "susss", appName.c_str(), 0u, "", title.c_str(), body.c_str());
        if (r < 0) return r;
        if ((r = sd_bus_message_open_container(m, 'a', "s")) < 0) return r;
        for (const auto& b : buttons)
            if ((r = sd_bus_message_append(m, "ss", b.id.c_str(), b.label.c_str())) < 0) return r;
        if ((r = sd_bus_message_close_container(m)) < 0) return r;
        // The desktop entry lets the shell show our name and icon.
        return sd_bus_message_append(m, "a{sv}i", 1, "desktop-entry", "s", "duskwelld", -1);
    });
    std::uint32_t id = 0;
    if (!reply || sd_bus_message_read(reply.get(), "u", &id) < 0) return false;
    if (!buttons.empty() && onButton) {
        std::lock_guard lock(impl_->mutex);
        std::vector<std::string> ids;
        for (const auto& b : buttons) ids.push_back(b.id);
        impl_->pending[id] = {std::move(ids), std::move(onButton)};
        // A server that never says "closed" must not make this grow: the oldest go first.
        while (impl_->pending.size() > 16) impl_->pending.erase(impl_->pending.begin());
    }
    return true;
}

bool SessionBusClient::screenSaverAvailable() {
    dbus::Connection* c = impl_->bus.get();
    return c && c->hasOwner("org.freedesktop.ScreenSaver");
}

bool SessionBusClient::lockScreenSaver() {
    dbus::Connection* c = impl_->bus.get();
    return c && c->call("org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver",
                        "Lock") != nullptr;
}

// ---- the power-off notice ----

struct ShutdownNotice::Impl {
    std::unique_ptr<dbus::Connection> connection;
    dbus::Subscription subscription;
};

ShutdownNotice::ShutdownNotice(std::function<void()> onNotice) : impl_(std::make_unique<Impl>()) {
    impl_->connection = dbus::Connection::open(dbus::Bus::system);
    if (!impl_->connection) return;
    impl_->subscription = impl_->connection->subscribe(
        nullptr, logindPath, logindManager, "PrepareForShutdown", [onNotice = std::move(onNotice)](sd_bus_message* m) {
            int starting = 0;
            // false: a cancelled shutdown, or the notice after resume.
            if (sd_bus_message_read(m, "b", &starting) >= 0 && starting && onNotice) onNotice();
        });
}

ShutdownNotice::~ShutdownNotice() { impl_->subscription.reset(); }

bool ShutdownNotice::listening() const { return static_cast<bool>(impl_->subscription); }

#else  // no libsystemd: every service reads as missing

struct SystemBusClient::Impl {};
SystemBusClient::SystemBusClient() = default;
SystemBusClient::~SystemBusClient() = default;
std::optional<OwnedFd> SystemBusClient::inhibit(const std::string&, const std::string&, const std::string&,
                                                const std::string&) {
    return std::nullopt;
}
std::optional<std::string> SystemBusClient::powerProfile() { return std::nullopt; }
bool SystemBusClient::lockSession() { return false; }
bool SystemBusClient::logindAvailable() { return false; }
std::optional<UPowerReading> SystemBusClient::upower(UPowerPart) { return std::nullopt; }

struct SessionBusClient::Impl {};
SessionBusClient::SessionBusClient() = default;
SessionBusClient::~SessionBusClient() = default;
bool SessionBusClient::notificationsAvailable() { return false; }
bool SessionBusClient::notify(const std::string&, const std::string&, const std::string&,
                              const std::vector<NotificationButton>&, std::function<void(const std::string&)>) {
    return false;
}
bool SessionBusClient::screenSaverAvailable() { return false; }
bool SessionBusClient::lockScreenSaver() { return false; }

struct ShutdownNotice::Impl {};
ShutdownNotice::ShutdownNotice(std::function<void()>) {}
ShutdownNotice::~ShutdownNotice() = default;
bool ShutdownNotice::listening() const { return false; }

#endif

}  // namespace duskwell
