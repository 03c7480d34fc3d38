#pragma once
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "agents/agent_kind.h"

namespace duskwell {

// Adds and removes our hook in the agents' own settings files, and installs the hook
// program those entries run. Every operation runs on the caller's thread and touches only
// the files named here; none throws.
namespace AgentIntegration {

// The tail of the installed hook's path: any hook entry whose command holds it is ours.
inline constexpr const char* marker = "/.duskwell/hook";

// ~/.claude/settings.json for claude, ~/.codex/hooks.json for codex, ~/.gemini/settings.json
// for gemini, our plugin <config>/opencode/plugins/duskwell.js for opencode, nothing
// otherwise.
std::optional<std::string> configFile(AgentKind kind);
std::vector<std::string> events(AgentKind kind);
// The command registered for a kind: "<home>/.duskwell/hook <kind>".
std::string hookCommand(AgentKind kind);

// The agent is set up here: the folder of its settings file exists.
bool isAvailable(AgentKind kind);
// The settings file mentions our hook anywhere.
bool isInstalled(AgentKind kind);

// Codex runs a hook it did not write itself only once the user trusted it in Codex's own
// UI ("Hooks need review" → Trust), which records a trust entry per hook in
// ~/.codex/config.toml. True when our hook is installed and one of its entries has no
// such entry. We never write those entries ourselves.
bool awaitsTrust(AgentKind kind);
// The step left to the user after connecting (Codex's trust, Gemini's trusted folders,
// restarting OpenCode), in the user's language.
std::optional<std::string> connectHint(AgentKind kind);
// Whether `configToml` trusts every entry of our hook in `hooks` (the parsed hooks.json
// at `hooksPath`). Pure, for tests.
bool trustsOwnHooks(const nlohmann::json& hooks, const std::string& hooksPath, const std::string& configToml);

// Each answers the user-facing error text on failure, nothing on success. For OpenCode
// they write and remove the plugin file instead of editing a settings file.
std::optional<std::string> install(AgentKind kind);
std::optional<std::string> uninstall(AgentKind kind);
// Copies the shipped hook program to ~/.duskwell/hook (mode 0755) and creates the
// sessions folder.
std::optional<std::string> installScript();

// A settings file as a JSON object; a missing (or blank) file reads as an empty object.
// On failure `settings` is left as it was and the error text is answered.
std::optional<std::string> load(const std::string& path, nlohmann::json& settings);
// Writes `settings` pretty-printed with sorted keys, atomically, keeping the file's mode;
// first copies the file to "<path>.duskwell-backup" unless that backup already exists.
std::optional<std::string> save(const nlohmann::json& settings, const std::string& path);

}  // namespace AgentIntegration
}  // namespace duskwell
