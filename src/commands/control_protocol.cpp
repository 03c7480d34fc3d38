#include "commands/control_protocol.h"

namespace duskwell::ControlProtocol {

std::string format(const Reply& reply) {
    switch (reply.kind) {
        case ReplyKind::ok: return "ok";
        case ReplyKind::notHandled: return "not-handled";
        case ReplyKind::error: break;
    }
    std::string text = reply.text;
    for (char& c : text)
        if (c == '\n' || c == '\r') c = ' ';
    return "error " + text;
}

std::optional<Reply> parse(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line == "ok") return Reply{ReplyKind::ok, {}};
    if (line == "not-handled") return Reply{ReplyKind::notHandled, {}};
    if (line.rfind("error ", 0) == 0) {
        // The text is shown on a terminal: no control characters (escape sequences, a
        // carriage return that overwrites the line) get through.
        std::string text(line.substr(6));
        for (char& c : text)
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
        return Reply{ReplyKind::error, std::move(text)};
    }
    if (line == "error") return Reply{ReplyKind::error, {}};
    return std::nullopt;
}

bool acceptableRequest(std::string_view line) {
    if (line.empty() || line.size() > maxRequestBytes) return false;
    for (const char c : line)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
    return true;
}

}  // namespace duskwell::ControlProtocol
