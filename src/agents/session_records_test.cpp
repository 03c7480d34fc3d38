#include "agents/session_records.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "core/app_config.h"
#include "testing/fakes.h"

namespace fs = std::filesystem;

namespace duskwell {
namespace {

using testing::writeFile;

class SessionRecords : public ::testing::Test {
protected:
    testing::TestEnvironment env;
    std::string dir = AppConfig::sessionsDir();
    std::set<std::int32_t> running{100, 200, 300};

    void SetUp() override { fs::create_directories(dir); }
    std::string path(const std::string& name) const { return dir + "/" + name; }
    std::vector<SessionRecord> read() {
        return readSessions([this](std::int32_t pid) { return running.count(pid) > 0; });
    }
};

TEST_F(SessionRecords, AFullRecordIsRead) {
    writeFile(path("claude-abc"), "UserPromptSubmit 1800000000.25 100\nstart=1799999000\ncwd=/Users/ann/src/duskwell\n");
    const auto s = read();
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].id, "claude-abc");
    EXPECT_EQ(s[0].kind, AgentKind::claude);
    EXPECT_EQ(s[0].pid, 100);
    EXPECT_EQ(s[0].state, AgentState::working);
    EXPECT_EQ(s[0].at, dateFromUnix(1800000000.25));
    EXPECT_EQ(s[0].start, dateFromUnix(1799999000));
    EXPECT_EQ(s[0].cwd, "/Users/ann/src/duskwell");
    const SessionInfo info = s[0].info();
    EXPECT_EQ(info.project, "duskwell");
    EXPECT_EQ(info.id, "claude-abc");
    EXPECT_EQ(info.start, dateFromUnix(1799999000));
}

TEST_F(SessionRecords, EventsMapToStatesAsTheRecordIsRewritten) {
    const std::string file = path("codex-1");
    auto stateAfter = [&](const std::string& event) {
        writeFile(file, event + " 1800000000 200 extra fields\n");
        const auto s = read();
        EXPECT_EQ(s.size(), 1u);
        return s.empty() ? AgentState(AgentState::idle) : s[0].state;
    };
    const std::pair<const char*, AgentState> table[] = {
        {"Notification", AgentState::waiting},      {"PermissionRequest", AgentState::waiting},
        {"UserPromptSubmit", AgentState::working},  {"PreToolUse", AgentState::working},
        {"Stop", AgentState::idle},                 {"Interrupt", AgentState::idle},
        {"StopFailure", AgentState::idle},          {"SessionStart", AgentState::idle},
        {"PostModelRequest", AgentState::working},  {"SomethingNewer", AgentState::working},
    };
    for (const auto& [event, state] : table) EXPECT_EQ(stateAfter(event), state) << event;
}

TEST_F(SessionRecords, TheRecordOfAGoneAgentIsDeleted) {
    writeFile(path("claude-gone"), "Stop 1800000000 999\n");
    writeFile(path("claude-here"), "Stop 1800000000 300\n");
    const auto s = read();
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].id, "claude-here");
    EXPECT_FALSE(fs::exists(path("claude-gone")));
    EXPECT_TRUE(fs::exists(path("claude-here")));
}

TEST_F(SessionRecords, MalformedForeignAndTemporaryRecordsAreLeftInPlace) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"Claude-2", "UserPromptSubmit 1800000000 999\n"},  // kind prefix is case-sensitive
        {"cline-3", "UserPromptSubmit 1800000000 999\n"},   // unknown kind
        {"claude-4", "UserPromptSubmit 1800000000\n"},      // two fields
        {"claude-5", "UserPromptSubmit 1800000000 abc\n"},  // pid not a number
        {"claude-6", "UserPromptSubmit soon 999\n"},        // time not a number
        {"claude-7", "UserPromptSubmit 1800000000 99999999999\n"},  // pid beyond 32 bits
        {"claude-8", ""},
        {"claude-9", "\xff\xfe Stop 1 999\n"},  // not UTF-8
        {"claude-10", "Stop 1e300 999\n"},        // beyond any clock
        {"claude-11", "Stop -5 999\n"},           // before 1970
        {"claude-x.tmp", "Notification 1800000000 100\n"},  // a hook's half-written file, never read
        {"claude-y.tmp", "Notification 1800000000 999\n"},  // nor deleted when its agent is gone
    };
    for (const auto& [name, text] : files) writeFile(path(name), text);
    EXPECT_TRUE(read().empty());
    for (const auto& [name, text] : files) EXPECT_TRUE(fs::exists(path(name))) << name;
}

TEST_F(SessionRecords, OptionalLinesAreTrimmedAndMayBeMissingOrBad) {
    writeFile(path("claude-a"), "Notification 1800000000 100\n");
    writeFile(path("claude-b"), "Notification\t1800000000   200\n  start=1e300  \n\tcwd=/srv/my project/  \nnoise\n");
    const auto s = read();
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0].start, std::nullopt);
    EXPECT_EQ(s[0].cwd, std::nullopt);
    EXPECT_EQ(s[0].info().project, std::nullopt);
    EXPECT_EQ(s[1].state, AgentState::waiting);
    EXPECT_EQ(s[1].start, std::nullopt);
    EXPECT_EQ(s[1].cwd, "/srv/my project/");
    EXPECT_EQ(s[1].info().project, "my project");
}

TEST_F(SessionRecords, AMissingFolderYieldsNothing) {
    fs::remove_all(dir);
    EXPECT_TRUE(read().empty());
    EXPECT_FALSE(fs::exists(dir));
}

TEST(LastPathComponent, FollowsThePathRule) {
    EXPECT_EQ(lastPathComponent("/Users/ann/duskwell"), "duskwell");
    EXPECT_EQ(lastPathComponent("/Users/ann/duskwell/"), "duskwell");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("relative"), "relative");
}

}  // namespace
}  // namespace duskwell
