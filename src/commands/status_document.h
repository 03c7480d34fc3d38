#pragma once
#include <optional>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/date.h"
#include "core/keep_mode.h"

namespace duskwell {

// What the status file says, gathered from the controller. The builder applies the
// presence rules: "mode", "endsAt" and "sleepsInSeconds" appear only while active.
struct StatusFacts {
    struct Agent {
        std::string name;   // the kind's display title
        int count = 0;
        std::string state;  // "idle", "waiting", "working"
    };
    bool active = false;
    std::string status;   // statusLine()
    std::string version;
    std::optional<KeepMode> mode;
    std::optional<Date> endsAt;
    std::optional<double> sleepsInSeconds;
    // Whether what the period set up still holds; nothing when unknown. "held" appears
    // only while active, "heldReasons" (codes: "inhibitor", "lid", "profile") only when false.
    std::optional<bool> held;
    std::vector<std::string> heldReasons;
    std::vector<Agent> agents;  // snapshot order
    std::optional<Date> written;  // when the file was written; a reader tells a stale file by it
};

// The status file as a reader sees it. The file is anyone's to edit: a field that is
// missing or of the wrong type reads as absent, never as an error.
struct StatusReading {
    struct Agent {
        std::string name = "?";
        std::int64_t count = 0;
        std::string state = "?";
    };
    bool active = false;
    std::string status;
    std::optional<std::string> mode;
    std::optional<std::string> endsAt;
    std::optional<std::int64_t> sleepsInSeconds;
    std::optional<std::string> written;
    std::optional<bool> held;
    std::vector<std::string> heldReasons;  // the string members of "heldReasons", in order
    std::vector<Agent> agents;
    std::string pretty;  // the whole document again, 2-space indented (for --json)
};

namespace StatusDocument {

// Nothing when the text is not a JSON object (or is nested absurdly deep).
std::optional<StatusReading> read(std::string_view text);

// Pretty-printed JSON with sorted keys, so equal facts give byte-identical text.
// Invalid UTF-8 in any text is replaced, never rejected.
std::string json(const StatusFacts& facts);

// "2026-11-15T18:30:00Z": UTC, whole seconds (fractions dropped).
std::string iso8601UTC(Date date);

}  // namespace StatusDocument
}  // namespace duskwell
