#pragma once
// Test-only helpers for the controller's scenario tests: the private handlers the timer,
// the monitor and the phone would call, and readers of what the controller sent out.
// Other test files give AwakeControllerTestAccess members of their own (power, views); the
// member names here stay distinct from theirs so that no two inline bodies ever compete.
#include "testing/awake_controller_test_access.h"
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "testing/fakes.h"

namespace duskwell {

namespace testing {

// A local time on 2026-11-`day`.
inline Date localTime(int hour, int minute, int second = 0, int day = 22) {
    std::tm tm{};
    tm.tm_year = 2026 - 1900;
    tm.tm_mon = 10;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&tm));
}

// Every ntfy alert published through the fake HTTP client, parsed, in order.
inline std::vector<nlohmann::json> phoneAlerts(const FakeHttp& http) {
    std::vector<nlohmann::json> out;
    for (const auto& r : http.requests) {
        if (r.request.method != "POST" || !r.request.body) continue;
        auto j = nlohmann::json::parse(*r.request.body, nullptr, false);
        if (j.is_object() && j.contains("topic")) out.push_back(std::move(j));
    }
    return out;
}

// The alerts whose title is `title`.
inline std::vector<nlohmann::json> phoneAlertsTitled(const FakeHttp& http, const std::string& title) {
    std::vector<nlohmann::json> out;
    for (auto& j : phoneAlerts(http))
        if (j.value("title", "") == title) out.push_back(j);
    return out;
}

// Lines of helper runs that change something ("/usr/bin/sudo -n <helper> lid-on"), in
// order; the "version" probe of the installed check is left out.
inline std::vector<std::string> helperRuns(const TestEnvironment& env) {
    std::vector<std::string> out;
    for (auto& line : env.commands.linesContaining(env.helperFile() + " "))
        if (!line.ends_with(" version")) out.push_back(line);
    return out;
}

// `n` seconds of the controller's tick.
inline void ticks(TestEnvironment& env, int n) {
    for (int i = 0; i < n; ++i) env.dispatcher.tickSecond();
}

inline std::string sleepNowLine() {
    return AppConfig::sleepNowProgram() + " " + AppConfig::sleepNowArgument();
}

// One snapshot row.
inline AgentItem agentItem(AgentKind kind, AgentState state, int count = 1) {
    AgentItem i;
    i.kind = kind;
    i.state = state;
    i.count = count;
    return i;
}

inline AgentSnapshot snapshotOf(std::vector<AgentItem> items, std::vector<SessionInfo> sessions = {}) {
    AgentSnapshot s;
    s.items = std::move(items);
    s.sessions = std::move(sessions);
    return s;
}

}  // namespace testing
}  // namespace duskwell
