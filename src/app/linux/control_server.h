#pragma once
#include <iosfwd>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "commands/control_socket.h"

namespace duskwell {

class AwakeController;

// Opens ~/.duskwell/control.sock for `controller`: requests run on the installed main queue
// (services().dispatcher) through ControlProtocol::answer. Nothing, with `error` set, when
// the socket cannot be opened (for instance another duskwelld of this user is running).
// Keep the result alive as long as the controller; destroy it on the main thread.
// `before` (main thread) gets each request first; what it answers is the reply, and a
// request it leaves (nothing) goes on to ControlProtocol::answer.
using ControlPreHandler = std::function<std::optional<ControlProtocol::Reply>(const std::string& request)>;
std::unique_ptr<ControlServer> startControlServer(AwakeController& controller, std::string* error = nullptr,
                                                  ControlPreHandler before = {});

// `duskwelld --open-url <url>`: forwards `url` to the running daemon and answers the exit
// status (0 handled, 1 otherwise, with the reason written to `err`). Needs the services
// installed (the socket lives in their home folder); call it instead of starting the loop.
int openURLCommand(const std::string& url, std::ostream& err);

}  // namespace duskwell
