#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace duskwell {

class AwakeController;

// The control socket's line protocol (docs/commands.md). A client connects to
// ~/.duskwell/control.sock, writes one request line ended by "\n" and reads one reply line:
//
//   request: a "duskwell://..." URL, "ping" (is the app's main loop alive?), "version",
//            or one of the settings requests (control_config.h)
//   reply:   "ok" | "ok <text>" | "not-handled" | "error <text>"
//
// The server then closes the connection. One request per connection. A server older than
// `version` 2 answers "not-handled" to "version" and to the settings requests.
namespace ControlProtocol {

inline constexpr std::size_t maxRequestBytes = 4096;
inline constexpr std::string_view ping = "ping";
// Answered "ok <version>". Raised whenever a request is added; old requests never change.
inline constexpr std::string_view versionRequest = "version";
inline constexpr int version = 2;

enum class ReplyKind { ok, notHandled, error };

struct Reply {
    ReplyKind kind = ReplyKind::error;
    std::string text;  // one line: the reason of an `error`, the answer of an `ok` (may be empty)
    bool operator==(const Reply&) const = default;
};

// "ok", "ok <text>", "not-handled", "error <text>" (new lines in the text become blanks),
// no "\n".
std::string format(const Reply& reply);
// The inverse of `format`; nothing for any other line. A trailing "\r" or "\n" is ignored.
std::optional<Reply> parse(std::string_view line);

// A request is acceptable when it is non-empty, within the size limit and has no control
// characters (the trailing "\n" already removed).
bool acceptableRequest(std::string_view line);

// "HH:MM" (00:00 to 23:59, one or two hour digits) as hour and minute; nothing otherwise.
std::optional<std::pair<int, int>> parseClock(std::string_view text);

// Runs one request against the controller (main thread) and answers it: URLs go through
// `handleURL`; a start that leaves no session running, or an extend without a session,
// answers an error with the reason, so that the terminal command can exit non-zero.
Reply answer(AwakeController& controller, const std::string& request);

}  // namespace ControlProtocol
}  // namespace duskwell
