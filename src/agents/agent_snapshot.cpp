#include "agents/agent_snapshot.h"

#include <algorithm>

namespace duskwell {

std::string_view AgentState::rawValue() const {
    switch (value_) {
        case idle: return "idle";
        case waiting: return "waiting";
        case working: return "working";
    }
    return "idle";
}

bool AgentSnapshot::busy() const {
    return std::any_of(items.begin(), items.end(), [](const AgentItem& i) { return i.state != AgentState::idle; });
}

int AgentSnapshot::workingCount() const {
    int n = 0;
    for (const auto& i : items)
        if (i.state == AgentState::working) n += i.count;
    return n;
}

}  // namespace duskwell
