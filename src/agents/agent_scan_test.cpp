#include "agents/agent_scan.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

const Date t0 = dateFromUnix(1'800'000'000);

ProcessInfo proc(std::int32_t pid, std::int32_t ppid, double cpu, std::string exe, std::string args = "",
                 std::optional<std::int64_t> net = std::nullopt) {
    ProcessInfo p;
    p.pid = pid;
    p.ppid = ppid;
    p.cpu = cpu;
    p.exe = std::move(exe);
    p.args = std::move(args);
    p.netBytes = net;
    return p;
}

ProcessTable table(std::vector<ProcessInfo> ps, std::optional<int> gpu = std::nullopt) {
    ProcessTable t;
    t.processes = std::move(ps);
    t.gpu = gpu;
    return t;
}

SessionRecord session(AgentKind kind, std::int32_t pid, AgentState state, std::string id = "claude-s1") {
    SessionRecord s;
    s.id = std::move(id);
    s.kind = kind;
    s.pid = pid;
    s.state = state;
    s.at = t0;
    return s;
}

const AgentItem* row(const AgentSnapshot& s, AgentKind kind) {
    for (const auto& i : s.items)
        if (i.kind == kind) return &i;
    return nullptr;
}

AgentState stateOf(const ProcessTable& t, const ScanMemory& memory = {}) {
    const auto r = classify(t, {}, memory, t0);
    EXPECT_EQ(r.snapshot.items.size(), 1u);
    return r.snapshot.items.empty() ? AgentState(AgentState::idle) : r.snapshot.items[0].state;
}

const ProcessInfo shell = proc(1, 0, 0, "/sbin/launchd");

TEST(ScanCpu, ABusyDescendantMakesAQuietRootWork) {
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 0.5, "/bin/claude"), proc(11, 10, 6.0, "/bin/zsh")})),
              AgentState::working);
    // Deeper descendants count too.
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 0, "/bin/zsh"),
                             proc(12, 11, 5.0, "/usr/bin/git")})),
              AgentState::working);
}

TEST(ScanCpu, TheTreeSumDecidesAtThreePercent) {
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 3.0, "/bin/claude")})), AgentState::working);
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 2.9, "/bin/claude")})), AgentState::idle);
    // Spread over the tree: 1.5 + 1.5.
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 1.5, "/bin/claude"), proc(11, 10, 1.5, "/bin/zsh")})),
              AgentState::working);
    // A descendant just under 5 % with a quiet sum stays idle.
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 2.9, "/bin/zsh")})),
              AgentState::idle);
}

TEST(ScanCpu, ProcessesOutsideTheTreeDoNotCount) {
    // A busy sibling (same parent, not a child of the agent) changes nothing.
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 1, 90, "/bin/yes")})),
              AgentState::idle);
}

TEST(ScanNetwork, TwoThousandFortyEightBytesBetweenScansMeanWork) {
    auto scanWith = [](std::int64_t before, std::int64_t after) {
        const auto first = classify(table({shell, proc(10, 1, 0, "/bin/claude", "", before)}), {}, {}, t0);
        // No earlier total: the network says nothing yet.
        EXPECT_EQ(first.snapshot.items.at(0).state, AgentState::idle);
        EXPECT_EQ(first.memory.lastNet.at(10), before);
        const auto second =
            classify(table({shell, proc(10, 1, 0, "/bin/claude", "", after)}), {}, first.memory, t0);
        return second.snapshot.items.at(0).state;
    };
    EXPECT_EQ(scanWith(10'000, 12'047), AgentState::idle);
    EXPECT_EQ(scanWith(10'000, 12'048), AgentState::working);
}

TEST(ScanNetwork, TheTreeIsSummedAndKeyedByTheRoot) {
    ScanMemory memory;
    memory.lastNet[10] = 5'000;
    memory.lastNet[99] = 1;  // an agent that went away
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude", "", 5'000),
                                   proc(11, 10, 0, "/usr/bin/curl", "", 2'048), proc(12, 10, 0, "/bin/zsh")}),
                            {}, memory, t0);
    EXPECT_EQ(r.snapshot.items.at(0).state, AgentState::working);  // 7048 - 5000
    EXPECT_EQ(r.memory.lastNet, (std::map<std::int32_t, std::int64_t>{{10, 7'048}}));
}

TEST(ScanGpu, LocalModelsWorkFromTwentyFivePercentOthersNever) {
    const auto ollama = [](std::optional<int> gpu) {
        return stateOf(table({shell, proc(20, 1, 0, "/usr/local/bin/ollama")}, gpu));
    };
    EXPECT_EQ(ollama(25), AgentState::working);
    EXPECT_EQ(ollama(24), AgentState::idle);
    EXPECT_EQ(ollama(std::nullopt), AgentState::idle);
    EXPECT_EQ(stateOf(table({shell, proc(10, 1, 0, "/bin/claude")}, 100)), AgentState::idle);

    const auto r = classify(table({shell, proc(20, 1, 0, "ollama")}, 40), {}, {}, t0);
    EXPECT_EQ(r.snapshot.gpu, 40);
}

TEST(ScanTrees, ASameKindChildMergesIntoItsParent) {
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 0, "/bin/claude")}), {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].count, 1);
}

TEST(ScanTrees, UnrelatedInstancesShareOneRow) {
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(30, 1, 4.0, "/bin/claude")}), {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].count, 2);
    EXPECT_EQ(r.snapshot.items[0].state, AgentState::working);  // the highest state
    EXPECT_FALSE(r.snapshot.items[0].viaHooks);
}

TEST(ScanTrees, OnlyTheImmediateParentIsExamined) {
    // claude -> zsh -> claude: the grandchild is a root of its own.
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 0, "/bin/zsh"),
                                   proc(12, 11, 0, "/bin/claude")}),
                            {}, {}, t0);
    EXPECT_EQ(r.snapshot.items.at(0).count, 2);
}

TEST(ScanTrees, AChildOfAnotherKindIsItsOwnRootAndAlsoInItsParentsTree) {
    // codex under claude: its own row, and its CPU also makes the claude tree work.
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 7.0, "/bin/codex")}), {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 2u);
    EXPECT_EQ(row(r.snapshot, AgentKind::claude)->state, AgentState::working);
    EXPECT_EQ(row(r.snapshot, AgentKind::codex)->state, AgentState::working);
}

TEST(ScanTrees, CyclesInTheParentLinksEnd) {
    const auto r = classify(table({proc(0, 0, 0, "kernel_task"), proc(5, 6, 1.0, "/bin/claude"), proc(6, 5, 1.0, "/bin/zsh")}),
                            {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].state, AgentState::idle);  // 2.0 % over the two, counted once
}

TEST(ScanHooks, AHookedProcessIsRepresentedOnlyByItsSession) {
    const auto t = table({shell, proc(10, 1, 50.0, "/bin/claude", "", 100)});
    const auto r = classify(t, {session(AgentKind::claude, 10, AgentState::waiting)}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    const auto& item = r.snapshot.items[0];
    EXPECT_EQ(item.count, 1);
    EXPECT_EQ(item.state, AgentState::waiting);  // its 50 % CPU is not looked at
    EXPECT_TRUE(item.viaHooks);
    EXPECT_TRUE(r.snapshot.busy());
    EXPECT_EQ(r.snapshot.workingCount(), 0);
    EXPECT_TRUE(r.memory.lastNet.empty());  // no total kept for a hooked root
    ASSERT_EQ(r.snapshot.sessions.size(), 1u);
    EXPECT_EQ(r.snapshot.sessions[0].id, "claude-s1");
}

TEST(ScanHooks, AnUnhookedSecondInstanceAddsToTheSameRow) {
    const auto t = table({shell, proc(10, 1, 0, "/bin/claude"), proc(30, 1, 0, "/bin/claude")});
    const auto r = classify(t, {session(AgentKind::claude, 10, AgentState::waiting)}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].count, 2);
    EXPECT_EQ(r.snapshot.items[0].state, AgentState::waiting);
    EXPECT_TRUE(r.snapshot.items[0].viaHooks);
}

TEST(ScanHooks, ASessionCountsEvenWithoutAMatchingProcessName) {
    // A codex run through some wrapper the catalogue does not know.
    const auto r = classify(table({shell, proc(40, 1, 0, "/usr/bin/env")}),
                            {session(AgentKind::codex, 40, AgentState::working, "codex-1")}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].kind, AgentKind::codex);
    EXPECT_EQ(r.snapshot.workingCount(), 1);
}

TEST(ScanSince, KeptAcrossWorkingScansAndResetAfterOneQuietScan) {
    const auto busy = table({shell, proc(10, 1, 40, "/bin/claude")});
    const auto quiet = table({shell, proc(10, 1, 0, "/bin/claude")});
    const auto r1 = classify(busy, {}, {}, t0);
    EXPECT_EQ(r1.snapshot.items[0].since, t0);
    const auto r2 = classify(busy, {}, r1.memory, addSeconds(t0, 5));
    EXPECT_EQ(r2.snapshot.items[0].since, t0);
    const auto r3 = classify(quiet, {}, r2.memory, addSeconds(t0, 10));
    EXPECT_EQ(r3.snapshot.items[0].since, std::nullopt);
    EXPECT_TRUE(r3.memory.busySince.empty());
    const auto r4 = classify(busy, {}, r3.memory, addSeconds(t0, 15));
    EXPECT_EQ(r4.snapshot.items[0].since, addSeconds(t0, 15));
}

TEST(ScanSince, AKindWithNoRowKeepsItsStart) {
    const auto r1 = classify(table({shell, proc(10, 1, 40, "/bin/claude")}), {}, {}, t0);
    const auto r2 = classify(table({shell}), {}, r1.memory, addSeconds(t0, 5));
    EXPECT_TRUE(r2.snapshot.items.empty());
    const auto r3 = classify(table({shell, proc(11, 1, 40, "/bin/claude")}), {}, r2.memory, addSeconds(t0, 10));
    EXPECT_EQ(r3.snapshot.items[0].since, t0);
}

TEST(ScanSort, WorkingThenWaitingThenIdleAndTitlesByteByByte) {
    const auto t = table({shell,
                          proc(10, 1, 0, "/x/vllm-launcher"),  // nothing
                          proc(11, 1, 0, "python3", "python -m vllm serve"),
                          proc(12, 1, 0, "llama-server"),
                          proc(13, 1, 0, "/x/goose"),
                          proc(14, 1, 0, "/x/codex"),
                          proc(15, 1, 9, "/x/aider"),
                          proc(16, 1, 9, "/x/opencode"),
                          proc(17, 1, 0, "ollama")});
    const auto r = classify(t, {session(AgentKind::claude, 13, AgentState::waiting, "claude-9")}, {}, t0);
    std::vector<std::string> order;
    for (const auto& i : r.snapshot.items) order.emplace_back(i.kind.title());
    // Goose (pid 13) is hooked as a claude session, so no Goose row.
    EXPECT_EQ(order, (std::vector<std::string>{"Aider", "OpenCode", "Claude Code", "Codex", "Ollama", "llama.cpp",
                                               "vLLM"}));
}

TEST(ScanSnapshot, NothingFoundIsTheEmptySnapshot) {
    const auto r = classify(table({shell, proc(5, 1, 80, "/usr/bin/Claude"), proc(6, 1, 0, "node", "node app.js")}),
                            {}, {}, t0);
    EXPECT_EQ(r.snapshot, AgentSnapshot());
    EXPECT_FALSE(r.snapshot.busy());
}

}  // namespace
}  // namespace duskwell
