#include "power/pmset_assertions.h"

#include <charconv>

namespace duskwell::PmsetAssertions {
namespace {

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

std::string_view nextWord(std::string_view& s) {
    s = trimmed(s);
    const auto end = s.find_first_of(" \t");
    const std::string_view word = s.substr(0, end);
    s.remove_prefix(end == std::string_view::npos ? s.size() : end);
    return word;
}

std::optional<Assertion> parseRow(std::string_view line) {
    line = trimmed(line);
    if (line.rfind("pid ", 0) != 0) return std::nullopt;
    line.remove_prefix(4);
    Assertion a;
    const auto [end, ec] = std::from_chars(line.data(), line.data() + line.size(), a.pid);
    if (ec != std::errc() || a.pid <= 0 || end == line.data() + line.size() || *end != '(') return std::nullopt;
    line.remove_prefix(static_cast<std::size_t>(end - line.data()) + 1);
    // The process name runs to the last "): [" since it may hold parentheses itself.
    const auto close = line.rfind("): [");
    if (close == std::string_view::npos) return std::nullopt;
    a.process = std::string(line.substr(0, close));
    line.remove_prefix(close + 3);
    const auto idEnd = line.find(']');
    if (idEnd == std::string_view::npos) return std::nullopt;
    line.remove_prefix(idEnd + 1);
    std::string_view word = nextWord(line);
    if (word.find(':') != std::string_view::npos) word = nextWord(line);  // the age, "00:12:34"
    if (word.empty()) return std::nullopt;
    a.type = std::string(word);
    line = trimmed(line);
    if (line.rfind("named:", 0) == 0) {
        line = trimmed(line.substr(6));
        if (line.size() >= 2 && line.front() == '"') {
            const auto quote = line.rfind('"');
            a.name = std::string(line.substr(1, quote > 0 ? quote - 1 : 0));
        } else {
            a.name = std::string(line);
        }
    }
    return a;
}

}  // namespace

std::vector<Assertion> parse(std::string_view text) {
    std::vector<Assertion> out;
    bool listed = false;
    while (!text.empty()) {
        const auto nl = text.find('\n');
        const std::string_view line = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        const std::string_view t = trimmed(line);
        if (t.empty()) continue;
        if (listed && t.rfind("pid ", 0) == 0) {
            if (auto a = parseRow(t)) out.push_back(std::move(*a));
            continue;
        }
        if (line.front() != ' ' && line.front() != '\t') {
            // A section heading: only "Listed by owning process:" holds the rows we read.
            listed = t.rfind("Listed by owning process", 0) == 0;
        }
    }
    return out;
}

bool holdsIdleSleepAssertion(std::string_view text, int pid) {
    for (const auto& a : parse(text))
        if (a.pid == pid && (a.type == "PreventUserIdleSystemSleep" || a.type == "NoIdleSleepAssertion")) return true;
    return false;
}

}  // namespace duskwell::PmsetAssertions
