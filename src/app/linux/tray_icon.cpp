// The tray icon over sd-bus: org.kde.StatusNotifierItem at /StatusNotifierItem and
// com.canonical.dbusmenu at /MenuBar, under the name org.kde.StatusNotifierItem-<pid>-1.
#include "tray_icon.h"

#include <poll.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "app/action.h"
#include "app/quick_menu_model.h"
#include "app/status_item_model.h"
#include "app/tray_menu_model.h"
#include "core/awake_controller.h"
#include "dashboard_launcher.h"
#include "sd_bus_ptr.h"

namespace duskwell {
namespace {

constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kItemInterface = "org.kde.StatusNotifierItem";
constexpr const char* kMenuPath = "/MenuBar";
constexpr const char* kMenuInterface = "com.canonical.dbusmenu";
constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
constexpr const char* kWatcherPath = "/StatusNotifierWatcher";

std::string errorText(int r) { return std::strerror(r < 0 ? -r : r); }

// Reads an "as" or "ai" argument.
std::vector<std::string> readStrings(sd_bus_message* m) {
    std::vector<std::string> out;
    if (sd_bus_message_enter_container(m, 'a', "s") < 0) return out;
    const char* s = nullptr;
    while (sd_bus_message_read(m, "s", &s) > 0) out.emplace_back(s);
    sd_bus_message_exit_container(m);
    return out;
}

std::vector<int> readInts(sd_bus_message* m) {
    std::vector<int> out;
    if (sd_bus_message_enter_container(m, 'a', "i") < 0) return out;
    int32_t i = 0;
    while (sd_bus_message_read(m, "i", &i) > 0) out.push_back(i);
    sd_bus_message_exit_container(m);
    return out;
}

bool wanted(const std::vector<std::string>& names, const char* name) {
    if (names.empty()) return true;
    for (const auto& n : names) {
        if (n == name) return true;
    }
    return false;
}

// Builders that stop at the first failure; `r` keeps the first error.
struct Writer {
    sd_bus_message* m;
    int r = 0;

    void open(char type, const char* contents) {
        if (r >= 0) r = sd_bus_message_open_container(m, type, contents);
    }
    void close() {
        if (r >= 0) r = sd_bus_message_close_container(m);
    }
    template <typename... Args>
    void append(const char* types, Args... args) {
        if (r >= 0) r = sd_bus_message_append(m, types, args...);
    }
    template <typename V>
    void entry(const char* key, const char* type, V value) {
        open('e', "sv");
        append("s", key);
        open('v', type);
        append(type, value);
        close();
        close();
    }
};

// The a{sv} of one menu entry (or of the root, for id 0), only the asked-for names.
void writeProperties(Writer& w, const TrayMenuEntry* entry, const std::vector<std::string>& names) {
    w.open('a', "{sv}");
    if (!entry) {
        if (wanted(names, "children-display")) w.entry("children-display", "s", "submenu");
    } else if (entry->type == TrayMenuEntry::Type::separator) {
        if (wanted(names, "type")) w.entry("type", "s", "separator");
    } else {
        if (wanted(names, "label")) w.entry("label", "s", entry->label.c_str());
        if (wanted(names, "enabled")) w.entry("enabled", "b", static_cast<int>(entry->enabled));
    }
    w.close();
}

// (ia{sv}av): the root with its children when `depth` allows, or one childless entry.
void writeLayout(Writer& w, const TrayMenu& menu, const TrayMenuEntry* entry, int depth,
                 const std::vector<std::string>& names) {
    w.open('r', "ia{sv}av");
    w.append("i", entry ? entry->id : 0);
    writeProperties(w, entry, names);
    w.open('a', "v");
    if (!entry && depth != 0) {
        for (const TrayMenuEntry& child : menu.entries) {
            w.open('v', "(ia{sv}av)");
            writeLayout(w, menu, &child, depth - 1, names);
            w.close();
        }
    }
    w.close();
    w.close();
}

}  // namespace

struct TrayIcon::Impl : std::enable_shared_from_this<Impl> {
    Impl(asio::io_context& io, AwakeController& controller, Hooks hooks)
        : io(io), controller(controller), hooks(std::move(hooks)), descriptor(io), timer(io) {}
    ~Impl() { close(); }

    asio::io_context& io;
    AwakeController& controller;
    Hooks hooks;

    sdbus::Bus bus;
    sdbus::Slot itemObject, menuObject, watcherMatch, nameRequest, registration;
    std::string serviceName;
    bool nameSettled = false;   // the name request was answered (owned or not)
    bool saidNoHost = false;    // the "no tray host" line is written once

    // Watching the bus's socket on the loop: at most one wait of each kind at a time, and
    // a timer only while sd-bus has a deadline (a call awaiting its reply). Idle, nothing
    // wakes us.
    asio::posix::stream_descriptor descriptor;
    asio::steady_timer timer;
    bool reading = false;
    bool writing = false;
    uint64_t deadline = UINT64_MAX;
    bool closed = false;

    TrayItem item;
    TrayMenu menu;
    uint32_t revision = 1;
    Subscription subscription;
    bool refreshPending = false;

    void log(const std::string& line) const {
        if (hooks.log) hooks.log(line);
    }

    bool open();
    void close();
    void pump();
    void arm();
    void lost(int r);
    void registerItem();
    void refresh();
    void performSoon(Action action);

    static const sd_bus_vtable itemVtable[];
    static const sd_bus_vtable menuVtable[];
    static int itemProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                            void* userdata, sd_bus_error*);
    static int menuProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                            void* userdata, sd_bus_error*);
    static int activate(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int ignoreClick(sd_bus_message* m, void*, sd_bus_error*);
    static int getLayout(sd_bus_message* m, void* userdata, sd_bus_error* error);
    static int getGroupProperties(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int getProperty(sd_bus_message* m, void* userdata, sd_bus_error* error);
    static int event(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int eventGroup(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int aboutToShow(sd_bus_message* m, void*, sd_bus_error*);
    static int aboutToShowGroup(sd_bus_message* m, void*, sd_bus_error*);
    static int onNameReply(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int onRegistered(sd_bus_message* m, void* userdata, sd_bus_error*);
    static int onWatcherOwner(sd_bus_message* m, void* userdata, sd_bus_error*);
};

// Properties are read when asked and change only with the New* signals, as hosts expect.
const sd_bus_vtable TrayIcon::Impl::itemVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Category", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Id", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Title", "s", itemProperty, 0, 0),
    SD_BUS_PROPERTY("Status", "s", itemProperty, 0, 0),
    SD_BUS_PROPERTY("WindowId", "i", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconThemePath", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconName", "s", itemProperty, 0, 0),
    SD_BUS_PROPERTY("IconPixmap", "a(iiay)", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("OverlayIconName", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("OverlayIconPixmap", "a(iiay)", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("AttentionIconName", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("AttentionIconPixmap", "a(iiay)", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("AttentionMovieName", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("ToolTip", "(sa(iiay)ss)", itemProperty, 0, 0),
    SD_BUS_PROPERTY("ItemIsMenu", "b", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Menu", "o", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    // The clock beside the icon, for the hosts of the Ayatana indicators (GNOME's extension).
    SD_BUS_PROPERTY("XAyatanaLabel", "s", itemProperty, 0, 0),
    SD_BUS_PROPERTY("XAyatanaLabelGuide", "s", itemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Activate", "ii", "", activate, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SecondaryActivate", "ii", "", ignoreClick, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ContextMenu", "ii", "", ignoreClick, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Scroll", "is", "", ignoreClick, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("NewTitle", "", 0),
    SD_BUS_SIGNAL("NewIcon", "", 0),
    SD_BUS_SIGNAL("NewAttentionIcon", "", 0),
    SD_BUS_SIGNAL("NewOverlayIcon", "", 0),
    SD_BUS_SIGNAL("NewToolTip", "", 0),
    SD_BUS_SIGNAL("NewStatus", "s", 0),
    SD_BUS_SIGNAL("XAyatanaNewLabel", "ss", 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable TrayIcon::Impl::menuVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Version", "u", menuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("TextDirection", "s", menuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Status", "s", menuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconThemePath", "as", menuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("GetLayout", "iias", "u(ia{sv}av)", getLayout, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetGroupProperties", "aias", "a(ia{sv})", getGroupProperties, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetProperty", "is", "v", getProperty, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Event", "isvu", "", event, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("EventGroup", "a(isvu)", "ai", eventGroup, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("AboutToShow", "i", "b", aboutToShow, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("AboutToShowGroup", "ai", "aiai", aboutToShowGroup, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("ItemsPropertiesUpdated", "a(ia{sv})a(ias)", 0),
    SD_BUS_SIGNAL("LayoutUpdated", "ui", 0),
    SD_BUS_SIGNAL("ItemActivationRequested", "iu", 0),
    SD_BUS_VTABLE_END,
};

bool TrayIcon::Impl::open() {
    sd_bus* raw = nullptr;
    int r = sd_bus_open_user_with_description(&raw, "duskwelld-tray");
    if (r < 0) {
        log("tray: no session bus (" + errorText(r) + "); no tray icon");
        return false;
    }
    bus.reset(raw);
    serviceName = "org.kde.StatusNotifierItem-" + std::to_string(::getpid()) + "-1";
    item = makeTrayItem(makeStatusItemModel(controller));
    menu = makeTrayMenu(makeQuickMenu(controller));

    sd_bus_slot* slot = nullptr;
    r = sd_bus_add_object_vtable(bus.get(), &slot, kItemPath, kItemInterface, itemVtable, this);
    itemObject.reset(slot);
    if (r >= 0) r = sd_bus_add_object_vtable(bus.get(), &slot, kMenuPath, kMenuInterface, menuVtable, this);
    if (r >= 0) menuObject.reset(slot);
    // A tray host that starts (or restarts) after us: register again.
    const std::string match = std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                          "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
                              kWatcher + "'";
    if (r >= 0) r = sd_bus_add_match_async(bus.get(), &slot, match.c_str(), onWatcherOwner, nullptr, this);
    if (r >= 0) watcherMatch.reset(slot);
    if (r >= 0) r = sd_bus_request_name_async(bus.get(), &slot, serviceName.c_str(), 0, onNameReply, this);
    if (r >= 0) nameRequest.reset(slot);
    if (r >= 0) r = sd_bus_get_fd(bus.get());
    if (r < 0) {
        log("tray: cannot set up on the session bus (" + errorText(r) + "); no tray icon");
        return false;
    }
    std::error_code ec;
    descriptor.assign(r, ec);
    if (ec) {
        log("tray: cannot watch the session bus (" + ec.message() + "); no tray icon");
        return false;
    }

    subscription = controller.changes().subscribe([this] {
        // Announcements come before the change lands: read the state in a later turn, once.
        if (refreshPending) return;
        refreshPending = true;
        asio::post(io, [weak = weak_from_this()] {
            if (auto self = weak.lock()) {
                self->refreshPending = false;
                self->refresh();
            }
        });
    });
    pump();
    return !closed;
}

void TrayIcon::Impl::close() {
    if (closed) return;
    closed = true;
    subscription.reset();
    timer.cancel();
    std::error_code ec;
    descriptor.cancel(ec);
    // The socket belongs to sd-bus: give it back unclosed.
    if (descriptor.is_open()) descriptor.release();
    registration.reset();
    nameRequest.reset();
    watcherMatch.reset();
    menuObject.reset();
    itemObject.reset();
    bus.reset();
}

void TrayIcon::Impl::lost(int r) {
    log("tray: session bus gone (" + errorText(r) + "); no tray icon");
    close();
}

void TrayIcon::Impl::pump() {
    if (closed) return;
    for (;;) {
        const int r = sd_bus_process(bus.get(), nullptr);
        if (r < 0) return lost(r);
        if (closed) return;
        if (r == 0) break;
    }
    arm();
}

void TrayIcon::Impl::arm() {
    if (closed) return;
    const int events = sd_bus_get_events(bus.get());
    if (events < 0) return lost(events);
    if ((events & POLLIN) && !reading) {
        reading = true;
        descriptor.async_wait(asio::posix::descriptor_base::wait_read, [self = shared_from_this()](auto ec) {
            self->reading = false;
            if (!ec) self->pump();
        });
    }
    if ((events & POLLOUT) && !writing) {
        writing = true;
        descriptor.async_wait(asio::posix::descriptor_base::wait_write, [self = shared_from_this()](auto ec) {
            self->writing = false;
            if (!ec) self->pump();
        });
    }
    uint64_t until = UINT64_MAX;
    if (sd_bus_get_timeout(bus.get(), &until) < 0) until = UINT64_MAX;
    if (until == deadline) return;
    deadline = until;
    if (until == UINT64_MAX) {
        timer.cancel();
        return;
    }
    // sd-bus gives an absolute CLOCK_MONOTONIC time, the clock steady_clock reads too.
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t nowUs = static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
    timer.expires_after(std::chrono::microseconds(until > nowUs ? until - nowUs : 0));
    timer.async_wait([self = shared_from_this()](std::error_code ec) {
        if (ec) return;
        self->deadline = UINT64_MAX;
        self->pump();
    });
}

void TrayIcon::Impl::registerItem() {
    if (closed || !nameSettled) return;
    sd_bus_message* raw = nullptr;
    int r = sd_bus_message_new_method_call(bus.get(), &raw, kWatcher, kWatcherPath, kWatcher,
                                           "RegisterStatusNotifierItem");
    const sdbus::Message call(raw);
    // Never start a host through bus activation: the desktop decides whether there is one.
    if (r >= 0) r = sd_bus_message_set_auto_start(call.get(), 0);
    if (r >= 0) r = sd_bus_message_append(call.get(), "s", serviceName.c_str());
    sd_bus_slot* slot = nullptr;
    if (r >= 0) r = sd_bus_call_async(bus.get(), &slot, call.get(), onRegistered, this, 0);
    if (r < 0) {
        log("tray: cannot register with the tray host (" + errorText(r) + ")");
        return;
    }
    registration.reset(slot);
}

void TrayIcon::Impl::refresh() {
    if (closed) return;
    const TrayItem before = std::exchange(item, makeTrayItem(makeStatusItemModel(controller)));
    auto emit = [&](const char* member) { sd_bus_emit_signal(bus.get(), kItemPath, kItemInterface, member, ""); };
    if (before.iconName != item.iconName) emit("NewIcon");
    if (before.title != item.title) emit("NewTitle");
    if (before.tooltipTitle != item.tooltipTitle || before.tooltipBody != item.tooltipBody) emit("NewToolTip");
    if (before.label != item.label) {
        sd_bus_emit_signal(bus.get(), kItemPath, kItemInterface, "XAyatanaNewLabel", "ss", item.label.c_str(), "");
    }

    TrayMenu next = makeTrayMenu(makeQuickMenu(controller));
    const TrayMenuChange change = compareTrayMenus(menu, next);
    menu = std::move(next);
    if (change.kind == TrayMenuChange::Kind::layout) {
        ++revision;
        sd_bus_emit_signal(bus.get(), kMenuPath, kMenuInterface, "LayoutUpdated", "ui", revision, 0);
    } else if (change.kind == TrayMenuChange::Kind::properties) {
        sd_bus_message* raw = nullptr;
        Writer w{nullptr};
        w.r = sd_bus_message_new_signal(bus.get(), &raw, kMenuPath, kMenuInterface, "ItemsPropertiesUpdated");
        const sdbus::Message signal(raw);
        w.m = raw;
        w.open('a', "(ia{sv})");
        for (int id : change.changedIds) {
            w.open('r', "ia{sv}");
            w.append("i", id);
            writeProperties(w, menu.find(id), {});
            w.close();
        }
        w.close();
        w.open('a', "(ias)");
        w.close();
        if (w.r >= 0) sd_bus_send(bus.get(), signal.get(), nullptr);
    }
    arm();  // whatever could not be written at once goes out when the socket takes it
}

void TrayIcon::Impl::performSoon(Action action) {
    asio::post(io, [weak = weak_from_this(), action] {
        auto self = weak.lock();
        if (!self || self->closed) return;
        const ActionOutcome outcome = perform(self->controller, action);
        if (outcome.showPopover) {
            const char* path = std::getenv("PATH");
            const auto command = dashboardTerminalCommand(path ? path : "/usr/bin:/bin");
            if (!command) self->log("tray: no terminal program found to open the dashboard in");
            else if (!launchDetached(*command)) self->log("tray: could not start " + command->front());
        }
        if (outcome.terminate && self->hooks.quit) self->hooks.quit();
    });
}

int TrayIcon::Impl::itemProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                                 void* userdata, sd_bus_error*) {
    const Impl& self = *static_cast<Impl*>(userdata);
    const std::string p = property;
    Writer w{reply};
    if (p == "Category") w.append("s", "ApplicationStatus");
    else if (p == "Id") w.append("s", "duskwell");
    else if (p == "Title") w.append("s", self.item.title.c_str());
    else if (p == "Status") w.append("s", "Active");
    else if (p == "WindowId") w.append("i", 0);
    else if (p == "IconName") w.append("s", self.item.iconName.c_str());
    else if (p == "Menu") w.append("o", kMenuPath);
    else if (p == "ItemIsMenu") w.append("b", 0);
    else if (p == "XAyatanaLabel") w.append("s", self.item.label.c_str());
    else if (p == "ToolTip") {
        w.open('r', "sa(iiay)ss");
        w.append("s", self.item.iconName.c_str());
        w.open('a', "(iiay)");
        w.close();
        w.append("ss", self.item.tooltipTitle.c_str(), self.item.tooltipBody.c_str());
        w.close();
    } else if (p.find("Pixmap") != std::string::npos) {
        // Themed names only: every host draws them in the desktop's own style and size.
        w.open('a', "(iiay)");
        w.close();
    } else {
        w.append("s", "");  // the unused names: theme path, overlay, attention, label guide
    }
    return w.r;
}

int TrayIcon::Impl::menuProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                                 void*, sd_bus_error*) {
    const std::string p = property;
    Writer w{reply};
    if (p == "Version") w.append("u", 3u);
    else if (p == "TextDirection") w.append("s", "ltr");
    else if (p == "Status") w.append("s", "normal");
    else {
        w.open('a', "s");
        w.close();
    }
    return w.r;
}

int TrayIcon::Impl::activate(sd_bus_message* m, void* userdata, sd_bus_error*) {
    static_cast<Impl*>(userdata)->performSoon(trayActivateAction());
    return sd_bus_reply_method_return(m, "");
}

int TrayIcon::Impl::ignoreClick(sd_bus_message* m, void*, sd_bus_error*) {
    // The host shows the exported menu itself; a middle click or a scroll means nothing here.
    return sd_bus_reply_method_return(m, "");
}

int TrayIcon::Impl::getLayout(sd_bus_message* m, void* userdata, sd_bus_error* error) {
    const Impl& self = *static_cast<Impl*>(userdata);
    int32_t parent = 0, depth = -1;
    int r = sd_bus_message_read(m, "ii", &parent, &depth);
    if (r < 0) return r;
    const std::vector<std::string> names = readStrings(m);
    const TrayMenuEntry* entry = parent == 0 ? nullptr : self.menu.find(parent);
    if (parent != 0 && !entry) return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "no such menu item");
    sd_bus_message* raw = nullptr;
    r = sd_bus_message_new_method_return(m, &raw);
    if (r < 0) return r;
    const sdbus::Message reply(raw);
    Writer w{raw};
    w.append("u", self.revision);
    writeLayout(w, self.menu, entry, depth, names);
    return w.r < 0 ? w.r : sd_bus_send(nullptr, reply.get(), nullptr);
}

int TrayIcon::Impl::getGroupProperties(sd_bus_message* m, void* userdata, sd_bus_error*) {
    const Impl& self = *static_cast<Impl*>(userdata);
    const std::vector<int> ids = readInts(m);
    const std::vector<std::string> names = readStrings(m);
    sd_bus_message* raw = nullptr;
    int r = sd_bus_message_new_method_return(m, &raw);
    if (r < 0) return r;
    const sdbus::Message reply(raw);
    Writer w{raw};
    w.open('a', "(ia{sv})");
    for (int id : ids) {
        const TrayMenuEntry* entry = self.menu.find(id);
        if (id != 0 && !entry) continue;  // unknown ids are left out
        w.open('r', "ia{sv}");
        w.append("i", id);
        writeProperties(w, entry, names);
        w.close();
    }
    w.close();
    return w.r < 0 ? w.r : sd_bus_send(nullptr, reply.get(), nullptr);
}

int TrayIcon::Impl::getProperty(sd_bus_message* m, void* userdata, sd_bus_error* error) {
    const Impl& self = *static_cast<Impl*>(userdata);
    int32_t id = 0;
    const char* name = nullptr;
    int r = sd_bus_message_read(m, "is", &id, &name);
    if (r < 0) return r;
    const TrayMenuEntry* entry = self.menu.find(id);
    if (!entry) return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "no such menu item");
    const std::string p = name;
    const bool separator = entry->type == TrayMenuEntry::Type::separator;
    if (p == "label" && !separator) return sd_bus_reply_method_return(m, "v", "s", entry->label.c_str());
    if (p == "enabled") return sd_bus_reply_method_return(m, "v", "b", static_cast<int>(entry->enabled));
    if (p == "type" && separator) return sd_bus_reply_method_return(m, "v", "s", "separator");
    return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "no such property");
}

int TrayIcon::Impl::event(sd_bus_message* m, void* userdata, sd_bus_error*) {
    Impl& self = *static_cast<Impl*>(userdata);
    int32_t id = 0;
    const char* kind = nullptr;
    int r = sd_bus_message_read(m, "is", &id, &kind);
    if (r < 0) return r;
    if (std::strcmp(kind, "clicked") == 0) {
        if (auto action = self.menu.actionFor(id)) self.performSoon(*action);
    }
    return sd_bus_reply_method_return(m, "");
}

int TrayIcon::Impl::eventGroup(sd_bus_message* m, void* userdata, sd_bus_error*) {
    Impl& self = *static_cast<Impl*>(userdata);
    std::vector<int> unknown;
    int r = sd_bus_message_enter_container(m, 'a', "(isvu)");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(m, 'r', "isvu")) > 0) {
        int32_t id = 0;
        const char* kind = nullptr;
        if ((r = sd_bus_message_read(m, "is", &id, &kind)) < 0) return r;
        if (!self.menu.find(id)) unknown.push_back(id);
        else if (std::strcmp(kind, "clicked") == 0) {
            if (auto action = self.menu.actionFor(id)) self.performSoon(*action);
        }
        if ((r = sd_bus_message_skip(m, "vu")) < 0) return r;
        if ((r = sd_bus_message_exit_container(m)) < 0) return r;
    }
    if (r < 0) return r;
    sd_bus_message* raw = nullptr;
    if ((r = sd_bus_message_new_method_return(m, &raw)) < 0) return r;
    const sdbus::Message reply(raw);
    Writer w{raw};
    w.open('a', "i");
    for (int id : unknown) w.append("i", id);
    w.close();
    return w.r < 0 ? w.r : sd_bus_send(nullptr, reply.get(), nullptr);
}

int TrayIcon::Impl::aboutToShow(sd_bus_message* m, void*, sd_bus_error*) {
    // The exported menu is kept current on every change: nothing to rebuild before showing.
    return sd_bus_reply_method_return(m, "b", 0);
}

int TrayIcon::Impl::aboutToShowGroup(sd_bus_message* m, void*, sd_bus_error*) {
    sd_bus_message* raw = nullptr;
    int r = sd_bus_message_new_method_return(m, &raw);
    if (r < 0) return r;
    const sdbus::Message reply(raw);
    Writer w{raw};
    w.open('a', "i");
    w.close();
    w.open('a', "i");
    w.close();
    return w.r < 0 ? w.r : sd_bus_send(nullptr, reply.get(), nullptr);
}

int TrayIcon::Impl::onNameReply(sd_bus_message* m, void* userdata, sd_bus_error*) {
    Impl& self = *static_cast<Impl*>(userdata);
    if (sd_bus_message_is_method_error(m, nullptr)) {
        // Hosts also accept our unique name; the well-known one is only the convention.
        const char* unique = nullptr;
        if (sd_bus_get_unique_name(self.bus.get(), &unique) >= 0) self.serviceName = unique;
    }
    self.nameSettled = true;
    self.registerItem();
    return 0;
}

int TrayIcon::Impl::onRegistered(sd_bus_message* m, void* userdata, sd_bus_error*) {
    Impl& self = *static_cast<Impl*>(userdata);
    if (const sd_bus_error* e = sd_bus_message_get_error(m)) {
        if (!self.saidNoHost) {
            self.log(std::string("tray: no tray host on the session bus (") + (e->name ? e->name : "error") +
                     "); the icon appears when one starts");
        }
        self.saidNoHost = true;
        return 0;
    }
    self.saidNoHost = false;
    self.log("tray: icon registered with the tray host as " + self.serviceName);
    return 0;
}

int TrayIcon::Impl::onWatcherOwner(sd_bus_message* m, void* userdata, sd_bus_error*) {
    Impl& self = *static_cast<Impl*>(userdata);
    const char *name = nullptr, *before = nullptr, *after = nullptr;
    if (sd_bus_message_read(m, "sss", &name, &before, &after) < 0) return 0;
    if (after && *after) self.registerItem();
    return 0;
}

std::unique_ptr<TrayIcon> TrayIcon::start(asio::io_context& context, AwakeController& controller, Hooks hooks) {
    auto impl = std::make_shared<Impl>(context, controller, std::move(hooks));
    if (!impl->open()) return nullptr;
    return std::unique_ptr<TrayIcon>(new TrayIcon(std::move(impl)));
}

TrayIcon::~TrayIcon() { impl_->close(); }

}  // namespace duskwell
