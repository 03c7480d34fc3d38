#pragma once
// The terminal command's subcommands register themselves here, one file each.
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace duskwell::cli {

// Exit codes shared by every subcommand.
enum Exit : int {
    done = 0,
    refused = 1,     // the app refused, or the operation failed
    usage = 2,       // bad arguments; nothing was changed
    notRunning = 3,  // the command needs the running app (or duskwelld) and there is none
};

// A text in both languages; which one shows follows the app's rule (core/localization.h).
struct Words {
    const char* en;
    const char* ko;
    std::string text() const;
};

struct Option {
    std::string name;  // "--minutes N"
    Words help;
};

struct Command {
    std::string name;
    std::string synopsis;  // "start [--mode auto|timer|until] [--minutes N] [--at HH:MM] [--json]"
    Words summary;         // one line for --help
    std::vector<Option> options;
    // Runs with the words after the subcommand's name; returns an Exit code.
    std::function<int(const std::vector<std::string>& args)> run;
};

std::vector<Command>& registry();
// Further help sections by command name, printed under "Keys:" (`config`'s settings).
std::map<std::string, std::vector<Option>>& helpKeys();

// Adds a subcommand at start-up: `static Registration r{{"agents", ...}};`
struct Registration {
    explicit Registration(Command c) { registry().push_back(std::move(c)); }
};

// Whether --json was given: every outcome is then one JSON object on stdout.
bool jsonOutput();
// Prints "duskwell: <message>" to stderr (and {"ok":false,"error":...,"exit":code} on stdout
// under --json) and answers `code`.
int fail(int code, const std::string& message);
// Under --json prints `object` with "ok": true added; otherwise prints `text` when not empty.
int succeed(nlohmann::json object, const std::string& text);
// Colours only on a terminal, and never under NO_COLOR or TERM=dumb.
bool colourAllowed();

// Splits "--name value" / "--name=value"; advances `i` past what it used. Nothing when
// `args[i]` is another word; `missing` is set (never cleared) when the option lacks its value.
std::optional<std::string> optionValue(const std::vector<std::string>& args, size_t& i, const std::string& name,
                                       bool& missing);

}  // namespace duskwell::cli
