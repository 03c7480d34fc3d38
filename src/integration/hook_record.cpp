#include "integration/hook_record.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace duskwell::HookRecord {
namespace {

bool safeChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '.' || c == '_' || c == '-';
}

bool isNumber(std::string_view s) {
    if (s.empty()) return false;
    if (s.find_first_not_of("0123456789.") != std::string_view::npos) return false;
    const std::string text(s);
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(value);
}

}  // namespace

std::optional<std::string> sanitizeId(std::string_view id) {
    std::string out;
    out.reserve(std::min(id.size(), maxIdLength));
    for (char c : id) {
        if (out.empty() && c == '.') continue;  // no hidden files, no "." or ".."
        out.push_back(safeChar(c) ? c : '_');
        if (out.size() == maxIdLength) break;
    }
    // A name made only of replacements says nothing; an empty one is no name at all.
    if (out.find_first_not_of('_') == std::string::npos) return std::nullopt;
    if (out.size() >= 4 && out.compare(out.size() - 4, 4, ".tmp") == 0) out.back() = '_';
    return out;
}

std::optional<std::string> fileName(std::string_view kind, std::string_view sessionId) {
    auto id = sanitizeId(sessionId);
    if (!id) return std::nullopt;
    return std::string(kind) + "-" + *id;
}

HookEffect effectOf(std::string_view event, std::optional<std::string_view> notificationType) {
    if (event == "SessionEnd") return HookEffect::remove;
    if (event != "Notification") return HookEffect::record;
    // Gemini CLI's only notification, "ToolPermission", is its approval prompt.
    if (notificationType == "permission_prompt" || notificationType == "elicitation_dialog" ||
        notificationType == "ToolPermission")
        return HookEffect::record;
    return HookEffect::ignore;
}

bool validEvent(std::string_view event) {
    if (event.empty() || event.size() > 64) return false;
    for (char c : event) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!ok) return false;
    }
    return true;
}

std::string formatTime(double seconds) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.3f", seconds);
    return buf;
}

std::optional<std::string> previousStart(std::string_view record) {
    std::size_t pos = 0;
    while (pos < record.size()) {
        std::size_t end = record.find('\n', pos);
        if (end == std::string_view::npos) end = record.size();
        std::string_view line = record.substr(pos, end - pos);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) line.remove_suffix(1);
        if (line.substr(0, 6) == "start=") {
            std::string_view value = line.substr(6);
            if (isNumber(value)) return std::string(value);
            return std::nullopt;
        }
        pos = end + 1;
    }
    return std::nullopt;
}

std::string format(std::string_view event, double at, long pid, std::string_view start,
                   std::string_view cwd) {
    std::string out;
    out.append(event).append(" ").append(formatTime(at)).append(" ").append(std::to_string(pid)).append("\n");
    out.append("start=").append(start).append("\n");
    const bool usableCwd = !cwd.empty() && cwd.front() == '/' &&
                           cwd.find_first_of(std::string_view("\n\r\0", 3)) == std::string_view::npos;
    if (usableCwd) out.append("cwd=").append(cwd).append("\n");
    return out;
}

}  // namespace duskwell::HookRecord
