#include "agents/process_shape.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

ProcessInfo shaped(std::string exe, std::string comm, std::string args) {
    ProcessInfo p;
    p.exe = std::move(exe);
    p.comm = std::move(comm);
    p.args = std::move(args);
    return p;
}

// Real installs, as the process table shows them; each row is one the single-field match
// missed or got wrong.
TEST(ProcessShape, EveryNameAProcessGoesByIsTried) {
    using R = ProcessRole;
    struct Case {
        const char* what;
        ProcessInfo p;
        std::optional<ProcessMatch> want;
    };
    const Case cases[] = {
        {"npm's native Claude Code on Linux: comm and argv[0] say claude, exe claude.exe",
         shaped("/home/u/n/node_modules/@anthropic-ai/claude-code/bin/claude.exe", "claude",
                "/home/u/n/node_modules/.bin/claude --resume"),
         ProcessMatch{AgentKind::claude, R::agent}},
        {"the same on macOS, where ps gives the resolved path and no kernel name",
         shaped("/opt/homebrew/lib/node_modules/@anthropic-ai/claude-code/bin/claude.exe", "",
                "claude.exe"),
         ProcessMatch{AgentKind::claude, R::agent}},
        {"a versioned native build started through its link",
         shaped("/home/u/.local/share/claude/versions/2.1.197", "claude", "claude"),
         ProcessMatch{AgentKind::claude, R::agent}},
        {"argv[0] alone (macOS ps shows the version file)",
         shaped("/Users/u/.local/share/claude/versions/2.1.197", "", "/Users/u/.local/bin/claude -c"),
         ProcessMatch{AgentKind::claude, R::agent}},
        {"OpenCode's Bun binary", shaped("/usr/lib/node_modules/opencode-ai/bin/opencode.exe", "opencode.exe", ""),
         ProcessMatch{AgentKind::opencode, R::agent}},
        {"Gemini CLI installed in a project", shaped("/usr/bin/node", "node", "node /w/app/node_modules/.bin/gemini"),
         ProcessMatch{AgentKind::gemini, R::agent}},
        {"Codex's npm wrapper", shaped("/usr/bin/node", "node", "node /usr/lib/node_modules/@openai/codex/bin/codex.js"),
         ProcessMatch{AgentKind::codex, R::agent}},
        {"Codex's app-server daemon",
         shaped("/usr/lib/node_modules/@openai/codex/vendor/x86_64/codex/codex", "codex",
                "/usr/lib/node_modules/@openai/codex/vendor/x86_64/codex/codex app-server --managed-daemon"),
         ProcessMatch{AgentKind::codex, R::daemon}},
        {"its pid-update loop", shaped("/x/codex", "codex", "/x/codex app-server daemon pid-update-loop"),
         ProcessMatch{AgentKind::codex, R::daemon}},
        {"codex-linux-sandbox is the codex binary under another argv[0]",
         shaped("/x/codex", "codex-linux-san", "codex-linux-sandbox --sandbox-policy x -- bash -c make"),
         ProcessMatch{AgentKind::codex, R::sandbox}},
        {"an app-server word inside a prompt is no daemon",
         shaped("/x/codex", "codex", "/x/codex exec fix-the-app-server-tests"),
         ProcessMatch{AgentKind::codex, R::agent}},
        {"bwrap is nothing", shaped("/usr/bin/bwrap", "bwrap", "bwrap --ro-bind / / -- /x/codex-linux-sandbox"),
         std::nullopt},
        {"our hook's shell is nothing", shaped("/usr/bin/dash", "sh", "/bin/sh -c /h/.duskwell/hook claude"),
         std::nullopt},
        {"a file named claude.exe.bak", shaped("/tmp/claude.exe.bak", "claude.exe.bak", ""), std::nullopt},
        {"a capitalised name stays nothing", shaped("/Applications/Claude.app/Contents/MacOS/Claude", "Claude", ""),
         std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(matchProcess(c.p), c.want) << c.what;
}

TEST(ProcessShape, HookRunsAreRecognisedByTheirCommandLine) {
    EXPECT_TRUE(isHookProcess(shaped("/usr/bin/dash", "sh", "/bin/sh -c /home/u/.duskwell/hook claude")));
    EXPECT_TRUE(isHookProcess(shaped("/home/u/.duskwell/hook", "hook", "/home/u/.duskwell/hook codex")));
    EXPECT_FALSE(isHookProcess(shaped("/usr/bin/bash", "bash", "bash -c make test")));
}

}  // namespace
}  // namespace duskwell
