// `duskwell connect claude|codex|gemini|opencode` and `duskwell disconnect …`: adds or removes
// Duskwell's hook in the agent's settings file (OpenCode: our plugin file), so that a machine
// without the app's window (a headless Linux box) can connect its agents.
//
// They edit files in the user's home and need no running app.
#include <iostream>
#include <string>
#include <vector>

#include "agents/agent_kind.h"
#include "cli_command.h"
#include "cli_text.h"
#include "integration/agent_integration.h"

namespace duskwell::cli {
namespace {

enum class Direction { connect, disconnect };

int runConnect(Direction direction, const std::vector<std::string>& args) {
    const char* verb = direction == Direction::connect ? "connect" : "disconnect";
    std::vector<std::string> words;
    for (const auto& a : args)
        if (a != "--json") words.push_back(a);
    if (words.size() != 1) return fail(usage, say(Msg::connectUsage, {verb}));
    const auto kind = AgentKind::fromRawValue(words[0]);
    if (!kind || !kind->supportsHooks()) return fail(usage, say(Msg::noHooks, {words[0], verb}));

    const auto error = direction == Direction::connect ? AgentIntegration::install(*kind)
                                                       : AgentIntegration::uninstall(*kind);
    if (error) return fail(refused, *error);

    const std::string title(kind->title());
    const std::string file = AgentIntegration::configFile(*kind).value_or("");
    const bool on = direction == Direction::connect;
    std::string text = on ? say(Msg::connected, {title, file}) : say(Msg::disconnected, {title});
    const auto hint = on ? AgentIntegration::connectHint(*kind) : std::nullopt;
    if (hint) text += "\n" + *hint;
    nlohmann::json out{{"agent", std::string(kind->rawValue())}, {"connected", on}, {"file", file}};
    if (hint) out["hint"] = *hint;
    return succeed(out, text);
}

const Option jsonOption{"--json", {"print one JSON object: {\"ok\", \"agent\", \"connected\", \"file\"}",
                                   "JSON 객체 하나를 출력: {\"ok\", \"agent\", \"connected\", \"file\"}"}};

const Registration connectCommand{{
    "connect",
    "connect claude|codex|gemini|opencode [--json]",
    {"Adds Duskwell's hook to the agent's settings (OpenCode: a plugin), for exact working and waiting states.",
     "에이전트 설정에 Duskwell 훅(OpenCode는 플러그인)을 추가해 작업 중·대기 상태를 정확히 알아요."},
    {jsonOption},
    [](const std::vector<std::string>& args) { return runConnect(Direction::connect, args); },
}};

const Registration disconnectCommand{{
    "disconnect",
    "disconnect claude|codex|gemini|opencode [--json]",
    {"Removes Duskwell's hook from the agent's settings (OpenCode: the plugin).",
     "에이전트 설정에서 Duskwell 훅(OpenCode는 플러그인)을 제거해요."},
    {jsonOption},
    [](const std::vector<std::string>& args) { return runConnect(Direction::disconnect, args); },
}};

}  // namespace
}  // namespace duskwell::cli
