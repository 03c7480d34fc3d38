#include "agents/proc_parsers.h"

#include <gtest/gtest.h>

#include <limits>

namespace duskwell {
namespace {

using namespace ProcParsers;

std::string statLine(const std::string& comm, std::uint64_t utime, std::uint64_t stime, int ppid = 1,
                     std::uint64_t flags = 4194304, std::uint64_t start = 12345) {
    return "4242 (" + comm + ") S " + std::to_string(ppid) + " 4242 4242 0 -1 " + std::to_string(flags) +
           " 100 0 0 0 " + std::to_string(utime) + " " + std::to_string(stime) + " 0 0 20 0 1 0 " +
           std::to_string(start) + " 1000 10 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 0 0 0 0 0\n";
}

TEST(ProcStat, TheNameRunsToTheLastParenthesis) {
    const auto s = parseStat(statLine("my) (evil prog", 70, 30, 77));
    ASSERT_TRUE(s);
    EXPECT_EQ(s->pid, 4242);
    EXPECT_EQ(s->comm, "my) (evil prog");
    EXPECT_EQ(s->ppid, 77);
    EXPECT_EQ(s->cpuTicks, 100u);
    EXPECT_EQ(s->startTime, 12345u);
    EXPECT_FALSE(s->kernelThread());
}

TEST(ProcStat, KernelThreadsAreMarked) {
    const auto s = parseStat(statLine("kworker/0:1", 0, 0, 2, 0x00208040));
    ASSERT_TRUE(s);
    EXPECT_TRUE(s->kernelThread());
}

TEST(ProcStat, CutOrGarbledTextIsRejected) {
    EXPECT_FALSE(parseStat(""));
    EXPECT_FALSE(parseStat("4242 (claude"));
    EXPECT_FALSE(parseStat("4242 (claude) S 1 2 3"));
    EXPECT_FALSE(parseStat("x (claude) S 1 4242 4242 0 -1 0 0 0 0 0 1 1 0 0 20 0 1 0 5 0"));
    EXPECT_FALSE(parseStat("4242 (claude) S one 4242 4242 0 -1 0 0 0 0 0 1 1 0 0 20 0 1 0 5 0"));
}

TEST(ProcIo, ReadAndWrittenCharactersAreAdded) {
    EXPECT_EQ(parseIoBytes("rchar: 1000\nwchar: 24\nsyscr: 5\nsyscw: 2\nread_bytes: 4096\nwrite_bytes: 0\n"
                           "cancelled_write_bytes: 0\n"),
              1024);
    EXPECT_FALSE(parseIoBytes("rchar: 1000\n"));
    EXPECT_FALSE(parseIoBytes(""));
    EXPECT_EQ(parseIoBytes("rchar: 9223372036854775807\nwchar: 9223372036854775807\n"),
              std::numeric_limits<std::int64_t>::max()) << "saturates instead of overflowing";
    EXPECT_FALSE(parseIoBytes("rchar: -5\nwchar: 1\n"));
}

TEST(ProcCmdline, NulsBecomeBlanks) {
    EXPECT_EQ(joinCmdline(std::string("python3\0-m\0mlx_lm.server\0", 25)), "python3 -m mlx_lm.server");
    EXPECT_EQ(joinCmdline(""), "");
}

TEST(ProcExecutable, ChoosesTheNameTheProcessIsKnownBy) {
    // Unreadable link (another user's process): the short name.
    EXPECT_EQ(chooseExecutable(std::nullopt, "claude"), "claude");
    // The usual case, and a name cut at 15 bytes.
    EXPECT_EQ(chooseExecutable("/usr/bin/sleep", "sleep"), "/usr/bin/sleep");
    EXPECT_EQ(chooseExecutable("/usr/local/bin/ollama_llama_server", "ollama_llama_se"),
              "/usr/local/bin/ollama_llama_server");
    // A versioned binary behind a `claude` link.
    EXPECT_EQ(chooseExecutable("/home/u/.local/share/claude/versions/2.0.14", "claude"),
              "/home/u/.local/share/claude/versions/claude");
    // A node program that titled itself.
    EXPECT_EQ(chooseExecutable("/usr/bin/node", "claude"), "/usr/bin/claude");
    // A script under an interpreter: the interpreter, whose command line is then read.
    EXPECT_EQ(chooseExecutable("/usr/bin/python3.11", "vllm"), "/usr/bin/python3.11");
    EXPECT_EQ(chooseExecutable("/usr/bin/python3.11", "python3"), "/usr/bin/python3.11");
    // Any other mismatch keeps the name it was started under.
    EXPECT_EQ(chooseExecutable("/usr/bin/dash", "Claude"), "/usr/bin/Claude");
}

TEST(ProcExecutable, ScriptHosts) {
    for (const char* n : {"node", "node22", "bun", "python", "python3.12", "Python", "uv"})
        EXPECT_TRUE(isScriptHost(n)) << n;
    for (const char* n : {"uvx", "deno", "bash", "claude", ""}) EXPECT_FALSE(isScriptHost(n)) << n;
}

}  // namespace
}  // namespace duskwell
