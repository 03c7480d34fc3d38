#pragma once
#include <optional>
#include <string>
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
    std::vector<Agent> agents;  // snapshot order
};

namespace StatusDocument {

// Pretty-printed JSON with sorted keys, so equal facts give byte-identical text.
// Invalid UTF-8 in any text is replaced, never rejected.
std::string json(const StatusFacts& facts);

// "2026-11-15T18:30:00Z": UTC, whole seconds (fractions dropped).
std::string iso8601UTC(Date date);

}  // namespace StatusDocument
}  // namespace duskwell
