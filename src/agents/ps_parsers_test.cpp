#include "agents/ps_parsers.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

using namespace PsParsers;

// Shaped like `ps -Axo pid=,ppid=,pcpu=,comm=` on a Mac: right-aligned numbers, the
// executable last with its blanks.
const char* kPs =
    "    1     0   0.0 /sbin/launchd\n"
    "  412     1   1.5 /Applications/LM Studio.app/Contents/MacOS/LM Studio\n"
    "  999   412  12,5 /usr/local/bin/ollama_llama_server\n"
    "  abc     1   0.0 /bin/broken\n"
    " 1200     1   0.0\n"
    "\n"
    " 1300     1   bad /bin/zsh\n"
    "garbage line\n"
    " 5000  4999   0.3 /Users/ann/.local/bin/claude\r\n";

TEST(PsProcesses, FourFieldsWithBlanksKeptInTheExecutable) {
    const auto ps = parseProcesses(kPs);
    ASSERT_EQ(ps.size(), 4u);
    EXPECT_EQ(ps[0].pid, 1);
    EXPECT_EQ(ps[0].ppid, 0);
    EXPECT_EQ(ps[0].exe, "/sbin/launchd");
    EXPECT_EQ(ps[1].pid, 412);
    EXPECT_DOUBLE_EQ(ps[1].cpu, 1.5);
    EXPECT_EQ(ps[1].exe, "/Applications/LM Studio.app/Contents/MacOS/LM Studio");
    EXPECT_DOUBLE_EQ(ps[2].cpu, 12.5);  // a decimal comma from the locale
    EXPECT_EQ(ps[2].ppid, 412);
    EXPECT_EQ(ps[3].exe, "/Users/ann/.local/bin/claude");
    EXPECT_TRUE(ps[3].args.empty());
    EXPECT_FALSE(ps[3].netBytes);
}

TEST(PsProcesses, NothingFromNothing) {
    EXPECT_TRUE(parseProcesses("").empty());
    EXPECT_TRUE(parseProcesses("ps: illegal option -- A\nusage: ps ...\n").empty());
}

TEST(PsArguments, ElapsedTimeThenTheWholeCommandLine) {
    // `ps -Axo pid=,etime=,args=`; a line without the elapsed column keeps its words.
    const auto args = parseArguments(
        "    1 3-02:15:07 /sbin/launchd\n"
        "  777    01:05 node   /usr/local/lib/node_modules/@anthropic-ai/claude-code/cli.js --resume  x\n"
        "  778\n"
        "  779 10:00:00\n"
        "  780 /bin/zsh -l\n"
        " oops node x\n");
    ASSERT_EQ(args.size(), 5u);
    EXPECT_EQ(args.at(1).args, "/sbin/launchd");
    EXPECT_EQ(args.at(1).elapsed, 3 * 86400 + 2 * 3600 + 15 * 60 + 7);
    EXPECT_EQ(args.at(777).args, "node   /usr/local/lib/node_modules/@anthropic-ai/claude-code/cli.js --resume  x");
    EXPECT_EQ(args.at(777).elapsed, 65);
    EXPECT_EQ(args.at(778).args, "");
    EXPECT_EQ(args.at(779).elapsed, 36000);
    EXPECT_EQ(args.at(780).args, "/bin/zsh -l");
    EXPECT_FALSE(args.at(780).elapsed);
    for (const char* bad : {"01:60", "1:0x", "-01:00", "1-2-03:04", "01:02:03:04", "", "99:99"})
        EXPECT_EQ(parseElapsed(bad), std::nullopt) << bad;
}

TEST(Nettop, NamesAreSplitAtTheLastDotAndRowsEndWithAComma) {
    const auto net = parseNettop(
        ",bytes_in,bytes_out,\n"
        "apsd.136,6644,68350,\n"
        "Google Chrome H.1535,1000,200,\n"
        "com.apple.WebKit.Networking.2201,10,5,\n"
        "node.777,0,0,\n"
        "noid,1,2,\n"
        "short.5,1\n"
        "bad.x,1,2,\n"
        "neg.9,-1,2,\n"
        "huge.10,9223372036854775807,9223372036854775807,\n"
        "\n");
    EXPECT_EQ(net.at(136), 6644 + 68350);
    EXPECT_EQ(net.at(1535), 1200);
    EXPECT_EQ(net.at(2201), 15);
    EXPECT_EQ(net.at(777), 0);
    EXPECT_EQ(net.at(10), INT64_MAX) << "a sum past 64 bits stops at the top";
    EXPECT_EQ(net.size(), 5u);
}

TEST(Nettop, ALeadingTimeColumnIsNotTakenForAPid) {
    const auto net = parseNettop(
        "time,,bytes_in,bytes_out,\n"
        "14:03:07.123456,claude.4242,300,400,\n");
    ASSERT_EQ(net.size(), 1u);
    EXPECT_EQ(net.at(4242), 700);
}

TEST(PsTable, TheThreeOutputsJoinByPid) {
    const Date now = dateFromUnix(1'000'000);
    const auto t = buildTable(kPs, "  999 00:10 ollama_llama_server --port 1\n 5000 01:00:00 claude\n",
                              "ollama_llama_se.999,10,20,\n", 31, now);
    ASSERT_EQ(t.processes.size(), 4u);
    EXPECT_EQ(t.processes[2].args, "ollama_llama_server --port 1");
    EXPECT_EQ(t.processes[2].netBytes, 30);
    EXPECT_EQ(t.processes[2].started, dateFromUnix(1'000'000 - 10));
    EXPECT_EQ(t.processes[3].args, "claude");
    EXPECT_EQ(t.processes[3].started, dateFromUnix(1'000'000 - 3600));
    EXPECT_FALSE(t.processes[3].netBytes);
    EXPECT_EQ(t.processes[0].args, "");
    EXPECT_FALSE(t.processes[0].started);
    EXPECT_EQ(t.gpu, 31);
}

}  // namespace
}  // namespace duskwell
