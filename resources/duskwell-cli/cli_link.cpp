#include "cli_link.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "commands/control_protocol.h"

namespace duskwell::cli {

namespace {
std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return ".";
}
}  // namespace

std::string supportDir() { return homeDirectory() + "/.duskwell"; }
std::string socketPath() { return supportDir() + "/control.sock"; }
std::string statusPath() { return supportDir() + "/status.json"; }

ControlResponse ask(const std::string& request, double timeoutSeconds) {
    struct stat st {};
    if (::lstat(socketPath().c_str(), &st) != 0) return {ControlResponse::Outcome::notRunning, {}, {}};
    return sendControlRequest(socketPath(), request, timeoutSeconds);
}

Reach reach(std::string* reason) {
    const ControlResponse r = ask(std::string(ControlProtocol::versionRequest), 5);
    switch (r.outcome) {
        case ControlResponse::Outcome::notRunning: return Reach::notRunning;
        case ControlResponse::Outcome::failed:
            if (reason) *reason = r.text;
            return Reach::broken;
        case ControlResponse::Outcome::replied: break;
    }
    if (r.reply.kind == ControlProtocol::ReplyKind::ok) return Reach::current;
    if (reason) *reason = r.reply.text;
    return r.reply.kind == ControlProtocol::ReplyKind::notHandled ? Reach::outOfDate : Reach::broken;
}

}  // namespace duskwell::cli
