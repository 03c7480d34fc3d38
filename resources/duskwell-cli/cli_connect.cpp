// `duskwell connect claude|codex` and `duskwell disconnect claude|codex`: adds or removes
// Duskwell's hook in the agent's settings file, so that a machine without the app's
// window (a headless Linux box) can connect its agents.
//
// They edit files in the user's home and need no running app.
#include <iostream>
#include <string>
#include <vector>

#include "agents/agent_kind.h"
#include "cli_command.h"
#include "core/localization.h"
#include "integration/agent_integration.h"

namespace duskwell::cli {
namespace {

enum class Direction { connect, disconnect };

int runConnect(Direction direction, const std::vector<std::string>& args) {
    const char* verb = direction == Direction::connect ? "connect" : "disconnect";
    if (args.size() != 1) return fail(usage, std::string("usage: duskwell ") + verb + " claude|codex");
    const auto kind = AgentKind::fromRawValue(args[0]);
    if (!kind || !kind->supportsHooks())
        return fail(usage, "'" + args[0] + "' has no hooks to " + verb + " (claude or codex)");

    const auto error = direction == Direction::connect ? AgentIntegration::install(*kind)
                                                       : AgentIntegration::uninstall(*kind);
    if (error) return fail(refused, *error);

    const std::string title(kind->title());
    const std::string file = AgentIntegration::configFile(*kind).value_or("");
    if (direction == Direction::connect) {
        std::cout << T(title + " 연결됨: " + file, title + " connected: " + file) << "\n";
        if (const auto hint = AgentIntegration::trustHint(*kind)) std::cout << *hint << "\n";
    } else {
        std::cout << T(title + " 연결 해제됨", title + " disconnected") << "\n";
    }
    return done;
}

const Registration connectCommand{{
    "connect",
    "connect claude|codex",
    "Adds Duskwell's hook to the agent's settings, for exact working and waiting states.",
    [](const std::vector<std::string>& args) { return runConnect(Direction::connect, args); },
}};

const Registration disconnectCommand{{
    "disconnect",
    "disconnect claude|codex",
    "Removes Duskwell's hook from the agent's settings.",
    [](const std::vector<std::string>& args) { return runConnect(Direction::disconnect, args); },
}};

}  // namespace
}  // namespace duskwell::cli
