#pragma once
// Hook session records: one small text file per running agent session in the sessions
// folder, written by the hook program and read on every scan.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agents/agent_kind.h"
#include "agents/agent_snapshot.h"
#include "core/date.h"

namespace duskwell {

// One record, as read from its file.
struct SessionRecord {
    std::string id;  // the file name
    AgentKind kind = AgentKind::claude;
    std::int32_t pid = 0;
    AgentState state = AgentState::idle;
    std::optional<std::string> cwd;
    std::optional<Date> start;
    Date at;

    SessionInfo info() const;  // what the snapshot carries
    bool operator==(const SessionRecord&) const = default;
};

// The end of a turn (Stop, StopFailure, Interrupt, Gemini's AfterAgent, our OpenCode
// plugin's SessionIdle) and a fresh session (SessionStart) are idle; a question to the user
// (Notification, PermissionRequest, Elicitation, the plugin's UserQuestion) waits; any other
// event works.
AgentState stateForHookEvent(std::string_view event);

// The last path component of a folder path ("/a/b/" -> "b", "/" -> "/").
std::string lastPathComponent(std::string_view path);

// Reads every record in `dir` (sorted by name). Names ending in ".tmp" are never read nor
// touched, names whose kind prefix is unknown and malformed records are skipped and left in
// place, and the record of an agent whose pid is not `alive` is deleted. Never throws.
std::vector<SessionRecord> readSessions(const std::string& dir,
                                        const std::function<bool(std::int32_t)>& alive);
// The same over the user's sessions folder (AppConfig::sessionsDir()).
std::vector<SessionRecord> readSessions(const std::function<bool(std::int32_t)>& alive);

}  // namespace duskwell
