#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "commands/control_protocol.h"

namespace asio {
class io_context;
}

namespace duskwell {

class AwakeController;
class ControlServer;

// The service's side of attached dashboards: answers "watch" and "action ..." requests and
// publishes the view state to the watchers, on every batch of controller announcements and
// once a second while anyone watches (nothing is built while nobody does). While at least
// one dashboard watches, the controller scans as often as for an open popover. Main thread
// (the event loop's) throughout; `onTerminate` runs there, posted, after a remote "quit".
class ViewService {
public:
    ViewService(asio::io_context& context, AwakeController& controller, std::function<void()> onTerminate);
    ~ViewService();
    ViewService(const ViewService&) = delete;
    ViewService& operator=(const ViewService&) = delete;

    // Where the lines go; null while there is no control socket. Outlives no server.
    void setServer(ControlServer* server);
    // A dashboard in this process's own terminal is open (it handles the popover state).
    void setLocalFace(bool shown);
    // The reply to a streaming or action request; nothing for every other request.
    std::optional<ControlProtocol::Reply> answer(const std::string& request);

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace duskwell
