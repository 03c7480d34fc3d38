#include "dashboard_launcher.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

namespace duskwell {

std::optional<std::vector<std::string>> dashboardTerminalCommand(const std::string& path) {
    // Each terminal's way of saying "run this command"; the command's words follow.
    static const std::vector<std::vector<std::string>> terminals{
        {"xdg-terminal-exec"},  {"x-terminal-emulator", "-e"}, {"gnome-terminal", "--"},
        {"konsole", "-e"},      {"xfce4-terminal", "-x"},      {"xterm", "-e"},
    };
    for (const auto& terminal : terminals) {
        std::stringstream dirs(path);
        std::string dir;
        while (std::getline(dirs, dir, ':')) {
            if (dir.empty()) continue;
            const std::string candidate = dir + "/" + terminal.front();
            if (::access(candidate.c_str(), X_OK) != 0) continue;
            std::vector<std::string> argv{candidate};
            argv.insert(argv.end(), terminal.begin() + 1, terminal.end());
            argv.insert(argv.end(), {"duskwell", "dashboard"});
            return argv;
        }
    }
    return std::nullopt;
}

bool launchDetached(const std::vector<std::string>& argv) {
    if (argv.empty()) return false;
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    // Errors of exec come back through a close-on-exec pipe: EOF means it started.
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) return false;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(report[0]);
        ::close(report[1]);
        return false;
    }
    if (child == 0) {
        // The middle process exits at once, so the terminal is adopted by init, not by us.
        ::setsid();
        if (::fork() != 0) ::_exit(0);
        const int null = ::open("/dev/null", O_RDWR);
        if (null >= 0) {
            ::dup2(null, STDIN_FILENO);
            ::dup2(null, STDOUT_FILENO);
            ::dup2(null, STDERR_FILENO);
        }
        ::execv(args[0], args.data());
        const char failed = 1;
        [[maybe_unused]] const auto n = ::write(report[1], &failed, 1);
        ::_exit(127);
    }
    ::close(report[1]);
    int status = 0;
    ::waitpid(child, &status, 0);
    char failed = 0;
    const auto n = ::read(report[0], &failed, 1);
    ::close(report[0]);
    return n == 0;
}

}  // namespace duskwell
