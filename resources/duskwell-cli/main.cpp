// duskwell: control Duskwell from a terminal.
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "cli_command.h"
#include "cli_services.h"

namespace duskwell::cli {

std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

int fail(int code, const std::string& message) {
    std::cerr << "duskwell: " << message << "\n";
    return code;
}

namespace {

void printHelp(std::ostream& out) {
    auto commands = registry();
    std::sort(commands.begin(), commands.end(), [](const Command& a, const Command& b) { return a.name < b.name; });
    out << "usage: duskwell start | stop | status\n\n"
           "Keeps your machine awake while AI agents work, through the running Duskwell app.\n\n"
           "Commands:\n";
    for (const auto& c : commands) {
        out << "  " << c.synopsis << "\n";
        out << "      " << c.summary << "\n";
    }
    out << "\nExit status: 0 done, 1 refused or Duskwell not running, 2 usage error.\n";
}

}  // namespace
}  // namespace duskwell::cli

int main(int argc, char** argv) {
    using namespace duskwell::cli;
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
    for (const auto& c : registry()) {
        if (c.name != words[0]) continue;
        std::vector<std::string> rest(words.begin() + 1, words.end());
        if (std::find(rest.begin(), rest.end(), "--help") != rest.end()) {
            std::cout << "usage: duskwell " << c.synopsis << "\n" << c.summary << "\n";
            return done;
        }
        RealServices services;  // the real platform, for the subcommands that need it
        return c.run(rest);
    }
    return fail(usage, "unknown command '" + words[0] + "' (see duskwell --help)");
}
