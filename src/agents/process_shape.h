#pragma once
// What one process is to agent detection, from every name it goes by. Real installs hide
// the agent's name in different places: npm's native Claude Code runs as `claude.exe`
// behind a `claude` link (the kernel's name and argv[0] say "claude"), versioned builds
// run as a bare version number, script hosts carry the script's path in their arguments.
#include <optional>
#include <string>
#include <string_view>

#include "agents/agent_kind.h"
#include "agents/process_table.h"

namespace duskwell {

enum class ProcessRole {
    agent,    // the agent itself: a root of its own unless an ancestor is the same agent
    daemon,   // a helper the agent starts and leaves behind (Codex's app-server): part of an
              // agent's tree while one owns it, nothing by itself
    sandbox,  // a layer a tool runs under (codex-linux-sandbox): never an agent by itself
};

struct ProcessMatch {
    AgentKind kind;
    ProcessRole role;
    bool operator==(const ProcessMatch&) const = default;
};

// Classifies a process by its executable's name, its kernel name and argv[0] (each with a
// trailing ".exe" dropped), then by its arguments when it is a script host.
std::optional<ProcessMatch> matchProcess(const ProcessInfo& p);

// The first word of a command line: argv[0] as the process was started.
std::string_view firstWord(std::string_view args);

// True for our own hook program and the shell an agent runs it under; they come and go
// with every event and are never a tool at work.
bool isHookProcess(const ProcessInfo& p);

}  // namespace duskwell
