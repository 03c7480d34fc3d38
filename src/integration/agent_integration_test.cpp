#include "integration/agent_integration.h"

#include <algorithm>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/localization.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::readFile;
using testing::TestEnvironment;
using testing::writeFile;

// A temporary HOME with the agent's folder and a shipped hook program to install.
struct HookHome {
    TestEnvironment env;
    std::string home = env.home.path();
    std::string shipped = home + "/bundle/duskwell-hook";

    HookHome() {
        fs::create_directories(home + "/bundle");
        writeFile(shipped, "#!/bin/sh\n# hook v2\n");
        env.platform.resources["duskwell-hook"] = shipped;
    }
    std::string claudeFile() const { return home + "/.claude/settings.json"; }
    std::string codexFile() const { return home + "/.codex/hooks.json"; }
    std::string ownCommand(const std::string& kind) const { return home + "/.duskwell/hook " + kind; }
    json read(const std::string& path) const { return json::parse(readFile(path).value_or("null")); }
};

json ownGroup(const std::string& command) {
    const int timeout = command.ends_with(" codex") ? 3 : 5;
    return json::parse(R"({"hooks":[{"type":"command","command":")" + command + R"(","timeout":)" +
                       std::to_string(timeout) + "}]}");
}

int ownGroupCount(const json& groups) {
    int n = 0;
    for (const auto& g : groups)
        if (g.dump().find("/.duskwell/hook") != std::string::npos) ++n;
    return n;
}

const char* kUserSettings = R"json({
  "model": "opus",
  "env": {"PROXY": "http://localhost:8080/v1"},
  "permissions": {"allow": ["Bash(ls:*)"]},
  "hooks": {
    "Stop": [{"matcher": "", "hooks": [{"type": "command", "command": "say done"}]}],
    "PreToolUse": [{"matcher": "Bash", "hooks": [{"type": "command", "command": "/usr/local/bin/guard", "timeout": 30}]}],
    "Notification": [{"hooks": [{"type": "http", "url": "https://example.com/hook"}]}]
  }
})json";

// Each agent's file, the events that start a turn, ask the user, end a turn and end the
// session, and the folder whose presence says the agent is set up here.
TEST(AgentIntegrationPaths, NameEachAgentsFileEventsAndFolder) {
    HookHome h;
    struct Case {
        AgentKind kind;
        std::optional<std::string> file;
        std::vector<const char*> events;
        const char* folder;  // under HOME
    };
    const std::vector<const char*> claudeLike = {"SessionStart", "UserPromptSubmit", "PreToolUse", "PermissionRequest",
                                                 "PostToolUse", "Stop", "SessionEnd"};
    const std::vector<Case> cases = {
        {AgentKind::claude, h.claudeFile(), claudeLike, "/.claude"},
        {AgentKind::codex, h.codexFile(), claudeLike, "/.codex"},
        {AgentKind::gemini, h.home + "/.gemini/settings.json",
         {"SessionStart", "BeforeAgent", "BeforeTool", "Notification", "AfterTool", "AfterAgent", "SessionEnd"}, "/.gemini"},
        // The plugin's own folder is ours to create; OpenCode's settings folder tells it is set up.
        {AgentKind::opencode, h.home + "/.config/opencode/plugins/duskwell.js", {}, "/.config/opencode"},
        {AgentKind::ollama, std::nullopt, {}, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind.rawValue());
        EXPECT_EQ(AgentIntegration::configFile(c.kind), c.file);
        const auto events = AgentIntegration::events(c.kind);
        for (const char* e : c.events) EXPECT_NE(std::find(events.begin(), events.end(), e), events.end()) << e;
        EXPECT_FALSE(AgentIntegration::isAvailable(c.kind));
        if (!c.folder) continue;
        fs::create_directories(h.home + c.folder);
        EXPECT_TRUE(AgentIntegration::isAvailable(c.kind)) << "the file itself need not exist";
    }
    EXPECT_EQ(AgentIntegration::hookCommand(AgentKind::gemini), h.ownCommand("gemini"));
}

// Gemini CLI counts hook timeouts in milliseconds, and reads its settings with comments,
// which we could not write back.
TEST(AgentIntegrationInstall, GeminiGetsMillisecondTimeoutsAndAFileWithCommentsIsLeftAlone) {
    HookHome h;
    const std::string file = h.home + "/.gemini/settings.json";
    fs::create_directories(h.home + "/.gemini");
    writeFile(file, R"({"security": {"auth": {"selectedType": "gemini-api-key"}}, "url": "http://x/*y*/"})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::gemini), std::nullopt);
    const json settings = h.read(file);
    EXPECT_EQ(settings["url"], "http://x/*y*/");
    EXPECT_EQ(settings["hooks"]["AfterAgent"][0]["hooks"][0]["timeout"], 5000);
    EXPECT_FALSE(settings["hooks"].contains("PreCompress")) << "fires inside every turn, and alone on /compress";

    const std::string commented = "{\n  // the model\n  \"model\": {\"name\": \"gemini-3.5-pro\"}\n}\n";
    writeFile(file, commented);
    fs::remove(file + ".duskwell-backup");
    const auto error = AgentIntegration::install(AgentKind::gemini);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, "Left settings file unchanged: " + file + " (a comment is not in a form Duskwell understands)");
    EXPECT_EQ(readFile(file), commented);
    EXPECT_FALSE(fs::exists(file + ".duskwell-backup"));
}

TEST(AgentIntegrationPaths, InstalledMeansTheFileMentionsTheMarker) {
    HookHome h;
    EXPECT_FALSE(AgentIntegration::isInstalled(AgentKind::claude)) << "missing file";
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), R"({"note": "once ran /old/.duskwell/hook by hand"})");
    EXPECT_TRUE(AgentIntegration::isInstalled(AgentKind::claude));
    writeFile(h.claudeFile(), R"({"hooks": {}})");
    EXPECT_FALSE(AgentIntegration::isInstalled(AgentKind::claude));
}

TEST(AgentIntegrationInstall, IntoAMissingFileWritesOnlyHooksAndNoBackup) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);

    const json settings = h.read(h.claudeFile());
    ASSERT_TRUE(settings.is_object());
    EXPECT_EQ(settings.size(), 1u);
    const json& hooks = settings.at("hooks");
    EXPECT_EQ(hooks.size(), AgentIntegration::events(AgentKind::claude).size());
    for (const auto& event : AgentIntegration::events(AgentKind::claude))
        EXPECT_EQ(hooks.at(event), json::array({ownGroup(h.ownCommand("claude"))})) << event;
    EXPECT_FALSE(fs::exists(h.claudeFile() + ".duskwell-backup"));
    EXPECT_TRUE(AgentIntegration::isInstalled(AgentKind::claude));
}

TEST(AgentIntegrationInstall, InstallsTheHookProgramFirst) {
    HookHome h;
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    const std::string installed = h.home + "/.duskwell/hook";
    EXPECT_EQ(readFile(installed), readFile(h.shipped));
    EXPECT_EQ(fs::status(installed).permissions() & fs::perms::all, static_cast<fs::perms>(0755));
    EXPECT_TRUE(fs::is_directory(h.home + "/.duskwell/sessions"));

    // A newer app replaces the program and leaves it executable.
    writeFile(h.shipped, "#!/bin/sh\n# hook v3\n");
    fs::permissions(installed, static_cast<fs::perms>(0500), fs::perm_options::replace);
    ASSERT_EQ(AgentIntegration::installScript(), std::nullopt);
    EXPECT_EQ(readFile(installed), "#!/bin/sh\n# hook v3\n");
    EXPECT_EQ(fs::status(installed).permissions() & fs::perms::all, static_cast<fs::perms>(0755));
}

TEST(AgentIntegrationInstall, WithoutTheShippedProgramFailsAndWritesNothing) {
    HookHome h;
    h.env.platform.resources.clear();
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), kUserSettings);
    EXPECT_EQ(AgentIntegration::install(AgentKind::claude), "Hook script missing from the app.");
    EXPECT_EQ(readFile(h.claudeFile()), kUserSettings);
    EXPECT_FALSE(fs::exists(h.claudeFile() + ".duskwell-backup"));
    EXPECT_FALSE(fs::exists(h.home + "/.duskwell/hook"));

    Locale::overrideForTesting(true);
    EXPECT_EQ(AgentIntegration::installScript(), "앱 번들에 훅 스크립트가 없습니다.");
    Locale::overrideForTesting(std::nullopt);
}

TEST(AgentIntegrationInstall, KeepsTheUsersHooksAndKeysAndAppendsOurGroupLast) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), kUserSettings);
    const json before = json::parse(kUserSettings);

    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    const json after = h.read(h.claudeFile());
    for (const char* key : {"model", "env", "permissions"}) EXPECT_EQ(after.at(key), before.at(key)) << key;
    ASSERT_EQ(after["hooks"]["PreToolUse"].size(), 2u);
    EXPECT_EQ(after["hooks"]["PreToolUse"][0], before["hooks"]["PreToolUse"][0]) << "the user's matcher group";
    ASSERT_EQ(after["hooks"]["Stop"].size(), 2u);
    EXPECT_EQ(after["hooks"]["Stop"][0], before["hooks"]["Stop"][0]);
    EXPECT_EQ(after["hooks"]["Stop"][1], ownGroup(h.ownCommand("claude")));
    ASSERT_EQ(after["hooks"]["Notification"].size(), 2u);
    EXPECT_EQ(after["hooks"]["Notification"][0], before["hooks"]["Notification"][0]) << "another tool's http hook";

    // The backup holds the file exactly as the user left it.
    EXPECT_EQ(readFile(h.claudeFile() + ".duskwell-backup"), kUserSettings);
}

TEST(AgentIntegrationInstall, WritesSortedPrettyJsonWithPlainSlashes) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), kUserSettings);
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    const std::string text = readFile(h.claudeFile()).value();
    EXPECT_EQ(text.find("\\/"), std::string::npos);
    EXPECT_NE(text.find("\"http://localhost:8080/v1\""), std::string::npos);
    EXPECT_NE(text.find("\n  \"env\": {\n    \"PROXY\""), std::string::npos) << text;
    EXPECT_LT(text.find("\"env\""), text.find("\"hooks\""));
    EXPECT_LT(text.find("\"hooks\""), text.find("\"model\""));
    EXPECT_LT(text.find("\"model\""), text.find("\"permissions\""));
    EXPECT_EQ(text.back(), '\n');
}

TEST(AgentIntegrationInstall, TwiceLeavesOneGroupPerEventAndReplacesAnOlderCommand) {
    HookHome h;
    fs::create_directories(h.home + "/.codex");
    writeFile(h.codexFile(), R"({"hooks": {"Stop": [
        {"hooks": [{"type": "command", "command": "/Users/old/.duskwell/hook codex --v1", "timeout": 9}]},
        {"hooks": [{"type": "command", "command": "notify-send done"}]}]}})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    const json hooks = h.read(h.codexFile()).at("hooks");
    EXPECT_EQ(hooks.size(), AgentIntegration::events(AgentKind::codex).size());
    for (const auto& event : AgentIntegration::events(AgentKind::codex)) EXPECT_EQ(ownGroupCount(hooks.at(event)), 1) << event;
    ASSERT_EQ(hooks.at("Stop").size(), 2u);
    EXPECT_EQ(hooks["Stop"][0]["hooks"][0]["command"], "notify-send done");
    EXPECT_EQ(hooks["Stop"][1], ownGroup(h.ownCommand("codex")));
}

TEST(AgentIntegrationInstall, KeepsTheFilesModeAndALinkedFileStaysALink) {
    HookHome h;
    fs::create_directories(h.home + "/dotfiles");
    fs::create_directories(h.home + "/.claude");
    writeFile(h.home + "/dotfiles/claude.json", R"({"model": "opus"})");
    fs::permissions(h.home + "/dotfiles/claude.json", static_cast<fs::perms>(0600), fs::perm_options::replace);
    fs::create_symlink(h.home + "/dotfiles/claude.json", h.claudeFile());

    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    EXPECT_TRUE(fs::is_symlink(h.claudeFile()));
    const json linked = h.read(h.home + "/dotfiles/claude.json");
    EXPECT_EQ(linked.at("model"), "opus");
    EXPECT_TRUE(linked.contains("hooks"));
    EXPECT_EQ(fs::status(h.home + "/dotfiles/claude.json").permissions() & fs::perms::all, static_cast<fs::perms>(0600));
    // No temporary file is left beside it.
    int entries = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(h.home + "/dotfiles")) ++entries;
    EXPECT_EQ(entries, 1);
}

TEST(AgentIntegrationErrors, ATopLevelArrayOrBrokenJsonFailsAndTouchesNothing) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    const std::string backup = h.claudeFile() + ".duskwell-backup";
    for (const std::string& contents : {std::string("[1, 2]"), std::string("{\"hooks\": {"), std::string("\"text\"")}) {
        writeFile(h.claudeFile(), contents);
        EXPECT_EQ(AgentIntegration::install(AgentKind::claude), "Can't parse settings file: " + h.claudeFile()) << contents;
        EXPECT_EQ(AgentIntegration::uninstall(AgentKind::claude), "Can't parse settings file: " + h.claudeFile()) << contents;
        EXPECT_EQ(readFile(h.claudeFile()), contents);
        EXPECT_FALSE(fs::exists(backup));
    }

    // An older backup stays exactly as it was.
    writeFile(backup, "{\"original\": true}");
    writeFile(h.claudeFile(), "[]");
    EXPECT_NE(AgentIntegration::install(AgentKind::claude), std::nullopt);
    EXPECT_EQ(readFile(backup), "{\"original\": true}");

    Locale::overrideForTesting(true);
    EXPECT_EQ(AgentIntegration::install(AgentKind::claude), "설정 파일 형식을 읽을 수 없습니다: " + h.claudeFile());
    Locale::overrideForTesting(std::nullopt);
}

TEST(AgentIntegrationErrors, AnUnreadableFileReportsWhyAndWhere) {
    HookHome h;
    fs::create_directories(h.claudeFile());  // a folder where the file should be
    const auto error = AgentIntegration::install(AgentKind::claude);
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->find(h.claudeFile()), std::string::npos) << *error;
    EXPECT_NE(error->find("Can't read settings file"), std::string::npos) << *error;
}

TEST(AgentIntegrationBackup, IsMadeOnceAndNeverOverwritten) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), R"({"model": "first"})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    const std::string backup = h.claudeFile() + ".duskwell-backup";
    EXPECT_EQ(readFile(backup), R"({"model": "first"})");

    writeFile(h.claudeFile(), R"({"model": "second"})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    ASSERT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt);
    EXPECT_EQ(readFile(backup), R"({"model": "first"})");
    EXPECT_EQ(h.read(h.claudeFile()), json::parse(R"({"model": "second"})"));
}

TEST(AgentIntegrationUninstall, RestoresTheUsersFileInMeaning) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), kUserSettings);
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    ASSERT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt);
    EXPECT_EQ(h.read(h.claudeFile()), json::parse(kUserSettings))
        << "no empty UserPromptSubmit/PostToolUse/SessionEnd arrays are left behind";
    EXPECT_FALSE(AgentIntegration::isInstalled(AgentKind::claude));
}

TEST(AgentIntegrationUninstall, DropsAHooksObjectThatOnlyHeldOurs) {
    HookHome h;
    fs::create_directories(h.home + "/.codex");
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    ASSERT_EQ(AgentIntegration::uninstall(AgentKind::codex), std::nullopt);
    EXPECT_EQ(h.read(h.codexFile()), json::object());
}

TEST(AgentIntegrationUninstall, RemovesOnlyOurEntriesFromEveryEventAndKeepsTheUsers) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), R"({"hooks": {
        "SessionStart": [{"hooks": [{"type": "command", "command": "/home/x/.duskwell/hook claude"}]}],
        "PreCompact": [],
        "PreToolUse": [{"hooks": [{"type": "command", "command": "/home/x/.duskwell/hooks/guard.sh"}]}],
        "Stop": [{"matcher": "", "hooks": [{"type": "command", "command": "say done"},
                            {"type": "command", "command": "/home/x/.duskwell/hook claude"}]}]}})");
    ASSERT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt);
    EXPECT_EQ(h.read(h.claudeFile()), json::parse(R"({"hooks": {"PreCompact": [],
        "PreToolUse": [{"hooks": [{"type": "command", "command": "/home/x/.duskwell/hooks/guard.sh"}]}],
        "Stop": [{"matcher": "", "hooks": [{"type": "command", "command": "say done"}]}]}})"))
        << "the user's entry beside ours and their own script under ~/.duskwell/hooks stay";

    // Installing again keeps the user's entry in its group and adds our own group.
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    const json stop = h.read(h.claudeFile())["hooks"]["Stop"];
    ASSERT_EQ(stop.size(), 2u);
    EXPECT_EQ(stop[0]["hooks"], json::parse(R"([{"type": "command", "command": "say done"}])"));
    EXPECT_EQ(stop[1], ownGroup(h.ownCommand("claude")));
}

TEST(AgentIntegrationErrors, WhatWeCannotEditFaithfullyIsRefusedAndLeftAlone) {
    struct Case {
        const char* contents;
        const char* why;
        bool uninstallRefused;  // uninstall refuses only when something of ours is inside
    };
    const Case cases[] = {
        {R"({"hooks": "managed elsewhere"})", "\"hooks\"", false},
        {R"({"hooks": ["/x/.duskwell/hook claude"]})", "\"hooks\"", true},
        {R"({"hooks": {"Stop": {"hooks": []}}})", "\"hooks\".Stop", false},
        {R"({"hooks": {"Stop": {"cmd": "/x/.duskwell/hook claude"}}})", "\"hooks\".Stop", true},
        {R"({"limit": 123456789012345678901234567890, "hooks": {}})", "a long or large number", true},
        {R"({"ratio": 0.1234567890123456789, "hooks": {}})", "a long or large number", true},
        {R"({"tiny": 1e-400})", "a long or large number", true},
    };
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    for (const auto& c : cases) {
        writeFile(h.claudeFile(), c.contents);
        const auto error = AgentIntegration::install(AgentKind::claude);
        ASSERT_TRUE(error.has_value()) << c.contents;
        EXPECT_EQ(error->rfind("Left settings file unchanged: " + h.claudeFile(), 0), 0u) << *error;
        EXPECT_NE(error->find(c.why), std::string::npos) << *error;
        EXPECT_EQ(AgentIntegration::uninstall(AgentKind::claude).has_value(), c.uninstallRefused) << c.contents;
        EXPECT_EQ(readFile(h.claudeFile()), c.contents);
        EXPECT_FALSE(fs::exists(h.claudeFile() + ".duskwell-backup")) << c.contents;
    }

    // Numbers a double carries exactly go through, whatever their spelling.
    writeFile(h.claudeFile(), R"({"a": 9007199254740993, "b": -12, "c": 0.5, "d": 1e20, "e": 0.000, "f": 23.4567812})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    EXPECT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt)
        << "a number as we printed it reads back (23.4567812 prints with 17 digits)";
    const json after = h.read(h.claudeFile());
    EXPECT_EQ(after["a"].get<std::int64_t>(), 9007199254740993);
    EXPECT_EQ(after["d"].get<double>(), 1e20);
}

TEST(AgentIntegrationErrors, DeeplyNestedSettingsAreRefusedBeforeAnyBackup) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    const std::string deep = "{\"x\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
    writeFile(h.claudeFile(), deep);
    const auto error = AgentIntegration::install(AgentKind::claude);
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->find("deeply nested"), std::string::npos) << *error;
    EXPECT_FALSE(fs::exists(h.claudeFile() + ".duskwell-backup"));
}

TEST(AgentIntegrationUninstall, OfAMissingFileCreatesNothing) {
    HookHome h;
    EXPECT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt);
    EXPECT_FALSE(fs::exists(h.home + "/.claude"));
    fs::create_directories(h.home + "/.codex");
    EXPECT_EQ(AgentIntegration::uninstall(AgentKind::codex), std::nullopt);
    EXPECT_FALSE(fs::exists(h.codexFile()));
    EXPECT_FALSE(fs::exists(h.codexFile() + ".duskwell-backup"));
}

TEST(AgentIntegrationUninstall, LeavesAFileWithoutOurHookByteForByte) {
    HookHome h;
    fs::create_directories(h.home + "/.claude");
    writeFile(h.claudeFile(), kUserSettings);
    ASSERT_EQ(AgentIntegration::uninstall(AgentKind::claude), std::nullopt);
    EXPECT_EQ(readFile(h.claudeFile()), kUserSettings);
    EXPECT_FALSE(fs::exists(h.claudeFile() + ".duskwell-backup"));
}

TEST(AgentIntegrationLoad, ABlankFileReadsAsEmptySettings) {
    HookHome h;
    fs::create_directories(h.home + "/.codex");
    writeFile(h.codexFile(), "\n");
    json settings = json::array();
    EXPECT_EQ(AgentIntegration::load(h.codexFile(), settings), std::nullopt);
    EXPECT_EQ(settings, json::object());
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    EXPECT_EQ(h.read(h.codexFile()).at("hooks").size(), AgentIntegration::events(AgentKind::codex).size());
}

// Codex records trust per entry once the user chose Trust; until then our hook never runs.
TEST(AgentIntegrationTrust, CodexNeedsATrustEntryForEveryOneOfOurEntries) {
    HookHome h;
    fs::create_directories(h.home + "/.codex");
    writeFile(h.codexFile(), R"({"hooks": {"Stop": [{"hooks": [{"type": "command", "command": "notify-send done"}]}]}})");
    ASSERT_EQ(AgentIntegration::install(AgentKind::codex), std::nullopt);
    const json hooks = h.read(h.codexFile());
    EXPECT_EQ(hooks["hooks"]["Stop"][1]["hooks"][0]["timeout"], 3) << "Codex clamps some events to 3 s";

    // The text Codex appends when the user trusts them all (our Stop group comes second).
    std::string all = "[hooks.state]\n\n";
    for (const auto& event : AgentIntegration::events(AgentKind::codex)) {
        std::string snake;
        for (char c : event) {
            if (c >= 'A' && c <= 'Z') snake += std::string(snake.empty() ? "" : "_") + char(c - 'A' + 'a');
            else snake += c;
        }
        const int group = event == "Stop" ? 1 : 0;
        all += "[hooks.state.\"" + h.codexFile() + ":" + snake + ":" + std::to_string(group) + ":0\"]\n" +
               "trusted_hash = \"sha256:00\"\n\n";
    }
    const auto without = [&](const std::string& piece) {
        std::string t = all;
        t.erase(t.find(piece), piece.size());
        return t;
    };
    EXPECT_TRUE(AgentIntegration::trustsOwnHooks(hooks, h.codexFile(), all));
    EXPECT_FALSE(AgentIntegration::trustsOwnHooks(hooks, h.codexFile(), ""));
    EXPECT_FALSE(AgentIntegration::trustsOwnHooks(hooks, h.codexFile(), without(":stop:1:0\"]\ntrusted_hash")))
        << "one entry left untrusted";
    EXPECT_FALSE(AgentIntegration::trustsOwnHooks(hooks, h.codexFile(), without("trusted_hash = \"sha256:00\"\n\n")))
        << "a table without its hash";
    EXPECT_FALSE(AgentIntegration::trustsOwnHooks(hooks, h.codexFile() + ".other", all)) << "another file's entries";

    // The same through the files, as `duskwell agents` and the settings page see it.
    EXPECT_TRUE(AgentIntegration::awaitsTrust(AgentKind::codex));
    writeFile(h.home + "/.codex/config.toml", "model = \"x\"\n\n" + all);
    EXPECT_FALSE(AgentIntegration::awaitsTrust(AgentKind::codex));
    EXPECT_FALSE(AgentIntegration::awaitsTrust(AgentKind::claude)) << "Claude Code runs hooks without asking";
}

}  // namespace
}  // namespace duskwell
