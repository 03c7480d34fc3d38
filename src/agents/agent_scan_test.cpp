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

TEST(ScanTrees, UnrelatedInstancesShareOneRow) {
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(30, 1, 4.0, "/bin/claude")}), {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 1u);
    EXPECT_EQ(r.snapshot.items[0].count, 2);
    EXPECT_EQ(r.snapshot.items[0].state, AgentState::working);  // the highest state
    EXPECT_FALSE(r.snapshot.items[0].viaHooks);
}

ProcessInfo named(std::int32_t pid, std::int32_t ppid, double cpu, std::string exe, std::string comm,
                  std::string args, std::optional<Date> started = std::nullopt) {
    ProcessInfo p = proc(pid, ppid, cpu, std::move(exe), std::move(args));
    p.comm = std::move(comm);
    p.started = started;
    return p;
}

// Process trees: the CPU of a whole tree decides, and each shape of a real agent is one the
// immediate-parent rule, the one-name match or the pid-only session link got wrong.
TEST(ScanShapes, RealTreesCountEachSessionOnceWithTheRightState) {
    struct Case {
        const char* what;
        std::vector<ProcessInfo> ps;
        std::vector<SessionRecord> sessions;
        AgentKind kind;
        int count;
        AgentState state;
    };
    const auto sandbox = [](std::int32_t pid, std::int32_t ppid) {
        return named(pid, ppid, 0, "/x/codex", "codex-linux-san", "codex-linux-sandbox --policy p -- bash -c t");
    };
    const auto daemon = [](std::int32_t pid, std::int32_t ppid, double cpu = 0) {
        return named(pid, ppid, cpu, "/x/codex", "codex", "/x/codex app-server --managed-daemon");
    };
    const auto waitingAt = [](AgentKind kind, std::int32_t pid) {
        return session(kind, pid, AgentState::waiting, std::string(kind.rawValue()) + "-s");
    };
    const auto claudeTree = [](double rootCpu, std::vector<ProcessInfo> rest) {
        rest.insert(rest.begin(), {shell, proc(10, 1, rootCpu, "/bin/claude")});
        return rest;
    };
    const Case cases[] = {
        {"a busy child makes a quiet root work", claudeTree(0.5, {proc(11, 10, 6.0, "/bin/zsh")}), {},
         AgentKind::claude, 1, AgentState::working},
        {"deeper descendants count too", claudeTree(0, {proc(11, 10, 0, "/bin/zsh"), proc(12, 11, 5.0, "/usr/bin/git")}),
         {}, AgentKind::claude, 1, AgentState::working},
        {"3 % of CPU is work", claudeTree(3.0, {}), {}, AgentKind::claude, 1, AgentState::working},
        {"2.9 % is not", claudeTree(2.9, {}), {}, AgentKind::claude, 1, AgentState::idle},
        {"3 % spread over the tree", claudeTree(1.5, {proc(11, 10, 1.5, "/bin/zsh")}), {},
         AgentKind::claude, 1, AgentState::working},
        {"a child just under 5 % with a quiet sum", claudeTree(0, {proc(11, 10, 2.9, "/bin/zsh")}), {},
         AgentKind::claude, 1, AgentState::idle},
        {"a busy sibling outside the tree", claudeTree(0, {proc(11, 1, 90, "/bin/yes")}), {},
         AgentKind::claude, 1, AgentState::idle},
        {"a claude child merges into its claude parent", claudeTree(0, {proc(11, 10, 0, "/bin/claude")}), {},
         AgentKind::claude, 1, AgentState::idle},
        {"a cycle in the parent links ends, 2 % counted once",
         {proc(0, 0, 0, "kernel_task"), proc(5, 6, 1.0, "/bin/claude"), proc(6, 5, 1.0, "/bin/zsh")}, {},
         AgentKind::claude, 1, AgentState::idle},
        {"claude -> zsh -> claude is one agent",
         {shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 0, "/bin/zsh"), proc(12, 11, 0, "/bin/claude")},
         {}, AgentKind::claude, 1, AgentState::idle},
        {"codex exec's tool under two sandbox layers is the session's work, not a second codex",
         {shell, named(10, 1, 0.5, "/x/codex", "codex", "/x/codex exec hi"), sandbox(11, 10),
          named(12, 11, 0, "/usr/bin/bwrap", "bwrap", "bwrap -- codex-linux-sandbox"), sandbox(13, 12),
          named(14, 13, 80, "/usr/bin/make", "make", "make -j2")},
         {}, AgentKind::codex, 1, AgentState::working},
        {"a daemon left behind by a closed UI is not an agent, however busy",
         {shell, daemon(40, 1, 30), named(41, 40, 0, "/x/codex", "codex", "/x/codex app-server daemon pid-update-loop")},
         {}, AgentKind::codex, 0, AgentState::idle},
        {"a UI's daemon belongs to the UI's tree",
         {shell, named(20, 1, 0, "/usr/bin/node", "node", "node /n/@openai/codex/bin/codex.js"),
          named(21, 20, 0, "/x/codex", "codex", "/x/codex"), daemon(22, 21)},
         {}, AgentKind::codex, 1, AgentState::idle},
        {"a session recorded on the UI's daemon stands for the UI",
         {shell, named(21, 1, 9, "/x/codex", "codex", "/x/codex"), daemon(22, 21)},
         {session(AgentKind::codex, 22, AgentState::idle, "codex-a")}, AgentKind::codex, 1, AgentState::idle},
        {"a session on a reused daemon stands for the UI that has none",
         {shell, daemon(22, 1), named(30, 1, 9, "/x/codex", "codex", "/x/codex")},
         {session(AgentKind::codex, 22, AgentState::idle, "codex-b")}, AgentKind::codex, 1, AgentState::idle},
        {"a codex session never stands for a claude tree that holds its daemon",
         {shell, proc(10, 1, 0, "/bin/claude"), named(11, 10, 0, "/x/codex", "codex", "/x/codex"), daemon(12, 11)},
         {session(AgentKind::codex, 12, AgentState::idle, "codex-c")}, AgentKind::claude, 1, AgentState::idle},
        {"waiting, and a tool started after the question: the user answered",
         {shell, proc(10, 1, 0, "/bin/claude"), named(11, 10, 0, "/bin/bash", "bash", "bash -c sleep 20", addSeconds(t0, 5))},
         {waitingAt(AgentKind::claude, 10)}, AgentKind::claude, 1, AgentState::working},
        {"waiting with only older children (an MCP server) and our hook's shell: still waiting",
         {shell, proc(10, 1, 0, "/bin/claude"),
          named(11, 10, 0, "/usr/bin/node", "node", "node mcp.js", addSeconds(t0, -300)),
          named(12, 10, 0, "/bin/sh", "sh", "/bin/sh -c /h/.duskwell/hook claude", addSeconds(t0, 6))},
         {waitingAt(AgentKind::claude, 10)}, AgentKind::claude, 1, AgentState::waiting},
        {"another hook of the same event starting with ours is not an answer",
         {shell, proc(10, 1, 0, "/bin/claude"), named(11, 10, 0, "/bin/sh", "sh", "sh -c notify-send x", addSeconds(t0, 0.4))},
         {waitingAt(AgentKind::claude, 10)}, AgentKind::claude, 1, AgentState::waiting},
        {"Codex runs the approved tool under its daemon",
         {shell, named(21, 1, 0, "/x/codex", "codex", "/x/codex"), daemon(22, 21),
          named(23, 22, 0, "/bin/bash", "bash", "bash -c cargo test", addSeconds(t0, 3))},
         {waitingAt(AgentKind::codex, 22)}, AgentKind::codex, 1, AgentState::working},
        {"Gemini's launcher and the real agent it starts are one idle session, whatever the agent's own spikes",
         {shell, named(30, 1, 0, "/usr/bin/node", "node", "node /g/node_modules/.bin/gemini"),
          named(31, 30, 30, "/usr/bin/node", "node", "/usr/bin/node --max-old-space-size=8000 /g/node_modules/.bin/gemini")},
         {session(AgentKind::gemini, 31, AgentState::idle, "gemini-s")}, AgentKind::gemini, 1, AgentState::idle},
        {"but a busy tool under Gemini's real agent is work",
         {shell, named(30, 1, 0, "/usr/bin/node", "node", "node /g/node_modules/.bin/gemini"),
          named(31, 30, 0, "/usr/bin/node", "node", "/usr/bin/node /g/node_modules/.bin/gemini"),
          named(32, 31, 40, "/usr/bin/make", "make", "make -j2")},
         {session(AgentKind::gemini, 31, AgentState::idle, "gemini-s")}, AgentKind::gemini, 1, AgentState::working},
    };
    for (const auto& c : cases) {
        const auto r = classify(table(c.ps), c.sessions, {}, t0);
        const AgentItem* item = row(r.snapshot, c.kind);
        if (c.count == 0) {
            EXPECT_EQ(item, nullptr) << c.what;
            continue;
        }
        ASSERT_NE(item, nullptr) << c.what;
        EXPECT_EQ(item->count, c.count) << c.what;
        EXPECT_EQ(item->state, c.state) << c.what;
        for (const auto& s : r.snapshot.sessions) {
            if (s.kind == c.kind) { EXPECT_EQ(s.state, c.state) << c.what << ": the session shows it too"; }
        }
    }
}

TEST(ScanShapes, AWorkingSessionWithNoSignOfWorkForTenMinutesIsIdle) {
    // Claude Code sends nothing when the user interrupts a turn: the record says working.
    const auto working = session(AgentKind::claude, 10, AgentState::working, "claude-x");
    const auto stateAfter = [&](const std::vector<ProcessInfo>& later, std::int64_t laterNet) {
        ScanMemory memory = classify(table({shell, proc(10, 1, 0, "/bin/claude", "", 500)}), {working}, {}, t0).memory;
        auto ps = later;
        ps[1].netBytes = laterNet;
        for (double minutes : {5.0, 10.0}) {
            const auto r = classify(table(ps), {working}, memory, addSeconds(t0, minutes * 60));
            memory = r.memory;
            if (minutes == 10.0) return r.snapshot.items.at(0).state;
            EXPECT_EQ(r.snapshot.items.at(0).state, AgentState::working) << "five minutes are not enough";
        }
        return AgentState(AgentState::idle);
    };
    const auto claude = proc(10, 1, 0.2, "/bin/claude");
    EXPECT_EQ(stateAfter({shell, claude}, 500), AgentState::idle);
    EXPECT_EQ(stateAfter({shell, claude, named(11, 10, 0, "/bin/bash", "bash", "bash -c sleep 900", addSeconds(t0, 1))}, 500),
              AgentState::working)
        << "a quiet tool of this step still runs";
    EXPECT_EQ(stateAfter({shell, claude}, 500 + 4096), AgentState::working) << "bytes still flow";
    EXPECT_EQ(stateAfter({shell, proc(10, 1, 4.0, "/bin/claude")}, 500), AgentState::working) << "CPU";
}

TEST(ScanShapes, ARootWhoseSessionEndedStaysIdleUntilItReportsAgain) {
    // Codex after /clear: the old session's SessionEnd removes its record a minute later and
    // the new one starts with the next prompt; meanwhile the UI redraws its terminal.
    const auto ui = [](std::int64_t bytes, double cpu) { return proc(21, 1, cpu, "/x/codex", "/x/codex", bytes); };
    const auto daemon = named(22, 1, 0, "/x/codex", "codex", "/x/codex app-server --managed-daemon");
    const auto hooked = classify(table({shell, ui(1000, 0), daemon}), {session(AgentKind::codex, 22, AgentState::idle, "codex-a")}, {}, t0);
    auto r = classify(table({shell, ui(9000, 4.0), daemon}), {}, hooked.memory, addSeconds(t0, 5));
    EXPECT_EQ(row(r.snapshot, AgentKind::codex)->state, AgentState::idle) << "the redraw is no work";
    r = classify(table({shell, ui(9000, 0), daemon, named(23, 21, 40, "/usr/bin/cargo", "cargo", "cargo build")}), {},
                 r.memory, addSeconds(t0, 10));
    EXPECT_EQ(row(r.snapshot, AgentKind::codex)->state, AgentState::working) << "a busy command it left running";
    // A UI never seen with a session is measured as before.
    r = classify(table({shell, ui(1000, 4.0), daemon}), {}, {}, t0);
    EXPECT_EQ(row(r.snapshot, AgentKind::codex)->state, AgentState::working);
}

TEST(ScanShapes, ADaemonsSessionLivesOnlyWhileAnAgentOfItsKindRuns) {
    const auto daemon = named(22, 1, 0, "/x/codex", "codex", "/x/codex app-server --managed-daemon");
    const auto ui = named(30, 1, 0, "/x/codex", "codex", "/x/codex");
    const auto claude = proc(10, 1, 0, "/bin/claude");
    const auto alone = sessionLiveness(table({shell, daemon, claude}));
    EXPECT_FALSE(alone(22)) << "the UI is gone: the session ended with it";
    EXPECT_TRUE(alone(10));
    EXPECT_FALSE(alone(99));
    const auto withUi = sessionLiveness(table({shell, daemon, ui}));
    EXPECT_TRUE(withUi(22));
    EXPECT_TRUE(withUi(30));
}

TEST(ScanTrees, AChildOfAnotherKindIsItsOwnRootAndAlsoInItsParentsTree) {
    // codex under claude: its own row, and its CPU also makes the claude tree work.
    const auto r = classify(table({shell, proc(10, 1, 0, "/bin/claude"), proc(11, 10, 7.0, "/bin/codex")}), {}, {}, t0);
    ASSERT_EQ(r.snapshot.items.size(), 2u);
    EXPECT_EQ(row(r.snapshot, AgentKind::claude)->state, AgentState::working);
    EXPECT_EQ(row(r.snapshot, AgentKind::codex)->state, AgentState::working);
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
                          proc(17, 1, 0, "ollama"),
                          proc(18, 1, 50, "/x/claude")});
    const auto r = classify(t, {session(AgentKind::claude, 18, AgentState::waiting, "claude-9")}, {}, t0);
    std::vector<std::string> order;
    for (const auto& i : r.snapshot.items) order.emplace_back(i.kind.title());
    EXPECT_EQ(order, (std::vector<std::string>{"Aider", "OpenCode", "Claude Code", "Codex", "Goose", "Ollama",
                                               "llama.cpp", "vLLM"}));
}

TEST(ScanSnapshot, NothingFoundIsTheEmptySnapshot) {
    const auto r = classify(table({shell, proc(5, 1, 80, "/usr/bin/Claude"), proc(6, 1, 0, "node", "node app.js")}),
                            {}, {}, t0);
    EXPECT_EQ(r.snapshot, AgentSnapshot());
    EXPECT_FALSE(r.snapshot.busy());
}

}  // namespace
}  // namespace duskwell
