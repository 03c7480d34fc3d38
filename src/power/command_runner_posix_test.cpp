#include "power/command_runner_posix.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

TEST(PosixCommandRunner, StatusAndBothStreamsInOne) {
    PosixCommandRunner r;
    auto res = r.run("/bin/sh", {"-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ(res.status, 3);
    EXPECT_EQ(res.output, "out\nerr\n");
    res = r.run("/bin/sh", {"-c", "printf 'only error' >&2"});
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(res.output, "only error");
}

TEST(PosixCommandRunner, ArgumentsReachTheProgramUnquotedAndUnsplitAndItsOutputStaysText) {
    PosixCommandRunner r;
    auto res = r.run("/bin/sh", {"-c", "printf '%s|' \"$@\"", "sh", "a b", "$(id)", "'q'"});
    EXPECT_EQ(res.output, "a b|$(id)|'q'|");
    EXPECT_EQ(r.run("/usr/bin/printf", {"a\\377b"}).output, "a\xEF\xBF\xBD" "b") << "invalid UTF-8 is replaced, not lost";
}

TEST(PosixCommandRunner, AChattyChildDoesNotDeadlock) {
    PosixCommandRunner r;
    // 3 MB on stdout and stderr, far beyond any pipe buffer.
    auto res = r.run("/bin/sh", {"-c", "head -c 2000000 /dev/zero | tr '\\0' a; head -c 1000000 /dev/zero | tr '\\0' b >&2"});
    EXPECT_EQ(res.status, 0);
    EXPECT_EQ(res.output.size(), 3000000u);
}

TEST(PosixCommandRunner, DetachedChildRunsOnItsOwnAndTerminatesAMissingProgramFails) {
    PosixCommandRunner r;
    auto child = r.spawnDetached("/bin/sleep", {"30"});
    ASSERT_NE(child, nullptr);
    const int pid = child->pid();
    EXPECT_EQ(r.run("/bin/kill", {"-0", std::to_string(pid)}).status, 0);
    child->terminate();
    EXPECT_NE(r.run("/bin/kill", {"-0", std::to_string(pid)}).status, 0);
    EXPECT_EQ(r.spawnDetached("/nonexistent/x", {}), nullptr);
    const auto missing = r.run("/nonexistent/duskwell-nothing", {"x"});
    EXPECT_EQ(missing.status, -1);
    EXPECT_NE(missing.output.find("/nonexistent/duskwell-nothing"), std::string::npos) << "with the reason";
}

}  // namespace
}  // namespace duskwell
