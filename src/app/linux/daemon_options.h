#pragma once
#include <optional>
#include <string>
#include <vector>

namespace duskwell {

// duskwelld's command line.
struct DaemonOptions {
    bool help = false;
    bool version = false;
    bool noDashboard = false;           // --log: one line per change even on a terminal
    bool restoreOnly = false;           // --restore: launch recovery only, then exit
    bool attach = false;                // --attach: the running service's dashboard, never a new service
    std::optional<std::string> openURL;  // --open-url URL, or a bare duskwell:// argument
    std::optional<std::string> error;    // what was wrong with the arguments
};

DaemonOptions parseDaemonOptions(const std::vector<std::string>& args);

// --help: both ways of running, the keys, the files and the signals.
std::string daemonHelpText();

}  // namespace duskwell
