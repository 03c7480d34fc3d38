#pragma once
#include <optional>
#include <string>
#include <vector>

namespace duskwell {

// The command that opens `duskwell dashboard` in a new terminal window, with the first
// terminal program found on `path` (a PATH-style list): the desktop's chosen one first
// (xdg-terminal-exec, Debian's x-terminal-emulator), then common ones. Nothing when none is
// installed.
std::optional<std::vector<std::string>> dashboardTerminalCommand(const std::string& path);

// Starts `argv` in its own session, detached from us (no zombie left to reap, no terminal
// or pipe of ours inherited). False when it could not be started.
bool launchDetached(const std::vector<std::string>& argv);

}  // namespace duskwell
