#pragma once
// Linux only, and only in builds with libsystemd (DUSKWELL_HAVE_SDBUS): include this from
// `_linux.cpp` files alone. A small RAII layer over sd-bus that every D-Bus user shares.
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace duskwell::dbus {

struct MessageUnref {
    void operator()(sd_bus_message* m) const { sd_bus_message_unref(m); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageUnref>;

enum class Bus { system, session };

// Every call answers within this or fails: a missing service answers at once, a hung one
// must not hold the controller's thread for long.
inline constexpr std::chrono::milliseconds callTimeout{500};

class Connection;

// A signal subscription; dropping it unsubscribes. Must go before its connection.
class Subscription {
public:
    Subscription() = default;
    Subscription(Connection* connection, sd_bus_slot* slot) : connection_(connection), slot_(slot) {}
    ~Subscription() { reset(); }
    Subscription(Subscription&& other) noexcept { *this = std::move(other); }
    Subscription& operator=(Subscription&& other) noexcept;
    void reset();
    explicit operator bool() const { return slot_ != nullptr; }

private:
    Connection* connection_ = nullptr;
    sd_bus_slot* slot_ = nullptr;
};

// One connection to the system or the session bus (sd-bus reads DBUS_SYSTEM_BUS_ADDRESS
// and DBUS_SESSION_BUS_ADDRESS, so tests point it at private buses).
//
// Threads: calls may come from any thread; they are serialised with a mutex. Signals are
// read by a pump thread, started by the first `subscribe`, which sleeps in poll() until the
// bus or a caller wakes it, so an idle connection costs no CPU. Signal handlers run on that
// pump thread with the connection locked: they must not call back into it, only hand the
// news to their owner's queue.
class Connection {
public:
    // Nothing when the bus cannot be reached.
    static std::unique_ptr<Connection> open(Bus bus);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // A method call; `append` adds the arguments (may be empty). The reply, or nothing on an
    // error reply or a timeout (`error` then gets its name and text).
    MessagePtr call(const char* destination, const char* path, const char* interface, const char* member,
                    const std::function<int(sd_bus_message*)>& append = {}, std::string* error = nullptr);

    // Properties through org.freedesktop.DBus.Properties.Get; nothing when missing or of
    // another type.
    std::optional<bool> boolProperty(const char* destination, const char* path, const char* interface,
                                     const char* name);
    std::optional<std::string> stringProperty(const char* destination, const char* path, const char* interface,
                                              const char* name);

    // Whether a name has an owner on this bus right now.
    bool hasOwner(const char* name);

    // Subscribes to a signal (null fields match anything). `handler` runs on the pump thread.
    Subscription subscribe(const char* sender, const char* path, const char* interface, const char* member,
                           std::function<void(sd_bus_message*)> handler);

    bool isOpen();

private:
    friend class Subscription;
    explicit Connection(sd_bus* bus);
    template <class T>
    std::optional<T> trivialProperty(const char* destination, const char* path, const char* interface,
                                     const char* name, char type);
    void startPump();
    void pump();
    void wake();

    sd_bus* bus_;
    std::recursive_mutex mutex_;
    int wakeFd_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread pump_;
};

}  // namespace duskwell::dbus
