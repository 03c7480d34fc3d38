// duskwell: control Duskwell from a terminal.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "cli_command.h"
#include "cli_services.h"
#include "cli_text.h"
#include "core/localization.h"

namespace duskwell::cli {

namespace {
bool gJson = false;
}

std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

std::map<std::string, std::vector<Option>>& helpKeys() {
    static std::map<std::string, std::vector<Option>> keys;
    return keys;
}

std::string Words::text() const { return T(ko, en); }

bool jsonOutput() { return gJson; }

int fail(int code, const std::string& message) {
    std::cerr << "duskwell: " << message << "\n";
    if (gJson) std::cout << nlohmann::json{{"ok", false}, {"error", message}, {"exit", code}}.dump() << "\n";
    return code;
}

int succeed(nlohmann::json object, const std::string& text) {
    if (gJson) {
        object["ok"] = true;
        std::cout << object.dump() << "\n";
    } else if (!text.empty()) {
        std::cout << text << (text.back() == '\n' ? "" : "\n");
    }
    return done;
}

bool colourAllowed() {
    if (!::isatty(STDOUT_FILENO)) return false;
    if (const char* no = std::getenv("NO_COLOR"); no && *no) return false;
    const char* term = std::getenv("TERM");
    return !(term && std::string(term) == "dumb");
}

std::optional<std::string> optionValue(const std::vector<std::string>& args, size_t& i, const std::string& name,
                                       bool& missing) {
    const std::string& word = args[i];
    if (word == name) {
        if (i + 1 >= args.size()) {
            missing = true;
            return std::nullopt;
        }
        return args[++i];
    }
    if (word.rfind(name + "=", 0) == 0) return word.substr(name.size() + 1);
    return std::nullopt;
}

namespace {

std::vector<Command> sorted() {
    auto commands = registry();
    std::sort(commands.begin(), commands.end(), [](const Command& a, const Command& b) { return a.name < b.name; });
    return commands;
}

void printHelp(std::ostream& out) {
    out << say(Msg::helpUsage) << "\n\n" << say(Msg::helpIntro) << "\n\n" << say(Msg::helpCommands) << "\n";
    for (const auto& c : sorted()) out << "  " << c.synopsis << "\n      " << c.summary.text() << "\n";
    out << "  --version\n      duskwell " << version() << "\n";
    out << "\n" << say(Msg::helpExit) << "\n";
}

void printCommandHelp(const Command& c, std::ostream& out) {
    out << "usage: duskwell " << c.synopsis << "\n\n" << c.summary.text() << "\n";
    if (!c.options.empty()) {
        out << "\n" << say(Msg::helpOptions) << "\n";
        for (const auto& o : c.options) out << "  " << o.name << "\n      " << o.help.text() << "\n";
    }
    if (const auto keys = helpKeys().find(c.name); keys != helpKeys().end()) {
        out << "\n" << say(Msg::helpKeys) << "\n";
        for (const auto& k : keys->second) out << "  " << k.name << "\n      " << k.help.text() << "\n";
    }
    out << "\n" << say(Msg::helpExit) << "\n";
}

}  // namespace
}  // namespace duskwell::cli

int main(int argc, char** argv) {
    using namespace duskwell::cli;
    RealServices services;  // the real platform: settings, language, processes
    std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty()) {
        printHelp(std::cerr);
        return usage;
    }
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        printHelp(std::cout);
        return done;
    }
    if (words[0] == "--version") {
        std::cout << "duskwell " << duskwell::cli::version() << "\n";
        return done;
    }
    std::vector<std::string> rest(words.begin() + 1, words.end());
    gJson = std::find(rest.begin(), rest.end(), "--json") != rest.end();
    for (const auto& c : registry()) {
        if (c.name != words[0]) continue;
        if (std::find(rest.begin(), rest.end(), "--help") != rest.end() ||
            std::find(rest.begin(), rest.end(), "-h") != rest.end()) {
            printCommandHelp(c, std::cout);
            return done;
        }
        return c.run(rest);
    }
    return fail(usage, say(Msg::unknownCommand, {words[0]}));
}
