#include "agents/proc_parsers.h"

#include <charconv>
#include <limits>

#include "agents/agent_kind.h"

namespace duskwell::ProcParsers {
namespace {

template <typename Int>
bool parseNumber(std::string_view s, Int& out) {
    if (s.empty()) return false;
    const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && ptr == s.data() + s.size();
}

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

std::string_view baseName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::optional<Stat> parseStat(std::string_view text) {
    const auto open = text.find('(');
    const auto close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;

    Stat s;
    std::string_view pidText = text.substr(0, open);
    while (!pidText.empty() && pidText.back() == ' ') pidText.remove_suffix(1);
    if (!parseNumber(pidText, s.pid)) return std::nullopt;
    s.comm = std::string(text.substr(open + 1, close - open - 1));

    // Fields after the name, counted from 0: state, ppid, pgrp, session, tty_nr, tpgid,
    // flags, minflt, cminflt, majflt, cmajflt, utime, stime, cutime, cstime, priority,
    // nice, num_threads, itrealvalue, starttime.
    std::string_view rest = text.substr(close + 1);
    std::uint64_t utime = 0, stime = 0;
    int index = 0;
    size_t i = 0;
    while (index <= 19) {
        while (i < rest.size() && rest[i] == ' ') ++i;
        if (i >= rest.size()) return std::nullopt;
        const size_t b = i;
        while (i < rest.size() && rest[i] != ' ' && rest[i] != '\n') ++i;
        const auto field = rest.substr(b, i - b);
        bool ok = true;
        switch (index) {
            case 1: ok = parseNumber(field, s.ppid); break;
            case 6: ok = parseNumber(field, s.flags); break;
            case 11: ok = parseNumber(field, utime); break;
            case 12: ok = parseNumber(field, stime); break;
            case 19: ok = parseNumber(field, s.startTime); break;
            default: break;
        }
        if (!ok) return std::nullopt;
        ++index;
    }
    s.cpuTicks = utime > std::numeric_limits<std::uint64_t>::max() - stime ? std::numeric_limits<std::uint64_t>::max() : utime + stime;
    return s;
}

std::optional<double> parseBootTime(std::string_view text) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        const auto line = text.substr(start, end - start);
        start = end + 1;
        if (line.substr(0, 6) != "btime ") continue;
        std::int64_t v = 0;
        if (!parseNumber(line.substr(6), v) || v <= 0) return std::nullopt;
        return static_cast<double>(v);
    }
    return std::nullopt;
}

std::optional<std::int64_t> parseIoBytes(std::string_view text) {
    std::optional<std::int64_t> rchar, wchar;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        const auto line = text.substr(start, end - start);
        start = end + 1;
        const auto colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        const auto key = line.substr(0, colon);
        auto value = line.substr(colon + 1);
        while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
        std::int64_t v = 0;
        if (!parseNumber(value, v)) continue;
        if (key == "rchar") rchar = v;
        else if (key == "wchar") wchar = v;
    }
    if (!rchar || !wchar || *rchar < 0 || *wchar < 0) return std::nullopt;
    // Saturates: a forged or wrapped counter must not overflow the sum.
    return *rchar > std::numeric_limits<std::int64_t>::max() - *wchar ? std::numeric_limits<std::int64_t>::max()
                                                                        : *rchar + *wchar;
}

std::string joinCmdline(std::string_view raw) {
    while (!raw.empty() && raw.back() == '\0') raw.remove_suffix(1);
    std::string out(raw);
    for (char& c : out)
        if (c == '\0') c = ' ';
    return out;
}

bool isScriptHost(std::string_view name) {
    return startsWith(name, "node") || startsWith(name, "bun") || startsWith(name, "python") ||
           startsWith(name, "Python") || name == "uv";
}

std::string chooseExecutable(const std::optional<std::string>& target, std::string_view comm) {
    if (!target || target->empty()) return std::string(comm);
    const auto name = baseName(*target);
    if (comm.empty() || startsWith(name, comm)) return *target;
    const auto folder = std::string_view(*target).substr(0, target->size() - name.size());
    const std::string asNamed = std::string(folder) + std::string(comm);
    if (AgentKind::match(comm, {})) return asNamed;
    if (isScriptHost(name)) return *target;
    return asNamed;
}

}  // namespace duskwell::ProcParsers
