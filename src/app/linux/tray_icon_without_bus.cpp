// Built instead of tray_icon.cpp when libsystemd is missing: duskwelld runs without a tray.
#include "tray_icon.h"

namespace duskwell {

struct TrayIcon::Impl {};

std::unique_ptr<TrayIcon> TrayIcon::start(asio::io_context&, AwakeController&, Hooks hooks) {
    if (hooks.log) hooks.log("tray: built without D-Bus support; no tray icon");
    return nullptr;
}

TrayIcon::~TrayIcon() = default;

}  // namespace duskwell
