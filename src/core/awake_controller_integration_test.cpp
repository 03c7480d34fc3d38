#include <gtest/gtest.h>

#include <filesystem>

#include "core/awake_controller.h"
#include "integration/agent_integration.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TestEnvironment;
using testing::writeFile;

struct ControllerHome {
    TestEnvironment env;
    std::string home = env.home.path();
    std::string shipped = home + "/bundle/duskwell-hook";
    ControllerHome() {
        fs::create_directories(home + "/bundle");
        writeFile(shipped, "#!/bin/sh\n# shipped\n");
        env.platform.resources["duskwell-hook"] = shipped;
    }
};

TEST(AwakeControllerIntegration, ListsEveryHookAgentAsConnectedOrNot) {
    ControllerHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.home + "/.claude/settings.json", R"({"hooks":{"Stop":[{"hooks":[{"type":"command","command":"/u/.duskwell/hook claude"}]}]}})");
    AwakeController c;
    const std::map<AgentKind, bool> expected{
        {AgentKind::claude, true}, {AgentKind::codex, false}, {AgentKind::gemini, false}, {AgentKind::opencode, false}};
    EXPECT_EQ(c.integrated(), expected);
}

TEST(AwakeControllerIntegration, ConnectingAndDisconnectingEditsTheFileAndTheMap) {
    ControllerHome h;
    fs::create_directories(h.home + "/.claude");
    AwakeController c;
    int announced = 0;
    auto sub = c.changes().subscribe([&] { ++announced; });

    c.setIntegration(AgentKind::claude, true);
    EXPECT_TRUE(c.integrated().at(AgentKind::claude));
    EXPECT_TRUE(AgentIntegration::isInstalled(AgentKind::claude));
    EXPECT_EQ(c.lastMessage(), std::nullopt);
    EXPECT_GE(announced, 1);

    c.setIntegration(AgentKind::claude, false);
    EXPECT_FALSE(c.integrated().at(AgentKind::claude));
    EXPECT_FALSE(AgentIntegration::isInstalled(AgentKind::claude));
}

TEST(AwakeControllerIntegration, ConnectingTellsTheUserTheStepLeftToThem) {
    const std::pair<AgentKind, const char*> cases[] = {
        {AgentKind::codex, "Codex connected. The next time you open Codex it shows \"Hooks need review\" once: choose Trust"},
        {AgentKind::gemini, "Gemini CLI connected. Gemini CLI runs hooks only in folders you trust"},
        {AgentKind::opencode, "OpenCode connected. OpenCode loads plugins when it starts: restart"},
    };
    for (const auto& [kind, message] : cases) {
        ControllerHome h;
        AwakeController c;
        c.setIntegration(kind, true);
        EXPECT_TRUE(c.integrated().at(kind)) << kind.rawValue();
        EXPECT_EQ(c.lastMessage().value_or("").rfind(message, 0), 0u) << c.lastMessage().value_or("");
    }
}

TEST(AwakeControllerIntegration, AFailureShowsItsTextAndChangesNothing) {
    ControllerHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.home + "/.claude/settings.json", "[]");
    AwakeController c;
    c.setIntegration(AgentKind::claude, true);
    EXPECT_EQ(c.lastMessage(), "Can't parse settings file: " + h.home + "/.claude/settings.json");
    EXPECT_FALSE(c.integrated().at(AgentKind::claude));
    EXPECT_EQ(readFile(h.home + "/.claude/settings.json"), "[]");

    h.env.platform.resources.clear();
    c.setIntegration(AgentKind::codex, true);
    EXPECT_EQ(c.lastMessage(), "Hook script missing from the app.");
    EXPECT_FALSE(c.integrated().at(AgentKind::codex));
}

TEST(AwakeControllerIntegration, StartingReinstallsTheHookOnlyWhenAnAgentIsConnected) {
    ControllerHome h;
    const std::string installed = h.home + "/.duskwell/hook";
    {
        AwakeController c;
        EXPECT_FALSE(fs::exists(installed)) << "nothing connected, nothing installed";
    }
    fs::create_directories(h.home + "/.codex");
    writeFile(h.home + "/.codex/hooks.json", R"({"hooks":{"Stop":[{"hooks":[{"type":"command","command":"/u/.duskwell/hook codex"}]}]}})");
    // An OpenCode plugin from an older version is brought up to date too.
    const std::string plugin = h.home + "/.config/opencode/plugins/duskwell.js";
    fs::create_directories(h.home + "/.config/opencode/plugins");
    writeFile(plugin, "// old\nconst hook = \"/u/.duskwell/hook\";\n");
    AwakeController c;
    EXPECT_EQ(readFile(installed), "#!/bin/sh\n# shipped\n");
    EXPECT_EQ(fs::status(installed).permissions() & fs::perms::all, static_cast<fs::perms>(0755));
    EXPECT_NE(readFile(plugin).value_or("").find("const hook = \"" + installed + "\";"), std::string::npos);

    // A missing resource at start-up is no error the user sees.
    h.env.platform.resources.clear();
    AwakeController again;
    EXPECT_EQ(again.lastMessage(), std::nullopt);
}

}  // namespace
}  // namespace duskwell
