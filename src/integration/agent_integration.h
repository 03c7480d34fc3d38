#pragma once
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_kind.h"

namespace duskwell {

// Adds and removes our hook in the agents' own settings files.
namespace AgentIntegration {

inline constexpr const char* marker = "/.duskwell/hook";

std::optional<std::string> configFile(AgentKind kind);
std::vector<std::string> events(AgentKind kind);
bool isAvailable(AgentKind kind);
bool isInstalled(AgentKind kind);
// Each answers the user-facing error text on failure, nothing on success.
std::optional<std::string> install(AgentKind kind);
std::optional<std::string> uninstall(AgentKind kind);
std::optional<std::string> installScript();

}  // namespace AgentIntegration
}  // namespace duskwell
