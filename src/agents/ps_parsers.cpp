#include "agents/ps_parsers.h"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <string>

#include "core/text.h"

namespace duskwell::PsParsers {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view skipBlanks(std::string_view s) {
    size_t i = 0;
    while (i < s.size() && isBlank(s[i])) ++i;
    return s.substr(i);
}

// The next blank-delimited field; `rest` moves past it and the blanks after it.
std::string_view nextField(std::string_view& rest) {
    rest = skipBlanks(rest);
    size_t i = 0;
    while (i < rest.size() && !isBlank(rest[i])) ++i;
    const auto field = rest.substr(0, i);
    rest = skipBlanks(rest.substr(i));
    return field;
}

std::optional<std::int32_t> parseInt32(std::string_view s) {
    const auto v = Text::parseInteger(s);
    if (!v || *v < std::numeric_limits<std::int32_t>::min() || *v > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(*v);
}

std::optional<std::int64_t> parseInt64(std::string_view s) {
    const auto v = Text::parseInteger(s);
    if (!v) return std::nullopt;
    return static_cast<std::int64_t>(*v);
}

// "12.5"; a decimal comma ("12,5", as some locales print it) is accepted too.
std::optional<double> parseCpu(std::string_view s) {
    if (s.empty() || s.size() > 32) return std::nullopt;
    std::string t(s);
    for (char& c : t)
        if (c == ',') c = '.';
    char* end = nullptr;
    const double v = std::strtod(t.c_str(), &end);
    if (end != t.c_str() + t.size() || !(v >= 0) || v > 1e7) return std::nullopt;
    return v;
}

template <typename Fn>
void forEachLine(std::string_view text, Fn fn) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        auto line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        fn(line);
        start = end + 1;
    }
}

// nettop may lead each row with a time stamp ("14:03:07.123456"); never a "name.pid".
bool isTimeStamp(std::string_view s) {
    if (s.size() < 8 || s[2] != ':' || s[5] != ':') return false;
    for (char c : s)
        if (!(c == ':' || c == '.' || (c >= '0' && c <= '9'))) return false;
    return true;
}

}  // namespace

std::vector<ProcessInfo> parseProcesses(std::string_view psOutput) {
    std::vector<ProcessInfo> out;
    forEachLine(psOutput, [&](std::string_view line) {
        std::string_view rest = line;
        const auto pid = parseInt32(nextField(rest));
        const auto ppid = parseInt32(nextField(rest));
        const auto cpu = parseCpu(nextField(rest));
        if (!pid || !ppid || !cpu || rest.empty()) return;
        ProcessInfo p;
        p.pid = *pid;
        p.ppid = *ppid;
        p.cpu = *cpu;
        p.exe = std::string(rest);
        out.push_back(std::move(p));
    });
    return out;
}

std::optional<double> parseElapsed(std::string_view text) {
    double days = 0;
    if (const auto dash = text.find('-'); dash != std::string_view::npos) {
        const auto d = parseInt64(text.substr(0, dash));
        if (!d || *d < 0) return std::nullopt;
        days = static_cast<double>(*d);
        text.remove_prefix(dash + 1);
    }
    const auto parts = Text::split(text, ':', Text::Empty::keep);
    if (parts.size() < 2 || parts.size() > 3) return std::nullopt;
    double seconds = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        const auto v = parseInt64(parts[i]);
        // Minutes and seconds stay below 60; hours take any two digits.
        const bool hours = parts.size() == 3 && i == 0;
        if (!v || *v < 0 || parts[i].size() > 2 || (!hours && *v >= 60)) return std::nullopt;
        seconds = seconds * 60 + static_cast<double>(*v);
    }
    return days * 86400 + seconds;
}

std::unordered_map<std::int32_t, Arguments> parseArguments(std::string_view psOutput) {
    std::unordered_map<std::int32_t, Arguments> out;
    forEachLine(psOutput, [&](std::string_view line) {
        std::string_view rest = line;
        const auto pid = parseInt32(nextField(rest));
        if (!pid) return;
        Arguments a;
        std::string_view afterAge = rest;
        if ((a.elapsed = parseElapsed(nextField(afterAge)))) rest = afterAge;
        a.args = std::string(rest);
        out[*pid] = std::move(a);
    });
    return out;
}

std::unordered_map<std::int32_t, std::int64_t> parseNettop(std::string_view nettopOutput) {
    std::unordered_map<std::int32_t, std::int64_t> out;
    forEachLine(nettopOutput, [&](std::string_view line) {
        auto fields = Text::split(line, ',', Text::Empty::keep);
        if (!fields.empty() && isTimeStamp(fields[0])) fields.erase(fields.begin());
        if (fields.size() < 3) return;
        const auto& name = fields[0];
        const auto dot = name.rfind('.');
        if (dot == std::string::npos) return;
        const auto pid = parseInt32(std::string_view(name).substr(dot + 1));
        const auto in = parseInt64(fields[1]);
        const auto outBytes = parseInt64(fields[2]);
        if (!pid || !in || !outBytes || *in < 0 || *outBytes < 0) return;
        out[*pid] = addBytes(*in, *outBytes);
    });
    return out;
}

ProcessTable buildTable(std::string_view processes, std::string_view arguments,
                        std::string_view nettop, std::optional<int> gpu, Date now) {
    ProcessTable table;
    table.processes = parseProcesses(processes);
    const auto args = parseArguments(arguments);
    const auto net = parseNettop(nettop);
    for (auto& p : table.processes) {
        if (const auto a = args.find(p.pid); a != args.end()) {
            p.args = a->second.args;
            if (a->second.elapsed) p.started = addSeconds(now, -*a->second.elapsed);
        }
        if (const auto n = net.find(p.pid); n != net.end()) p.netBytes = n->second;
    }
    table.gpu = gpu;
    return table;
}

}  // namespace duskwell::PsParsers
