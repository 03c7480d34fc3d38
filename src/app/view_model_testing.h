#pragma once
// Test support for the view-model tests: puts a controller into the states a user meets
// where no public operation leads there without the tick loop or a scan (agents seen,
// busy, an update found), and renders in each language.
#include "testing/awake_controller_test_access.h"
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_snapshot.h"
#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell {

namespace viewtest {

using Access = AwakeControllerTestAccess;

inline AgentItem agent(AgentKind kind, AgentState state, int count = 1, bool viaHooks = false,
                       std::optional<Date> since = std::nullopt) {
    AgentItem item;
    item.kind = kind;
    item.state = state;
    item.count = count;
    item.viaHooks = viaHooks;
    item.since = since;
    return item;
}

inline AgentSnapshot snapshot(std::vector<AgentItem> items) {
    AgentSnapshot s;
    s.items = std::move(items);
    return s;
}

// Runs `body` once in English, then once in Korean.
inline void inEachLanguage(const std::function<void(bool korean)>& body) {
    for (bool korean : {false, true}) {
        SCOPED_TRACE(korean ? "Korean" : "English");
        Locale::overrideForTesting(korean);
        body(korean);
    }
    Locale::overrideForTesting(std::nullopt);
}

// The English or the Korean text, for expectations written side by side.
inline std::string pick(bool korean, const std::string& en, const std::string& ko) { return korean ? ko : en; }

}  // namespace viewtest
}  // namespace duskwell
