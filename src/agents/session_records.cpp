#include "agents/session_records.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "core/app_config.h"
#include "core/text.h"

namespace fs = std::filesystem;

namespace duskwell {
namespace {

// A decimal number of seconds since 1970 (fraction allowed) that a clock can hold, or
// nothing: 1e300 would overflow the conversion to a date.
std::optional<double> parseSeconds(const std::string& s) {
    if (s.empty() || s.front() == ' ' || s.front() == '\t') return std::nullopt;
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size() || !std::isfinite(v) || v < 0 || v > 1.0e10) return std::nullopt;
    return v;
}

std::optional<std::int32_t> parsePid(std::string_view s) {
    const auto v = Text::parseInteger(s);
    if (!v || *v < std::numeric_limits<std::int32_t>::min() || *v > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(*v);
}

std::vector<std::string> splitBlanks(std::string_view line) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        const size_t b = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > b) out.emplace_back(line.substr(b, i - b));
    }
    return out;
}

std::optional<std::string> readUtf8(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad()) return std::nullopt;
    std::string bytes = ss.str();
    if (Text::sanitizeUtf8(bytes) != bytes) return std::nullopt;  // not UTF-8 text
    return bytes;
}

}  // namespace

AgentState stateForHookEvent(std::string_view event) {
    // The turn is over: finished, failed, interrupted, or a fresh session at its prompt.
    // AfterAgent is Gemini CLI's end of a turn; SessionIdle is sent by our OpenCode plugin
    // once none of its sessions is busy.
    if (event == "Stop" || event == "StopFailure" || event == "SessionStart" || event == "Interrupt" ||
        event == "AfterAgent" || event == "SessionIdle")
        return AgentState::idle;
    // A question to the user is on screen. The hook records a notification only when it
    // asks something; reminders never reach a record. UserQuestion is our OpenCode plugin's
    // name for a permission or question OpenCode asks.
    if (event == "Notification" || event == "PermissionRequest" || event == "Elicitation" ||
        event == "UserQuestion")
        return AgentState::waiting;
    // The prompt, tool use before and after, model requests, subagents, compaction.
    return AgentState::working;
}

std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/") return "/";
    const auto slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

SessionInfo SessionRecord::info() const {
    SessionInfo s;
    s.id = id;
    s.kind = kind;
    s.state = state;
    if (cwd) s.project = lastPathComponent(*cwd);
    s.start = start;
    s.at = at;
    return s;
}

std::vector<SessionRecord> readSessions(const std::string& dir,
                                        const std::function<bool(std::int32_t)>& alive) {
    std::vector<SessionRecord> out;
    std::error_code ec;
    fs::directory_iterator it(dir, ec);
    if (ec) return out;

    std::vector<fs::path> entries;
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec) break;
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());

    for (const auto& path : entries) {
        const std::string name = path.filename().string();
        // A writer still busy with a record uses a ".tmp" name and renames it when done.
        if (name.size() >= 4 && name.compare(name.size() - 4, 4, ".tmp") == 0) continue;
        const auto kind = AgentKind::fromRawValue(std::string_view(name).substr(0, name.find('-')));
        if (!kind) continue;

        const auto text = readUtf8(path);
        if (!text) continue;
        const auto lines = Text::split(*text, '\n', Text::Empty::keep);
        const auto fields = splitBlanks(lines.empty() ? std::string_view{} : std::string_view(lines[0]));
        if (fields.size() < 3) continue;
        const auto at = parseSeconds(fields[1]);
        const auto pid = parsePid(fields[2]);
        if (!at || !pid) continue;

        if (!alive(*pid)) {
            // The agent is gone: its record goes with it (a failed removal is retried next scan).
            fs::remove(path, ec);
            continue;
        }

        SessionRecord r;
        r.id = name;
        r.kind = *kind;
        r.pid = *pid;
        r.state = stateForHookEvent(fields[0]);
        r.at = dateFromUnix(*at);
        for (size_t i = 1; i < lines.size(); ++i) {
            const std::string line = Text::trim(lines[i]);
            if (line.rfind("start=", 0) == 0) {
                const auto s = parseSeconds(line.substr(6));
                r.start = s ? std::optional<Date>(dateFromUnix(*s)) : std::nullopt;
            } else if (line.rfind("cwd=", 0) == 0) {
                r.cwd = line.substr(4);
            }
        }
        out.push_back(std::move(r));
    }
    return out;
}

std::vector<SessionRecord> readSessions(const std::function<bool(std::int32_t)>& alive) {
    return readSessions(AppConfig::sessionsDir(), alive);
}

}  // namespace duskwell
