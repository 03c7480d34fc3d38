// start, stop, toggle, extend, sleep and status: the running app is reached over its control
// socket (~/.duskwell/control.sock) with the same "duskwell://" URLs that the URL scheme
// takes; the state is read back from ~/.duskwell/status.json. See docs/commands.md.
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "cli_command.h"
#include "commands/control_socket.h"
#include "commands/status_document.h"
#include "commands/url.h"
#include "core/text.h"

extern char** environ;

namespace duskwell::cli {
namespace {

using ControlProtocol::ReplyKind;

// Long enough for a first start, which may wait for the administrator's password.
constexpr double requestTimeout = 300;

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return ".";
}
std::string supportDir() { return homeDirectory() + "/.duskwell"; }
std::string socketPath() { return supportDir() + "/control.sock"; }
std::string statusPath() { return supportDir() + "/status.json"; }

bool pathExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

const char* const notRunningText =
    "Duskwell is not running (start the app, or `duskwelld` on Linux, and try again)";

struct StatusFile {
    StatusReading doc;
    std::time_t modified = 0;
};

std::optional<StatusFile> readStatusFile() {
    std::ifstream in(statusPath(), std::ios::binary);
    if (!in) return std::nullopt;
    std::stringstream ss;
    ss << in.rdbuf();
    StatusFile file;
    auto reading = StatusDocument::read(ss.str());
    if (!reading) return std::nullopt;
    file.doc = std::move(*reading);
    struct stat st {};
    if (::stat(statusPath().c_str(), &st) == 0) file.modified = st.st_mtime;
    return file;
}

std::optional<std::time_t> parseUTC(const std::string& text) {
    std::tm tm{};
    int y, mo, d, h, mi, s;
    if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%dZ", &y, &mo, &d, &h, &mi, &s) != 6) return std::nullopt;
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = s;
    return ::timegm(&tm);
}

#ifdef __APPLE__
// Without a control socket the Mac app is reached through its URL scheme, in the background.
int openInBackground(const std::string& url) {
    const char* argv[] = {"/usr/bin/open", "-g", url.c_str(), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0)
        return fail(refused, "couldn't run /usr/bin/open");
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return fail(refused, "couldn't open " + url);
    return done;
}
#endif

void printStatusLine() {
    const auto file = readStatusFile();
    if (!file) return;
    const std::string status = file->doc.status;
    if (!status.empty()) std::cout << status << "\n";
}

// Sends one URL to the running app and reports the outcome as an exit code.
int send(const std::string& url) {
    if (!pathExists(socketPath())) {
#ifdef __APPLE__
        return openInBackground(url);
#else
        return fail(refused, notRunningText);
#endif
    }
    const ControlResponse response = sendControlRequest(socketPath(), url, requestTimeout);
    switch (response.outcome) {
        case ControlResponse::Outcome::notRunning:
#ifdef __APPLE__
            return openInBackground(url);
#else
            return fail(refused, notRunningText);
#endif
        case ControlResponse::Outcome::failed:
            return fail(refused, "couldn't reach Duskwell: " + response.text);
        case ControlResponse::Outcome::replied:
            break;
    }
    switch (response.reply.kind) {
        case ReplyKind::ok:
            printStatusLine();
            return done;
        case ReplyKind::notHandled:
            return fail(refused, "Duskwell did not understand " + url + " (is it up to date?)");
        case ReplyKind::error:
            return fail(refused, response.reply.text.empty() ? "Duskwell refused the command" : response.reply.text);
    }
    return refused;
}

// "--name value" or "--name=value"; advances `i` past what it used.
std::optional<std::string> optionValue(const std::vector<std::string>& args, size_t& i, const std::string& name) {
    const std::string& word = args[i];
    if (word == name) {
        if (i + 1 >= args.size()) return std::nullopt;
        return args[++i];
    }
    if (word.rfind(name + "=", 0) == 0) return word.substr(name.size() + 1);
    return std::nullopt;
}

std::optional<long long> wholeMinutes(const std::string& text) {
    const auto n = Text::parseInteger(text);
    if (!n || *n < 0 || *n > 1'000'000) return std::nullopt;
    return n;
}

int runStart(const std::vector<std::string>& args) {
    std::string query;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        if (word == "--mode" || word.rfind("--mode=", 0) == 0) {
            const auto mode = optionValue(args, i, "--mode");
            if (!mode || (*mode != "auto" && *mode != "timer" && *mode != "until"))
                return fail(usage, "--mode takes auto, timer or until");
            query += (query.empty() ? "?" : "&") + std::string("mode=") + *mode;
        } else if (word == "--minutes" || word.rfind("--minutes=", 0) == 0) {
            const auto value = optionValue(args, i, "--minutes");
            if (!value || !wholeMinutes(*value)) return fail(usage, "--minutes takes a whole number of minutes (0 = no limit)");
            query += (query.empty() ? "?" : "&") + std::string("minutes=") + URL::percentEncode(*value);
        } else {
            return fail(usage, "unexpected '" + word + "' (usage: duskwell start [--mode auto|timer|until] [--minutes N])");
        }
    }
    return send("duskwell://start" + query);
}

int runWithoutArguments(const std::string& host, const std::vector<std::string>& args) {
    if (!args.empty()) return fail(usage, host + " takes no arguments");
    return send("duskwell://" + host);
}

int runExtend(const std::vector<std::string>& args) {
    if (args.size() > 1) return fail(usage, "usage: duskwell extend [N]");
    if (args.empty()) return send("duskwell://extend");
    if (!wholeMinutes(args[0])) return fail(usage, "extend takes a whole number of minutes");
    return send("duskwell://extend?minutes=" + args[0]);
}

std::string ago(std::time_t then) {
    const long long secs = std::max<long long>(0, static_cast<long long>(std::time(nullptr) - then));
    if (secs < 120) return std::to_string(secs) + " s ago";
    if (secs < 7200) return std::to_string(secs / 60) + " min ago";
    return std::to_string(secs / 3600) + " h ago";
}

int runStatus(const std::vector<std::string>& args) {
    bool json = false;
    for (const auto& a : args) {
        if (a == "--json") json = true;
        else return fail(usage, "usage: duskwell status [--json]");
    }
    // Whether the file is current: the app answers on its socket while it runs. Without a
    // socket (a Mac app reached by URL) an active file whose end is more than two minutes
    // past is stale, as a running app would have ended the session and rewritten it.
    const bool haveSocket = pathExists(socketPath());
    bool live = true;
    if (haveSocket) {
        const auto r = sendControlRequest(socketPath(), std::string(ControlProtocol::ping), 5);
        live = r.outcome == ControlResponse::Outcome::replied && r.reply.kind == ReplyKind::ok;
    }

    auto file = readStatusFile();
    // A daemon that has just started writes its first file within its first five ticks.
    for (int i = 0; !file && haveSocket && live && i < 70; ++i) {
        ::usleep(100'000);
        file = readStatusFile();
    }
    if (!file) {
        if (haveSocket && live) return fail(refused, "Duskwell is running but has not written " + statusPath() + " yet");
        return fail(refused, "Duskwell has not run yet for this user (no " + statusPath() + ")");
    }

    if (!haveSocket) {
#ifdef __APPLE__
        if (file->doc.active && file->doc.endsAt) {
            const auto end = parseUTC(*file->doc.endsAt);
            if (end && std::time(nullptr) > *end + 120) live = false;
        }
#else
        live = false;
#endif
    }

    if (json) {
        std::cout << file->doc.pretty << "\n";
    } else {
        const auto& d = file->doc;
        std::cout << d.status << "\n";
        if (d.active) {
            std::cout << "Mode: " << d.mode.value_or("?") << "\n";
            if (d.endsAt) {
                std::string when = *d.endsAt;
                if (const auto t = parseUTC(when)) {
                    char buf[64];
                    std::tm local{};
                    ::localtime_r(&*t, &local);
                    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &local);
                    when = buf;
                }
                std::cout << "Ends at: " << when << "\n";
            }
            if (d.sleepsInSeconds)
                std::cout << "Sleeps in: " << *d.sleepsInSeconds << " s unless agents work\n";
        }
        for (const auto& a : d.agents) std::cout << "  " << a.name << " ×" << a.count << "  " << a.state << "\n";
    }
    if (!live) {
        return fail(refused, std::string(notRunningText) + "; this is the last state it wrote, " +
                                 ago(file->modified));
    }
    return done;
}

const Registration registrations[] = {
    Registration{{"start", "start [--mode auto|timer|until] [--minutes N]",
                  "Start keeping the machine awake (auto: until the AI agents are done; "
                  "timer: for N minutes, 0 = no limit; until: the chosen clock time).",
                  runStart}},
    Registration{{"stop", "stop", "Stop now; the machine sleeps normally again.",
                  [](const std::vector<std::string>& a) { return runWithoutArguments("stop", a); }}},
    Registration{{"toggle", "toggle", "Start with the current choices, or stop.",
                  [](const std::vector<std::string>& a) { return runWithoutArguments("toggle", a); }}},
    Registration{{"extend", "extend [N]", "Add N minutes (default 60) to a session with an end.", runExtend}},
    Registration{{"sleep", "sleep", "Stop and put the machine to sleep two seconds later.",
                  [](const std::vector<std::string>& a) { return runWithoutArguments("sleep", a); }}},
    Registration{{"status", "status [--json]",
                  "Show the state from ~/.duskwell/status.json; exit 1 when Duskwell is not running.",
                  runStatus}},
};

}  // namespace
}  // namespace duskwell::cli
