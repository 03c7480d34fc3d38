#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "terminal_session.h"

namespace asio {
class io_context;
}

namespace duskwell {

class AwakeController;

// The live terminal dashboard: draws the popover's pages and the status item, redraws
// once per batch of controller announcements, once a second for the clocks and when the
// window changes size, and turns single keys into actions. Runs on the event loop's
// thread; `onQuit` runs there when the user presses q.
class DashboardApp {
public:
    DashboardApp(asio::io_context& context, AwakeController& controller, TerminalSession terminal,
                 std::optional<std::string> welcome, std::function<void()> onQuit);
    ~DashboardApp();  // puts the terminal back
    DashboardApp(const DashboardApp&) = delete;
    DashboardApp& operator=(const DashboardApp&) = delete;

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace duskwell
