#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agents/agent_kind.h"
#include "core/date.h"

namespace duskwell {

// Ordered: idle < waiting < working.
class AgentState {
public:
    enum Value : int { idle = 0, waiting = 1, working = 2 };
    constexpr AgentState(Value v) : value_(v) {}  // NOLINT: implicit by design
    constexpr Value value() const { return value_; }
    std::string_view rawValue() const;  // "idle", "waiting", "working"
    constexpr bool operator==(const AgentState&) const = default;
    constexpr auto operator<=>(const AgentState&) const = default;

private:
    Value value_;
};

// One live hook session.
struct SessionInfo {
    std::string id;
    AgentKind kind = AgentKind::claude;
    AgentState state = AgentState::idle;
    std::optional<std::string> project;
    std::optional<Date> start;
    Date at;
    bool operator==(const SessionInfo&) const = default;
};

// One row per kind.
struct AgentItem {
    AgentKind kind = AgentKind::claude;
    int count = 0;
    AgentState state = AgentState::idle;
    bool viaHooks = false;
    std::optional<Date> since;
    std::string id() const { return std::string(kind.rawValue()); }
    bool operator==(const AgentItem&) const = default;
};

// The result of one scan.
struct AgentSnapshot {
    std::vector<AgentItem> items;
    std::vector<SessionInfo> sessions;
    std::optional<int> gpu;

    bool busy() const;
    int workingCount() const;
    bool operator==(const AgentSnapshot&) const = default;
};

}  // namespace duskwell
