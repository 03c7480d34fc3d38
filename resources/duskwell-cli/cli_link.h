#pragma once
// The terminal command's way to the running app: its control socket and status file.
#include <optional>
#include <string>

#include "commands/control_socket.h"

namespace duskwell::cli {

std::string supportDir();
std::string socketPath();
std::string statusPath();

// One request to the running app. `notRunning` when there is no socket or nobody answers.
ControlResponse ask(const std::string& request, double timeoutSeconds);

enum class Reach {
    current,     // answers the settings requests
    outOfDate,   // runs, but answers "version" with not-handled: an older build
    notRunning,  // nobody listens (or no socket at all)
    broken,      // the socket refused or failed; see the reason
};
// Asks the app for its protocol version.
Reach reach(std::string* reason = nullptr);

}  // namespace duskwell::cli
