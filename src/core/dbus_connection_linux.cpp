#if DUSKWELL_HAVE_SDBUS
#include "core/dbus_connection_linux.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <limits>

namespace duskwell::dbus {
namespace {

struct ErrorScope {
    sd_bus_error error{};  // SD_BUS_ERROR_NULL is a C compound literal
    ~ErrorScope() { sd_bus_error_free(&error); }
};

// The handler lives as long as its slot: sd-bus calls this when the slot goes.
void deleteHandler(void* userdata) { delete static_cast<std::function<void(sd_bus_message*)>*>(userdata); }

int onSignal(sd_bus_message* m, void* userdata, sd_bus_error*) {
    (*static_cast<std::function<void(sd_bus_message*)>*>(userdata))(m);
    return 0;
}

std::string matchRule(const char* sender, const char* path, const char* interface, const char* member) {
    std::string rule = "type='signal'";
    auto add = [&](const char* key, const char* value) {
        if (value) rule += std::string(",") + key + "='" + value + "'";
    };
    add("sender", sender);
    add("path", path);
    add("interface", interface);
    add("member", member);
    return rule;
}

}  // namespace

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    if (this == &other) return *this;
    reset();
    connection_ = other.connection_;
    slot_ = other.slot_;
    other.connection_ = nullptr;
    other.slot_ = nullptr;
    return *this;
}

void Subscription::reset() {
    if (!slot_) return;
    std::lock_guard lock(connection_->mutex_);
    sd_bus_slot_unref(slot_);
    slot_ = nullptr;
    connection_ = nullptr;
}

std::unique_ptr<Connection> Connection::open(Bus bus) {
    sd_bus* raw = nullptr;
    const int r = bus == Bus::system ? sd_bus_open_system(&raw) : sd_bus_open_user(&raw);
    if (r < 0 || !raw) return nullptr;
    sd_bus_set_method_call_timeout(raw, std::chrono::duration_cast<std::chrono::microseconds>(callTimeout).count());
    return std::unique_ptr<Connection>(new Connection(raw));
}

Connection::Connection(sd_bus* bus) : bus_(bus) {}

Connection::~Connection() {
    if (pump_.joinable()) {
        stopping_ = true;
        wake();
        pump_.join();
    }
    if (wakeFd_ >= 0) ::close(wakeFd_);
    sd_bus_flush_close_unref(bus_);
}

bool Connection::isOpen() {
    std::lock_guard lock(mutex_);
    return sd_bus_is_open(bus_) > 0;
}

MessagePtr Connection::call(const char* destination, const char* path, const char* interface, const char* member,
                            const std::function<int(sd_bus_message*)>& append, std::string* error) {
    std::lock_guard lock(mutex_);
    sd_bus_message* request = nullptr;
    if (sd_bus_message_new_method_call(bus_, &request, destination, path, interface, member) < 0) return nullptr;
    MessagePtr owned(request);
    if (append && append(request) < 0) return nullptr;
    ErrorScope e;
    sd_bus_message* reply = nullptr;
    const int r = sd_bus_call(bus_, request, 0, &e.error, &reply);
    wake();  // the call may have read signals off the socket that the pump must see
    if (r < 0) {
        if (error) *error = std::string(e.error.name ? e.error.name : "") + ": " + (e.error.message ? e.error.message : "");
        return nullptr;
    }
    return MessagePtr(reply);
}

template <class T>
std::optional<T> Connection::trivialProperty(const char* destination, const char* path, const char* interface,
                                             const char* name, char type) {
    std::lock_guard lock(mutex_);
    ErrorScope e;
    T value{};
    const int r = sd_bus_get_property_trivial(bus_, destination, path, interface, name, &e.error, type, &value);
    wake();
    if (r < 0) return std::nullopt;
    return value;
}

std::optional<bool> Connection::boolProperty(const char* d, const char* p, const char* i, const char* n) {
    const auto v = trivialProperty<int>(d, p, i, n, 'b');  // sd-bus reads a boolean into an int
    if (!v) return std::nullopt;
    return *v != 0;
}

std::optional<std::string> Connection::stringProperty(const char* d, const char* p, const char* i, const char* n) {
    std::lock_guard lock(mutex_);
    ErrorScope e;
    char* value = nullptr;
    const int r = sd_bus_get_property_string(bus_, d, p, i, n, &e.error, &value);
    wake();
    if (r < 0 || !value) return std::nullopt;
    std::string out = value;
    std::free(value);
    return out;
}

bool Connection::hasOwner(const char* name) {
    const auto reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                            [name](sd_bus_message* m) { return sd_bus_message_append(m, "s", name); });
    int owned = 0;
    return reply && sd_bus_message_read(reply.get(), "b", &owned) >= 0 && owned;
}

Subscription Connection::subscribe(const char* sender, const char* path, const char* interface, const char* member,
                                   std::function<void(sd_bus_message*)> handler) {
    std::lock_guard lock(mutex_);
    auto* stored = new std::function<void(sd_bus_message*)>(std::move(handler));
    sd_bus_slot* slot = nullptr;
    // Synchronous: the rule is in place at the bus before this returns, so no signal sent
    // afterwards is missed.
    if (sd_bus_add_match(bus_, &slot, matchRule(sender, path, interface, member).c_str(), onSignal, stored) < 0) {
        delete stored;
        return {};
    }
    sd_bus_slot_set_destroy_callback(slot, deleteHandler);
    startPump();
    return Subscription(this, slot);
}

void Connection::startPump() {
    if (pump_.joinable()) return;
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) return;
    pump_ = std::thread([this] { pump(); });
}

void Connection::wake() {
    if (wakeFd_ < 0) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto n = ::write(wakeFd_, &one, sizeof one);
}

void Connection::pump() {
    while (!stopping_) {
        pollfd fds[2] = {{-1, 0, 0}, {wakeFd_, POLLIN, 0}};
        int timeoutMs = -1;
        {
            std::lock_guard lock(mutex_);
            int r;
            while ((r = sd_bus_process(bus_, nullptr)) > 0) {
            }
            if (r < 0) return;  // the bus went away: nothing more will arrive
            fds[0].fd = sd_bus_get_fd(bus_);
            fds[0].events = static_cast<short>(sd_bus_get_events(bus_));
            std::uint64_t until = 0;
            if (sd_bus_get_timeout(bus_, &until) >= 0 && until != std::numeric_limits<std::uint64_t>::max()) {
                timespec now{};
                ::clock_gettime(CLOCK_MONOTONIC, &now);
                const std::uint64_t nowUs = std::uint64_t(now.tv_sec) * 1000000 + std::uint64_t(now.tv_nsec) / 1000;
                timeoutMs = until <= nowUs ? 0 : static_cast<int>((until - nowUs + 999) / 1000);
            }
        }
        if (fds[0].fd < 0) return;
        if (::poll(fds, 2, timeoutMs) > 0 && (fds[1].revents & POLLIN)) {
            std::uint64_t drained = 0;
            [[maybe_unused]] const auto n = ::read(wakeFd_, &drained, sizeof drained);
        }
    }
}

}  // namespace duskwell::dbus
#endif
