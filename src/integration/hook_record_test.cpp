#include "integration/hook_record.h"

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

}  // namespace
}  // namespace duskwell
