#include "commands/control_protocol.h"

namespace duskwell::ControlProtocol {

std::string format(const Reply& reply) {
    std::string text = reply.text;
    for (char& c : text)
        if (c == '\n' || c == '\r') c = ' ';
    switch (reply.kind) {
        case ReplyKind::ok: return text.empty() ? "ok" : "ok " + text;
        case ReplyKind::notHandled: return "not-handled";
        case ReplyKind::error: break;
    }
    return "error " + text;
}

namespace {
// The text is shown on a terminal: no control characters (escape sequences, a carriage
// return that overwrites the line) get through.
std::string printable(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    return out;
}
}  // namespace

std::optional<Reply> parse(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line == "ok") return Reply{ReplyKind::ok, {}};
    if (line.rfind("ok ", 0) == 0) return Reply{ReplyKind::ok, printable(line.substr(3))};
    if (line == "not-handled") return Reply{ReplyKind::notHandled, {}};
    if (line.rfind("error ", 0) == 0) return Reply{ReplyKind::error, printable(line.substr(6))};
    if (line == "error") return Reply{ReplyKind::error, {}};
    return std::nullopt;
}

bool acceptableRequest(std::string_view line) {
    if (line.empty() || line.size() > maxRequestBytes) return false;
    for (const char c : line)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
    return true;
}

std::optional<std::pair<int, int>> parseClock(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon < 1 || colon > 2 || text.size() != colon + 3) return std::nullopt;
    int hour = 0, minute = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i == colon) continue;
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        (i < colon ? hour : minute) = (i < colon ? hour : minute) * 10 + (text[i] - '0');
    }
    if (hour > 23 || minute > 59) return std::nullopt;
    return std::pair{hour, minute};
}

}  // namespace duskwell::ControlProtocol
