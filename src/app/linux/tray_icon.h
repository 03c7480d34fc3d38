#pragma once
#include <functional>
#include <memory>
#include <string>

namespace asio {
class io_context;
}

namespace duskwell {

class AwakeController;

// duskwelld's icon in the desktop's tray: a status notifier item with an exported menu on
// the session bus (what KDE, XFCE, most bars and GNOME with the AppIndicator extension
// show). Icon, title and tooltip follow the controller; the menu is the quick menu; a left
// click toggles. It registers with the tray host (the StatusNotifierWatcher) now and again
// whenever a host appears later.
//
// Thread: everything, the D-Bus callbacks and the hooks included, runs on the event loop's
// thread (duskwelld's main thread): the bus's socket is watched by the loop and dispatched
// there, and clicks are performed in a later turn of the loop, after their reply has gone.
class TrayIcon {
public:
    struct Hooks {
        std::function<void()> quit;                     // the menu's "Quit" was clicked
        std::function<void(const std::string&)> log;    // a line for the journal; may be empty
    };

    // Nothing when there is no session bus or the build has no D-Bus library; one log line
    // says so. Without a tray host the icon waits quietly for one.
    static std::unique_ptr<TrayIcon> start(asio::io_context& context, AwakeController& controller, Hooks hooks);
    ~TrayIcon();
    TrayIcon(const TrayIcon&) = delete;
    TrayIcon& operator=(const TrayIcon&) = delete;

    struct Impl;

private:
    explicit TrayIcon(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<Impl> impl_;
};

}  // namespace duskwell
