#pragma once
// The terminal command's subcommands register themselves here, one file each.
#include <functional>
#include <string>
#include <vector>

namespace duskwell::cli {

// Exit codes shared by every subcommand.
enum Exit : int {
    done = 0,
    refused = 1,  // the app refused, is not running, or the operation failed
    usage = 2,    // bad arguments
};

struct Command {
    std::string name;
    std::string synopsis;  // "start [--mode auto|timer|until] [--minutes N]"
    std::string summary;   // one line for --help
    // Runs with the words after the subcommand's name; returns an Exit code.
    std::function<int(const std::vector<std::string>& args)> run;
};

std::vector<Command>& registry();

// Adds a subcommand at start-up: `static Registration r{{"agents", ...}};`
struct Registration {
    explicit Registration(Command c) { registry().push_back(std::move(c)); }
};

// Prints "duskwell: <message>" to stderr and answers `code`.
int fail(int code, const std::string& message);

}  // namespace duskwell::cli
