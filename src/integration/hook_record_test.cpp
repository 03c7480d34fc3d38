#include "integration/hook_record.h"

#include "agents/session_records.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

TEST(HookRecordName, KeepsOrdinarySessionIds) {
    EXPECT_EQ(HookRecord::fileName("claude", "3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44"),
              "claude-3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44");
    EXPECT_EQ(HookRecord::fileName("codex", "019d036d-c7fa_72d2.b6fd"), "codex-019d036d-c7fa_72d2.b6fd");
}

TEST(HookRecordName, NeverLeavesTheSessionsFolder) {
    EXPECT_EQ(HookRecord::sanitizeId("../../.ssh/authorized_keys"), "_.._.ssh_authorized_keys");
    EXPECT_EQ(HookRecord::sanitizeId("a/b\\c d\ne"), "a_b_c_d_e");
    EXPECT_EQ(HookRecord::sanitizeId("..hidden"), "hidden");
    EXPECT_EQ(HookRecord::sanitizeId(".."), std::nullopt);
    EXPECT_EQ(HookRecord::sanitizeId(""), std::nullopt);
    EXPECT_EQ(HookRecord::sanitizeId("///"), std::nullopt);
    EXPECT_EQ(HookRecord::sanitizeId("세션"), std::nullopt) << "nothing usable is left";
}

TEST(HookRecordName, IsCappedAndNeverLooksLikeATemporaryFile) {
    EXPECT_EQ(HookRecord::sanitizeId(std::string(500, 'a'))->size(), HookRecord::maxIdLength);
    EXPECT_EQ(HookRecord::sanitizeId("abc.tmp"), "abc.tm_");
}

TEST(HookRecordEvent, AcceptsOnlyPlainNames) {
    EXPECT_TRUE(HookRecord::validEvent("UserPromptSubmit"));
    EXPECT_TRUE(HookRecord::validEvent("post_tool_use"));
    EXPECT_FALSE(HookRecord::validEvent(""));
    EXPECT_FALSE(HookRecord::validEvent("Stop 1 2"));
    EXPECT_FALSE(HookRecord::validEvent("Stop\nstart=0"));
    EXPECT_FALSE(HookRecord::validEvent(std::string(65, 'A')));
}

TEST(HookRecordText, HoldsEventTimePidThenStartAndCwd) {
    EXPECT_EQ(HookRecord::format("Stop", 1763806800.25, 4242, "1763806000.000", "/Users/ann/work/app"),
              "Stop 1763806800.250 4242\nstart=1763806000.000\ncwd=/Users/ann/work/app\n");
}

TEST(HookRecordText, LeavesOutACwdThatCouldBreakTheFormat) {
    EXPECT_EQ(HookRecord::format("Stop", 1, 7, "1.000", "relative/dir"), "Stop 1.000 7\nstart=1.000\n");
    EXPECT_EQ(HookRecord::format("Stop", 1, 7, "1.000", "/tmp/x\nstart=0"), "Stop 1.000 7\nstart=1.000\n");
    EXPECT_EQ(HookRecord::format("Stop", 1, 7, "1.000", ""), "Stop 1.000 7\nstart=1.000\n");
}

TEST(HookRecordText, FindsTheStartOfAnEarlierRecord) {
    EXPECT_EQ(HookRecord::previousStart("Stop 2.000 7\nstart=1763806000.125\ncwd=/x\n"), "1763806000.125");
    EXPECT_EQ(HookRecord::previousStart("Stop 2 7\n  start=17  \r\n"), "17");
    EXPECT_EQ(HookRecord::previousStart("Stop 2 7\nstart=soon\n"), std::nullopt);
    EXPECT_EQ(HookRecord::previousStart("Stop 2 7\ncwd=/x\n"), std::nullopt);
    EXPECT_EQ(HookRecord::previousStart(""), std::nullopt);
}

// Event streams as the real agents send them, through the hook's filter and the reader's
// mapping: what the user would see after each event.
TEST(HookRecordStream, RealEventOrdersGiveTheStatesAUserSees) {
    struct Step {
        const char* event;
        std::optional<std::string_view> notification;
        const char* seen;  // "idle", "waiting", "working", or "gone"
    };
    const auto replay = [](const std::vector<Step>& steps) {
        std::string state = "gone";
        for (const auto& step : steps) {
            using namespace HookRecord;
            switch (effectOf(step.event, step.notification)) {
                case HookEffect::record: state = stateForHookEvent(step.event).rawValue(); break;
                case HookEffect::remove: state = "gone"; break;
                case HookEffect::ignore: break;
            }
            EXPECT_EQ(state, step.seen) << "after " << step.event << " " << step.notification.value_or("");
        }
    };
    // Claude Code, interactive: a tool that needs permission, approved, then the reminder
    // a minute after the turn, which must not turn a finished agent into a waiting one.
    replay({{"SessionStart", {}, "idle"},
            {"UserPromptSubmit", {}, "working"},
            {"PreToolUse", {}, "working"},
            {"PermissionRequest", {}, "waiting"},
            {"Notification", "permission_prompt", "waiting"},
            {"PostToolUse", {}, "working"},
            {"Stop", {}, "idle"},
            {"Notification", "idle_prompt", "idle"},
            {"Notification", "auth_success", "idle"},
            {"Notification", {}, "idle"},
            {"Notification", "elicitation_dialog", "waiting"},
            {"SessionEnd", {}, "gone"}});
    // Codex: an interrupted turn, then the daemon's late SessionEnd.
    replay({{"SessionStart", {}, "idle"},
            {"UserPromptSubmit", {}, "working"},
            {"PreToolUse", {}, "working"},
            {"Interrupt", {}, "idle"},
            {"SessionEnd", {}, "gone"}});
    // Gemini CLI: an approved shell command, then /quit, which ends the session three times.
    replay({{"SessionStart", {}, "idle"},
            {"BeforeAgent", {}, "working"},
            {"BeforeModel", {}, "working"},
            {"BeforeTool", {}, "working"},
            {"Notification", "ToolPermission", "waiting"},
            {"AfterTool", {}, "working"},
            {"BeforeModel", {}, "working"},
            {"AfterAgent", {}, "idle"},
            {"SessionEnd", {}, "gone"},
            {"SessionEnd", {}, "gone"},
            {"SessionEnd", {}, "gone"}});
    // Our OpenCode plugin's messages: loaded, a turn that asks, answered, done.
    replay({{"SessionStart", {}, "idle"},
            {"SessionBusy", {}, "working"},
            {"UserQuestion", {}, "waiting"},
            {"SessionBusy", {}, "working"},
            {"SessionIdle", {}, "idle"}});
}

}  // namespace
}  // namespace duskwell
