// dashboard: the running service's live dashboard. The dashboard and its terminal code live in
// duskwelld; this command only finds that program and becomes it (`duskwelld --attach`), so
// the terminal command stays small and the two faces can never drift apart.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "cli_command.h"
#include "cli_text.h"

namespace duskwell::cli {
namespace {

namespace fs = std::filesystem;

// duskwelld beside this program (a build folder, /usr/bin), or two levels up from the
// libexec copy (/usr/libexec/duskwell/duskwell-cli); else the PATH.
std::string daemonProgram() {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const fs::path dir = self.parent_path();
        for (const fs::path& candidate : {dir / "duskwelld", dir / ".." / ".." / "bin" / "duskwelld"}) {
            if (::access(candidate.c_str(), X_OK) == 0) return candidate.lexically_normal().string();
        }
    }
    return "duskwelld";
}

int dashboard(const std::vector<std::string>& args) {
    if (!args.empty()) return fail(usage, say(Msg::noArguments, {"dashboard"}));
#ifdef __APPLE__
    // The Mac's dashboard is the menu-bar item's popover.
    return fail(refused, say(Msg::dashboardOnMac));
#endif
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO)) return fail(usage, say(Msg::dashboardNeedsTerminal));
    const std::string program = daemonProgram();
    std::vector<char*> argv{const_cast<char*>(program.c_str()), const_cast<char*>("--attach"), nullptr};
    ::execvp(argv[0], argv.data());
    return fail(refused, say(Msg::cannotRun, {program, std::strerror(errno)}));
}

const Registration registration{{"dashboard",
                                 "dashboard",
                                 {"The running service's live dashboard (q closes it, Q stops the service).",
                                  "실행 중인 서비스의 실시간 대시보드 (q는 닫기, Q는 서비스 중지)."},
                                 {},
                                 dashboard}};

}  // namespace
}  // namespace duskwell::cli
