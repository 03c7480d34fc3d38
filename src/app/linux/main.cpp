// duskwelld: the keep-awake controller, headless, on Linux. For now it starts the controller,
// prints its state line at start and on every change, and runs the one-second tick until
// SIGINT or SIGTERM.
#include <asio/signal_set.hpp>
#include <csignal>
#include <ctime>
#include <iostream>
#include <optional>
#include <string>

#include "app/linux/control_server.h"
#include "asio_dispatcher.h"
#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/real_services.h"
#include "state_line.h"

namespace {

void printHelp() {
    std::cout << "usage: duskwelld [--help] [--version] [--open-url URL]\n\n"
                 "Keeps this machine awake while AI coding agents work. Runs in the foreground,\n"
                 "prints the controller's state (mode, period, battery, lid, heat) whenever it\n"
                 "changes, and stops on Ctrl-C or SIGTERM.\n\n"
                 "--open-url hands a duskwell:// URL to the running duskwelld and exits.\n\n"
                 "Settings: ~/.duskwell/settings.json\n";
}

std::string clockPrefix() {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[16];
    std::strftime(buf, sizeof buf, "%H:%M:%S ", &tm);
    return buf;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace duskwell;
    std::optional<std::string> openURL;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--open-url" && i + 1 < argc) {
            openURL = argv[++i];
            continue;
        }
        if (arg == "--help" || arg == "-h") {
            printHelp();
            return 0;
        }
        if (arg == "--version") {
            std::cout << "duskwelld " << AppConfig::version() << "\n";
            return 0;
        }
        std::cerr << "duskwelld: unknown argument: " << arg << "\n";
        printHelp();
        return 2;
    }

    AsioDispatcher dispatcher;
    RealServices services(dispatcher);
    if (openURL) return openURLCommand(*openURL, std::cerr);

    asio::signal_set signals(dispatcher.context(), SIGINT, SIGTERM);
    signals.async_wait([&](const std::error_code& ec, int) {
        if (!ec) dispatcher.quit();
    });

    {
        AwakeController controller;
        std::string socketError;
        const auto control = startControlServer(controller, &socketError);
        if (!control) {
            std::cerr << "duskwelld: control socket: " << socketError << "\n";
            return 1;
        }
        std::string printed;
        auto print = [&] {
            const std::string line = stateLine(controller);
            if (line == printed) return;
            printed = line;
            std::cout << clockPrefix() << line << std::endl;
        };
        print();
        // Announcements come before the change lands; read the state once it has.
        bool pending = false;
        auto subscription = controller.changes().subscribe([&] {
            if (pending) return;
            pending = true;
            dispatcher.post([&] {
                pending = false;
                print();
            });
        });
        dispatcher.run();
    }  // the controller (and its timer) goes before the dispatcher
    std::cout << "duskwelld: stopped\n";
    return 0;
}
