// start, stop, toggle, extend, sleep and status: the running app is reached over its control
// socket (~/.duskwell/control.sock) with the same "duskwell://" URLs that the URL scheme
// takes; the state is read back from ~/.duskwell/status.json. See docs/commands.md.
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "cli_command.h"
#include "cli_link.h"
#include "cli_text.h"
#include "commands/control_protocol.h"
#include "commands/status_document.h"
#include "commands/url.h"
#include "core/app_config.h"
#include "core/text.h"

extern char** environ;

namespace duskwell::cli {
namespace {

using ControlProtocol::ReplyKind;
using nlohmann::json;

// Long enough for a first start, which may wait for the administrator's password.
constexpr double requestTimeout = 300;

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
    return succeed({{"command", "open"}, {"url", url}}, "");
}
#endif

// The state after a command: the status file's document and its one-line summary.
int reportState(const std::string& command) {
    const auto file = readStatusFile();
    json out{{"command", command}};
    if (file) out["status"] = json::parse(file->doc.pretty, nullptr, false);
    return succeed(out, file ? file->doc.status : "");
}

// Sends one URL to the running app and reports the outcome as an exit code.
int send(const std::string& command, const std::string& url) {
    const ControlResponse response = ask(url, requestTimeout);
    switch (response.outcome) {
        case ControlResponse::Outcome::notRunning:
#ifdef __APPLE__
            return openInBackground(url);
#else
            return fail(notRunning, say(Msg::notRunning));
#endif
        case ControlResponse::Outcome::failed:
            return fail(refused, say(Msg::cantReach, {response.text}));
        case ControlResponse::Outcome::replied:
            break;
    }
    switch (response.reply.kind) {
        case ReplyKind::ok: return reportState(command);
        case ReplyKind::notHandled: return fail(refused, say(Msg::notUnderstood, {url}));
        case ReplyKind::error:
            return fail(refused, response.reply.text.empty() ? say(Msg::refusedCommand) : response.reply.text);
    }
    return refused;
}

std::optional<long long> wholeMinutes(const std::string& text, long long least) {
    const auto n = Text::parseInteger(text);
    if (!n || *n < least || *n > AppConfig::maxPeriodMinutes) return std::nullopt;
    return n;
}

int runStart(const std::vector<std::string>& args) {
    std::optional<std::string> mode, minutes, at;
    for (size_t i = 0; i < args.size(); ++i) {
        bool missing = false;
        if (args[i] == "--json") continue;
        if (auto v = optionValue(args, i, "--mode", missing)) {
            if (*v != "auto" && *v != "timer" && *v != "until") return fail(usage, say(Msg::modeWords));
            mode = *v;
        } else if (auto m = optionValue(args, i, "--minutes", missing)) {
            if (!wholeMinutes(*m, 0))
                return fail(usage, say(Msg::minutesNumber, {std::to_string(AppConfig::maxPeriodMinutes)}));
            minutes = *m;
        } else if (auto a = optionValue(args, i, "--at", missing)) {
            if (!ControlProtocol::parseClock(*a)) return fail(usage, say(Msg::atFormat, {*a}));
            at = *a;
        } else if (missing) {
            return fail(usage, say(Msg::needsValue, {args[i]}));
        } else {
            return fail(usage, say(Msg::unexpected, {args[i], "start"}));
        }
    }
    // Options that would do nothing in the chosen mode are refused rather than ignored.
    if (at && !mode) mode = "until";
    if (minutes && !mode) mode = "timer";
    if (at && *mode != "until") return fail(usage, say(Msg::atWithMode, {*mode}));
    if (minutes && *mode == "auto") return fail(usage, say(Msg::minutesWithAuto));
    if (minutes && *mode == "until") return fail(usage, say(Msg::minutesWithUntil));

    std::string query;
    auto add = [&](const std::string& name, const std::string& value) {
        query += (query.empty() ? "?" : "&") + name + "=" + URL::percentEncode(value);
    };
    if (mode) add("mode", *mode);
    if (minutes) add("minutes", std::to_string(*Text::parseInteger(*minutes)));
    if (at) add("at", *at);
    return send("start", "duskwell://start" + query);
}

int runWithoutArguments(const std::string& host, const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a != "--json") return fail(usage, say(Msg::noArguments, {host}));
    return send(host, "duskwell://" + host);
}

int runExtend(const std::vector<std::string>& args) {
    std::optional<std::string> minutes;
    for (const auto& a : args) {
        if (a == "--json") continue;
        if (minutes || !wholeMinutes(a, 1))
            return fail(usage, say(Msg::extendMinutes, {std::to_string(AppConfig::maxPeriodMinutes)}));
        minutes = a;
    }
    if (!minutes) return send("extend", "duskwell://extend");
    return send("extend", "duskwell://extend?minutes=" + std::to_string(*Text::parseInteger(*minutes)));
}

std::string ago(std::time_t then) {
    const long long secs = std::max<long long>(0, static_cast<long long>(std::time(nullptr) - then));
    if (secs < 120) return say(Msg::secondsAgo, {std::to_string(secs)});
    if (secs < 7200) return say(Msg::minutesAgo, {std::to_string(secs / 60)});
    return say(Msg::hoursAgo, {std::to_string(secs / 3600)});
}

std::string localTime(const std::string& utc) {
    const auto t = parseUTC(utc);
    if (!t) return utc;
    char buf[64];
    std::tm local{};
    ::localtime_r(&*t, &local);
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M", &local);
    return buf;
}

int runStatus(const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a != "--json") return fail(usage, say(Msg::unexpected, {a, "status"}));
    // Whether the file is current: the app answers on its socket while it runs. Without a
    // socket (a Mac app reached by URL) an active file whose end is more than two minutes
    // past is stale, as a running app would have ended the session and rewritten it.
    struct stat st {};
    const bool haveSocket = ::lstat(socketPath().c_str(), &st) == 0;
    bool live = true;
    if (haveSocket) {
        const auto r = ask(std::string(ControlProtocol::ping), 5);
        live = r.outcome == ControlResponse::Outcome::replied && r.reply.kind == ReplyKind::ok;
    }

    auto file = readStatusFile();
    // A daemon that has just started writes its first file within its first five ticks.
    for (int i = 0; !file && haveSocket && live && i < 70; ++i) {
        ::usleep(100'000);
        file = readStatusFile();
    }
    if (!file) {
        if (haveSocket && live) return fail(refused, say(Msg::notWrittenYet, {statusPath()}));
        return fail(notRunning, say(Msg::neverRan, {statusPath()}));
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

    const auto& d = file->doc;
    if (jsonOutput()) {
        json doc = json::parse(d.pretty, nullptr, false);
        if (!doc.is_object()) doc = json::object();
        doc["running"] = live;
        std::cout << doc.dump(2) << "\n";
    } else {
        std::cout << d.status << "\n";
        if (d.active) {
            std::cout << say(Msg::modeLabel, {d.mode.value_or("?")}) << "\n";
            if (d.endsAt) std::cout << say(Msg::endsAtLabel, {localTime(*d.endsAt)}) << "\n";
            if (d.sleepsInSeconds) std::cout << say(Msg::sleepsIn, {std::to_string(*d.sleepsInSeconds)}) << "\n";
        }
        for (const auto& a : d.agents) std::cout << "  " << a.name << " ×" << a.count << "  " << a.state << "\n";
    }
    if (!live) {
        std::cerr << "duskwell: " << say(Msg::lastState, {say(Msg::notRunning), ago(file->modified)}) << "\n";
        return notRunning;
    }
    return done;
}

const Option jsonOption{"--json", {"print one JSON object on stdout: {\"ok\", \"command\", \"status\"}",
                                   "stdout에 JSON 객체 하나를 출력: {\"ok\", \"command\", \"status\"}"}};

const Registration registrations[] = {
    Registration{{"start",
                  "start [--mode auto|timer|until] [--minutes N] [--at HH:MM] [--json]",
                  {"Start keeping the machine awake (auto: until the AI agents are done; timer: for N minutes; "
                   "until: up to a clock time).",
                   "컴퓨터를 깨워 두기 시작해요 (auto: AI 에이전트가 끝날 때까지, timer: N분 동안, until: 정한 시각까지)."},
                  {{"--mode auto|timer|until", {"how the period ends (default: auto)", "끝나는 방식 (기본값: auto)"}},
                   {"--minutes N", {"timer length, 0 to 10080 minutes; 0 = no limit (implies --mode timer)",
                                    "타이머 길이, 0–10080분. 0 = 제한 없음 (--mode timer를 뜻함)"}},
                   {"--at HH:MM", {"end at the next such local time (implies --mode until)",
                                   "다음에 오는 그 현지 시각에 끝남 (--mode until을 뜻함)"}},
                   jsonOption},
                  runStart}},
    Registration{{"stop", "stop [--json]", {"Stop now; the machine sleeps normally again.", "지금 멈춰요. 컴퓨터가 평소처럼 잠자기해요."},
                  {jsonOption},
                  [](const std::vector<std::string>& a) { return runWithoutArguments("stop", a); }}},
    Registration{{"toggle", "toggle [--json]", {"Start with the current choices, or stop.", "현재 선택으로 시작하거나 멈춰요."},
                  {jsonOption},
                  [](const std::vector<std::string>& a) { return runWithoutArguments("toggle", a); }}},
    Registration{{"extend", "extend [N] [--json]",
                  {"Add N minutes (default 60) to a period with an end; refused for a period without one.",
                   "끝나는 시간이 있는 세션에 N분(기본 60)을 더해요. 끝이 없는 세션은 거절돼요."},
                  {{"N", {"minutes to add, 1 to 10080", "더할 분, 1–10080"}}, jsonOption},
                  runExtend}},
    Registration{{"sleep", "sleep [--json]", {"Stop and put the machine to sleep two seconds later.", "멈추고 2초 뒤 컴퓨터를 잠재워요."},
                  {jsonOption},
                  [](const std::vector<std::string>& a) { return runWithoutArguments("sleep", a); }}},
    Registration{{"status", "status [--json]",
                  {"Show the state from ~/.duskwell/status.json; exit 3 when Duskwell is not running.",
                   "~/.duskwell/status.json의 상태를 보여줘요. Duskwell이 실행 중이 아니면 종료 코드 3."},
                  {{"--json", {"print the status document with \"running\" added",
                               "상태 문서에 \"running\"을 더해 출력"}}},
                  runStatus}},
};

}  // namespace
}  // namespace duskwell::cli
