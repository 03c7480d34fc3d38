// The real duskwell-hook, run the way the agents run it: by a stand-in agent process named
// `claude` through `sh -c`, and by one named `codex` through a login shell, in a temporary
// HOME. Then hostile input straight on its standard input.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agents/agent_kind.h"
#include "agents/agent_monitor.h"
#include "agents/proc_process_source.h"
#include "agents/session_records.h"
#include "core/services.h"
#include "process_support.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TempDir;
using testing::TestEnvironment;
using testing::writeFile;
using Clock = std::chrono::steady_clock;

const std::string kHook = std::string(DUSKWELL_BIN_DIR) + "/duskwell-hook";

std::vector<char*> cstrings(std::vector<std::string>& words) {
    std::vector<char*> out;
    for (auto& w : words) out.push_back(w.data());
    out.push_back(nullptr);
    return out;
}

// A child process with pipes to its standard input and output.
class Child {
public:
    Child(std::vector<std::string> argv, std::vector<std::string> env, const std::string& cwd,
          const std::string& stderrFile) {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_adddup2(&fa, in[0], 0);
        posix_spawn_file_actions_adddup2(&fa, out[1], 1);
        posix_spawn_file_actions_addopen(&fa, 2, stderrFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addclose(&fa, in[1]);
        posix_spawn_file_actions_addclose(&fa, out[0]);
        const std::string oldCwd = fs::current_path();
        fs::current_path(cwd);  // posix_spawn has no portable chdir action
        auto args = cstrings(argv);
        auto envp = cstrings(env);
        const int rc = posix_spawn(&pid_, argv[0].c_str(), &fa, nullptr, args.data(), envp.data());
        fs::current_path(oldCwd);
        posix_spawn_file_actions_destroy(&fa);
        close(in[0]);
        close(out[1]);
        toChild_ = in[1];
        fromChild_ = out[0];
        if (rc != 0) throw std::runtime_error("spawn " + argv[0]);
    }
    ~Child() {
        if (toChild_ >= 0) close(toChild_);
        if (fromChild_ >= 0) close(fromChild_);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }
    void send(const std::string& line) {
        ASSERT_EQ(write(toChild_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }
    // One line from the child's standard output (without the newline).
    std::string readLine() {
        std::string line;
        char c;
        while (read(fromChild_, &c, 1) == 1 && c != '\n') line.push_back(c);
        return line;
    }
    // Closes its input and waits for it to exit; answers the exit status.
    int finish() {
        close(toChild_);
        toChild_ = -1;
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
    int toChild_ = -1;
    int fromChild_ = -1;
};

struct FirstLine {
    std::string event;
    double at = 0;
    long pid = 0;
};

FirstLine firstLine(const std::string& record) {
    FirstLine f;
    char event[128] = {};
    std::sscanf(record.c_str(), "%127s %lf %ld", event, &f.at, &f.pid);
    f.event = event;
    return f;
}

std::string lineStarting(const std::string& record, const std::string& prefix) {
    std::size_t pos = 0;
    while (pos < record.size()) {
        std::size_t end = record.find('\n', pos);
        if (end == std::string::npos) end = record.size();
        const std::string line = record.substr(pos, end - pos);
        if (line.rfind(prefix, 0) == 0) return line.substr(prefix.size());
        pos = end + 1;
    }
    return "";
}

bool alive(std::int32_t pid) { return pid > 0 && kill(pid, 0) == 0; }

// A temporary HOME as the app leaves it after connecting an agent, and a project folder.
struct AgentHome {
    TestEnvironment env;
    std::string home = env.home.path();
    std::string sessions = home + "/.duskwell/sessions";
    std::string project = home + "/projects/my-app";
    std::string bin = home + "/agent-bin";

    AgentHome() {
        fs::create_directories(sessions);
        fs::create_directories(project);
        fs::create_directories(bin);
        fs::copy_file(kHook, home + "/.duskwell/hook");
    }
    // A copy of the system shell under the agent's name, so that its executable and its
    // kernel name are the agent's.
    std::string standIn(const std::string& name) {
        const std::string path = bin + "/" + name;
        fs::copy_file("/bin/sh", path, fs::copy_options::overwrite_existing);
        fs::permissions(path, static_cast<fs::perms>(0755), fs::perm_options::replace);
        return path;
    }
    std::vector<std::string> environment() const {
        return {"HOME=" + home, "PATH=/usr/bin:/bin", "LANG=C", "HOOK=" + home + "/.duskwell/hook"};
    }
    std::string event(const std::string& name, const std::string& json) {
        const std::string path = home + "/" + name + ".json";
        writeFile(path, json);
        return path;
    }
    std::optional<std::string> record(const std::string& name) const { return readFile(sessions + "/" + name); }
};

std::string claudeEvent(const std::string& event, const std::string& cwd, const std::string& extra = "") {
    return R"({"session_id":"3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44","transcript_path":"/tmp/t.jsonl","cwd":")" + cwd +
           R"(","permission_mode":"default","hook_event_name":")" + event + "\"" + extra + "}";
}

std::string codexEvent(const std::string& event, const std::string& cwd) {
    return R"({"session_id":"019d036d-c7fa-72d2-b6fd-78878bfe34e4","turn_id":"019d036e-3164","transcript_path":null,"cwd":")" +
           cwd + R"(","hook_event_name":")" + event + R"(","model":"gpt-5-codex","permission_mode":"default"})";
}

// One scan of the monitor over the real process table of this machine.
AgentSnapshot scanRealProcesses() {
    auto source = makeProcProcessSource();
    Services s = services();
    s.processes = source.get();
    ServicesScope scope(s);
    AgentMonitor monitor;
    return monitor.scanNow();
}

const AgentItem* itemOf(const AgentSnapshot& snapshot, AgentKind kind) {
    for (const auto& item : snapshot.items)
        if (item.kind == kind) return &item;
    return nullptr;
}

TEST(HookEndToEnd, ClaudeThroughShKeepsTheAgentsRecord) {
    AgentHome h;
    const std::string claude = h.standIn("claude");
    const std::string stderrFile = h.home + "/agent.stderr";
    // The stand-in reads lines "<event file> <command>" and runs each command as Claude Code
    // does, through `sh -c` with the event on standard input.
    Child agent({claude, "-c", R"(while read -r ev cmd; do sh -c "$cmd" < "$ev"; echo ok; done)"},
                h.environment(), h.project, stderrFile);
    const std::string name = "claude-3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44";

    agent.send(h.event("prompt", claudeEvent("UserPromptSubmit", h.project, R"(,"prompt":"Fix the failing test")")) +
               " $HOOK claude\n");
    ASSERT_EQ(agent.readLine(), "ok") << "the hook printed nothing the agent would read";
    const auto first = h.record(name);
    ASSERT_TRUE(first.has_value());
    const FirstLine l1 = firstLine(*first);
    EXPECT_EQ(l1.event, "UserPromptSubmit");
    EXPECT_EQ(l1.pid, agent.pid()) << "the stand-in agent's pid, not the shell's";
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(l1.at, now, 30);
    EXPECT_EQ(lineStarting(*first, "cwd="), h.project);
    const std::string start = lineStarting(*first, "start=");
    EXPECT_NEAR(std::stod(start), l1.at, 0.01);

    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    agent.send(h.event("notify", claudeEvent("Notification", h.project,
                                             R"(,"message":"Claude needs your permission to use Bash","notification_type":"permission_prompt")")) +
               " $HOOK claude\n");
    ASSERT_EQ(agent.readLine(), "ok");
    const auto second = h.record(name);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(firstLine(*second).event, "Notification");
    EXPECT_GT(firstLine(*second).at, l1.at);
    EXPECT_EQ(lineStarting(*second, "start="), start) << "the session's start survives each rewrite";
    EXPECT_EQ(firstLine(*second).pid, agent.pid());

    auto records = readSessions(h.sessions, alive);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].state, AgentState::waiting);
    EXPECT_EQ(records[0].pid, agent.pid());
    const auto snapshot = scanRealProcesses();
    const AgentItem* item = itemOf(snapshot, AgentKind::claude);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->viaHooks);
    EXPECT_EQ(item->state, AgentState::waiting);

    // This time the shell stays between the agent and the hook (it cannot exec the last
    // command): the hook still finds the agent by walking up.
    agent.send(h.event("tool", claudeEvent("PostToolUse", h.project, R"(,"tool_name":"Bash","tool_response":{"stdout":"ok"})")) +
               " $HOOK claude; exit 0\n");
    ASSERT_EQ(agent.readLine(), "ok");
    EXPECT_EQ(firstLine(h.record(name).value_or("")).event, "PostToolUse");
    EXPECT_EQ(firstLine(h.record(name).value_or("")).pid, agent.pid());
    records = readSessions(h.sessions, alive);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].state, AgentState::working);

    // Nothing else was left in the folder (no temporary files), nothing went to stderr.
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(h.sessions)) names.insert(e.path().filename().string());
    EXPECT_EQ(names, std::set<std::string>{name});
    const pid_t agentPid = agent.pid();
    EXPECT_EQ(agent.finish(), 0);
    EXPECT_EQ(readFile(stderrFile), "");

    // The agent is gone: the record names a pid that no longer runs, which the next scan
    // treats as a finished session.
    EXPECT_FALSE(alive(agentPid));
    EXPECT_TRUE(readSessions(h.sessions, alive).empty());
    EXPECT_FALSE(fs::exists(h.sessions + "/" + name)) << "the next scan deleted the record";
}

TEST(HookEndToEnd, CodexThroughALoginShellKeepsTheAgentsRecordAndSessionEndRemovesIt) {
    AgentHome h;
    const std::string codex = h.standIn("codex");
    // A login profile that moves elsewhere: the record's folder comes from the event.
    writeFile(h.home + "/.profile", "cd /\n");
    auto env = h.environment();
    env.push_back("LOGIN_SHELL=/bin/bash");
    Child agent({codex, "-c", R"(while read -r ev; do "$LOGIN_SHELL" -lc "$HOOK codex" < "$ev"; echo ok; done)"},
                env, h.project, h.home + "/agent.stderr");
    const std::string name = "codex-019d036d-c7fa-72d2-b6fd-78878bfe34e4";

    agent.send(h.event("prompt", codexEvent("UserPromptSubmit", h.project)) + "\n");
    ASSERT_EQ(agent.readLine(), "ok");
    const auto first = h.record(name);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(firstLine(*first).event, "UserPromptSubmit");
    EXPECT_EQ(firstLine(*first).pid, agent.pid());
    EXPECT_EQ(lineStarting(*first, "cwd="), h.project);

    agent.send(h.event("stop", codexEvent("Stop", h.project)) + "\n");
    ASSERT_EQ(agent.readLine(), "ok");
    const auto second = h.record(name);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(firstLine(*second).event, "Stop");
    EXPECT_EQ(lineStarting(*second, "start="), lineStarting(*first, "start="));
    const auto records = readSessions(h.sessions, alive);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, AgentKind::codex);
    EXPECT_EQ(records[0].state, AgentState::idle);

    agent.send(h.event("end", codexEvent("SessionEnd", h.project)) + "\n");
    ASSERT_EQ(agent.readLine(), "ok");
    EXPECT_FALSE(fs::exists(h.sessions + "/" + name));
    EXPECT_EQ(agent.finish(), 0);
    EXPECT_EQ(readFile(h.home + "/agent.stderr"), "");
}

// ---- hostile input --------------------------------------------------------------------------

struct HookRun {
    int status = -1;
    std::string out;
    std::string err;
    double seconds = 0;
};

enum class Stdin { file, closed, openPipe };

// Runs the hook directly with `input` as its standard input.
HookRun runHook(const std::vector<std::string>& args, const std::string& input,
            const std::vector<std::string>& env, const std::string& scratch, Stdin mode = Stdin::file) {
    const std::string in = scratch + "/stdin", out = scratch + "/stdout", err = scratch + "/stderr";
    writeFile(in, input);
    int keepOpen[2] = {-1, -1};
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    if (mode == Stdin::file) posix_spawn_file_actions_addopen(&fa, 0, in.c_str(), O_RDONLY, 0);
    if (mode == Stdin::closed) posix_spawn_file_actions_addclose(&fa, 0);
    if (mode == Stdin::openPipe) {
        if (pipe(keepOpen) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_adddup2(&fa, keepOpen[0], 0);
        posix_spawn_file_actions_addclose(&fa, keepOpen[1]);
    }
    posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<std::string> argv{kHook};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<std::string> envCopy = env;
    auto cargs = cstrings(argv);
    auto cenv = cstrings(envCopy);
    HookRun r;
    const auto begun = Clock::now();
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, kHook.c_str(), &fa, nullptr, cargs.data(), cenv.data());
    posix_spawn_file_actions_destroy(&fa);
    if (rc == 0) waitpid(pid, &r.status, 0);
    r.seconds = std::chrono::duration<double>(Clock::now() - begun).count();
    if (keepOpen[0] >= 0) {
        close(keepOpen[0]);
        close(keepOpen[1]);
    }
    r.out = readFile(out).value_or("?");
    r.err = readFile(err).value_or("?");
    return r;
}

// Every file below `root`, as relative paths.
std::set<std::string> tree(const std::string& root) {
    std::set<std::string> out;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it)
        out.insert(fs::relative(it->path(), root).string());
    return out;
}

struct HostileHome {
    TempDir root;
    std::string home = root.path() + "/home";
    std::string sessions = home + "/.duskwell/sessions";
    std::string scratch = root.path() + "/scratch";
    HostileHome() {
        fs::create_directories(sessions);
        fs::create_directories(scratch);
        fs::create_directories(home + "/.ssh");
        writeFile(home + "/.ssh/authorized_keys", "keep me\n");
    }
    std::vector<std::string> env() const { return {"HOME=" + home, "PATH=/usr/bin:/bin"}; }
};

void expectQuietSuccess(const HookRun& r, const std::string& what) {
    EXPECT_TRUE(WIFEXITED(r.status) && WEXITSTATUS(r.status) == 0) << what << " status " << r.status;
    EXPECT_EQ(r.out, "") << what;
    EXPECT_EQ(r.err, "") << what;
}

TEST(HookHostileInput, WritesNothingForInputItCannotUse) {
    HostileHome h;
    const std::string big(10 * 1024 * 1024, 'x');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"empty", ""},
        {"not JSON", "hello, agent\n"},
        {"a top-level array", R"([{"hook_event_name":"Stop","session_id":"a"}])"},
        {"10 MB of junk", big},
        {"no session id", R"({"hook_event_name":"Stop","cwd":"/tmp"})"},
        {"no event name", R"({"session_id":"abc","cwd":"/tmp"})"},
        {"a numeric session id", R"({"hook_event_name":"Stop","session_id":42})"},
        {"an id of dots", R"({"hook_event_name":"Stop","session_id":".."})"},
        {"an id of slashes", R"({"hook_event_name":"Stop","session_id":"///"})"},
        {"an event that breaks the line", R"({"hook_event_name":"Stop 1 1\nstart=0","session_id":"abc"})"},
        {"truncated JSON", R"({"hook_event_name":"Stop","session_id":"abc")"},
    };
    const auto before = tree(h.root.path() + "/home");
    for (const auto& [what, input] : cases) {
        expectQuietSuccess(runHook({"claude"}, input, h.env(), h.scratch), what);
        EXPECT_EQ(tree(h.root.path() + "/home"), before) << what;
    }
}

TEST(HookHostileInput, HostileSessionIdsStayInsideTheSessionsFolder) {
    HostileHome h;
    for (const std::string id : {"../../.ssh/authorized_keys", "a/b", "..", "../x", "/etc/passwd", ".hidden"}) {
        const std::string json = R"({"hook_event_name":"Stop","session_id":")" + id + R"(","cwd":"/tmp"})";
        expectQuietSuccess(runHook({"claude"}, json, h.env(), h.scratch), id);
    }
    EXPECT_EQ(readFile(h.home + "/.ssh/authorized_keys"), "keep me\n");
    std::set<std::string> outside;
    for (const auto& p : tree(h.home))
        if (p.rfind(".duskwell/sessions/", 0) != 0) outside.insert(p);
    EXPECT_EQ(outside, (std::set<std::string>{".duskwell", ".duskwell/sessions", ".ssh", ".ssh/authorized_keys"}));
    std::set<std::string> records;
    for (const auto& e : fs::directory_iterator(h.sessions)) records.insert(e.path().filename().string());
    EXPECT_EQ(records, (std::set<std::string>{"claude-_.._.ssh_authorized_keys", "claude-a_b", "claude-_x",
                                              "claude-_etc_passwd", "claude-hidden"}));
}

TEST(HookHostileInput, ABigEventStillCountsWhenItsFieldsComeFirst) {
    HostileHome h;
    // A tool's whole output can follow the fields we need; only a prefix is read.
    const std::string json = R"({"session_id":"big","hook_event_name":"PostToolUse","cwd":"/srv/app","tool_response":{"stdout":")" +
                             std::string(10 * 1024 * 1024, 'y') + "\"}}";
    const HookRun r = runHook({"claude"}, json, h.env(), h.scratch);
    expectQuietSuccess(r, "10 MB event");
    const auto record = readFile(h.sessions + "/claude-big");
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(firstLine(*record).event, "PostToolUse");
    EXPECT_EQ(lineStarting(*record, "cwd="), "/srv/app");
}

TEST(HookHostileInput, NeverWaitsOnAnInputThatStaysOpenOrIsMissing) {
    HostileHome h;
    const HookRun open = runHook({"claude"}, "", h.env(), h.scratch, Stdin::openPipe);
    expectQuietSuccess(open, "open pipe");
    EXPECT_LT(open.seconds, 3.0);
    const HookRun closed = runHook({"claude"}, "", h.env(), h.scratch, Stdin::closed);
    expectQuietSuccess(closed, "closed stdin");
    EXPECT_TRUE(fs::is_empty(h.sessions));
}

TEST(HookHostileInput, GivesUpQuietlyWithoutAUsableHomeKindOrFolder) {
    HostileHome h;
    const std::string ok = R"({"hook_event_name":"Stop","session_id":"s1","cwd":"/tmp"})";
    expectQuietSuccess(runHook({}, ok, h.env(), h.scratch), "no kind");
    expectQuietSuccess(runHook({"gemini-x"}, ok, h.env(), h.scratch), "unknown kind");
    expectQuietSuccess(runHook({"claude", "extra"}, ok, h.env(), h.scratch), "extra argument");
    expectQuietSuccess(runHook({"claude"}, ok, {"PATH=/usr/bin:/bin"}, h.scratch), "no HOME");
    expectQuietSuccess(runHook({"claude"}, ok, {"HOME=relative/home"}, h.scratch), "relative HOME");
    EXPECT_TRUE(fs::is_empty(h.sessions));

    // Without the app's folder there is nothing to keep records for.
    HostileHome bare;
    fs::remove_all(bare.home + "/.duskwell");
    expectQuietSuccess(runHook({"claude"}, ok, bare.env(), bare.scratch), "no support folder");
    EXPECT_FALSE(fs::exists(bare.home + "/.duskwell"));

    // A file where the sessions folder should be.
    HostileHome blocked;
    fs::remove_all(blocked.sessions);
    writeFile(blocked.sessions, "not a folder");
    expectQuietSuccess(runHook({"claude"}, ok, blocked.env(), blocked.scratch), "sessions is a file");
    EXPECT_EQ(readFile(blocked.sessions), "not a folder");

    // A removed sessions folder comes back.
    HostileHome removed;
    fs::remove_all(removed.sessions);
    expectQuietSuccess(runHook({"claude"}, ok, removed.env(), removed.scratch), "sessions removed");
    EXPECT_TRUE(fs::exists(removed.sessions + "/claude-s1"));
}

TEST(HookHostileInput, AnUnwritableSessionsFolderIsLeftAlone) {
    if (geteuid() == 0) GTEST_SKIP() << "root writes through any mode";
    HostileHome h;
    fs::permissions(h.sessions, static_cast<fs::perms>(0500), fs::perm_options::replace);
    const std::string ok = R"({"hook_event_name":"Stop","session_id":"s1","cwd":"/tmp"})";
    expectQuietSuccess(runHook({"claude"}, ok, h.env(), h.scratch), "read-only sessions");
    EXPECT_TRUE(fs::is_empty(h.sessions));
}

// ---- duskwell connect / disconnect ------------------------------------------------------------

itest::RunResult runCli(const std::vector<std::string>& args, const std::vector<std::string>& env,
                        const std::string& scratch) {
    std::vector<std::string> argv{itest::binary("duskwell-cli")};
    argv.insert(argv.end(), args.begin(), args.end());
    return itest::run(argv, scratch, {.stderrTo = itest::Stderr::apart, .env = env});
}

// Connects each agent whose hooks live in a settings file, runs the very command it
// registered the way that agent runs hooks, and disconnects again.
TEST(ConnectCommand, ConnectsAnAgentWhoseHookThenKeepsRecords) {
    struct Case {
        const char* kind;
        const char* file;   // under HOME
        const char* shell;  // how the agent runs a hook command
        const char* hint;   // in the connect output
        std::string event;
        const char* record;
    };
    const std::string project = "/tmp/connect-project";
    const std::vector<Case> cases = {
        {"codex", "/.codex/hooks.json", "-lc", "choose Trust", codexEvent("Stop", project),
         "codex-019d036d-c7fa-72d2-b6fd-78878bfe34e4"},
        // Gemini CLI runs hooks with `bash -c`; its approval prompt is a ToolPermission notification.
        {"gemini", "/.gemini/settings.json", "-c", "folders you trust",
         R"({"session_id":"af275c14-af8b-41c6-a4d3-962d2788f714","cwd":")" + project +
             R"(","hook_event_name":"Notification","timestamp":"2026-11-23T07:51:50.806Z","notification_type":"ToolPermission","message":"Tool Confirm Shell Command requires execution"})",
         "gemini-af275c14-af8b-41c6-a4d3-962d2788f714"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind);
        AgentHome h;
        fs::remove(h.home + "/.duskwell/hook");
        const std::string file = h.home + c.file;
        fs::create_directories(fs::path(file).parent_path());
        const auto env = h.environment();

        const auto connect = runCli({"connect", c.kind}, env, h.home);
        ASSERT_EQ(connect.status, 0) << connect.errors;
        EXPECT_NE(connect.output.find(c.hint), std::string::npos) << connect.output;
        EXPECT_EQ(readFile(h.home + "/.duskwell/hook"), readFile(kHook)) << "the shipped program beside the command";
        EXPECT_EQ(fs::status(h.home + "/.duskwell/hook").permissions() & fs::perms::all, static_cast<fs::perms>(0755));

        const auto settings = nlohmann::json::parse(readFile(file).value());
        const std::string command = settings["hooks"]["SessionEnd"][0]["hooks"][0]["command"];
        EXPECT_EQ(command, h.home + "/.duskwell/hook " + c.kind);
        Child agent({h.standIn(c.kind), "-c", std::string(R"(while read -r ev; do /bin/bash )") + c.shell +
                                                R"( "$CMD" < "$ev"; echo ok; done)"},
                    [&] { auto e = env; e.push_back("CMD=" + command); return e; }(), h.project,
                    h.home + "/agent.stderr");
        agent.send(h.event("event", c.event) + "\n");
        ASSERT_EQ(agent.readLine(), "ok");
        const auto record = h.record(c.record);
        ASSERT_TRUE(record.has_value());
        EXPECT_EQ(lineStarting(*record, "cwd="), project);
        EXPECT_EQ(firstLine(*record).pid, agent.pid());
        const auto state = stateForHookEvent(firstLine(*record).event);
        EXPECT_EQ(state, c.kind == std::string("codex") ? AgentState::idle : AgentState::waiting);
        agent.finish();

        const auto disconnect = runCli({"disconnect", c.kind}, env, h.home);
        ASSERT_EQ(disconnect.status, 0) << disconnect.errors;
        EXPECT_EQ(readFile(file).value_or("").find("/.duskwell/hook"), std::string::npos);
    }
}

// Our OpenCode plugin as OpenCode runs it: a module whose exported function gets the
// session's folder and answers the handlers, fed OpenCode's events. Node stands in for
// OpenCode's Bun; the hook program it runs is the real one.
TEST(ConnectCommand, OpencodePluginKeepsOneRecordThatFollowsItsSessions) {
    const std::string node = "/usr/bin/node";
    if (access(node.c_str(), X_OK) != 0) GTEST_SKIP() << "no node at " << node;
    AgentHome h;
    const std::string config = h.home + "/xdg";
    fs::create_directories(config + "/opencode");
    auto env = h.environment();
    env.push_back("XDG_CONFIG_HOME=" + config);

    const auto connect = runCli({"connect", "opencode", "--json"}, env, h.home);
    ASSERT_EQ(connect.status, 0) << connect.errors;
    const std::string plugin = config + "/opencode/plugins/duskwell.js";
    EXPECT_EQ(nlohmann::json::parse(connect.output).value("file", ""), plugin);
    EXPECT_EQ(fs::status(plugin).permissions() & fs::perms::all, static_cast<fs::perms>(0644));
    // Node reads ES modules by their extension; OpenCode takes the .js as it is.
    fs::copy_file(plugin, h.home + "/plugin.mjs");

    // Each step: events, then what the record must say once they settle. A burst's last
    // event wins; a repeat of the current state rewrites nothing; a subagent's session
    // finishing leaves the main one at work; what OpenCode never sends must not throw.
    writeFile(h.home + "/driver.mjs", R"js(
import { readdirSync, readFileSync } from "node:fs";
const mod = await import(process.argv[2]);
const names = Object.keys(mod);
if (names.length !== 1 || typeof mod[names[0]] !== "function") throw new Error("exports: " + names);
const hooks = await mod[names[0]]({ directory: process.argv[3] });
const dir = process.env.HOME + "/.duskwell/sessions";
const read = () => {
  const files = readdirSync(dir).filter((n) => n.startsWith("opencode-") && !n.endsWith(".tmp"));
  return files.length === 1 ? readFileSync(dir + "/" + files[0], "utf8") : `${files.length} records`;
};
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
const settle = async (want) => {
  for (let i = 0; i < 150 && read().split(" ")[0] !== want; i++) await sleep(20);
  await sleep(150);
  return read();
};
const seen = [await settle("SessionStart")];
for (const step of JSON.parse(process.argv[4])) {
  for (const e of step.events) {
    if (e.tool) await hooks["tool.execute.before"]({ tool: "bash", sessionID: e.tool, callID: "c1" }, { args: {} });
    else await hooks.event("raw" in e ? e.raw : { event: e });
  }
  seen.push(await settle(step.want));
}
console.log(JSON.stringify({ pid: process.pid, seen }));
)js");
    const std::string steps = R"([
      {"events": [{"type": "session.status", "properties": {"sessionID": "s1", "status": {"type": "busy"}}}],
       "want": "SessionBusy"},
      {"events": [{"type": "session.status", "properties": {"sessionID": "s1", "status": {"type": "busy"}}},
                  {"type": "session.status", "properties": {"sessionID": "s1", "status": {"type": "retry"}}},
                  {"tool": "s1"}],
       "want": "SessionBusy"},
      {"events": [{"type": "permission.asked", "properties": {"id": "per_1", "sessionID": "s1", "permission": "bash"}}],
       "want": "UserQuestion"},
      {"events": [{"type": "permission.replied", "properties": {"sessionID": "s1", "requestID": "per_1", "reply": "once"}}],
       "want": "SessionBusy"},
      {"events": [{"type": "session.status", "properties": {"sessionID": "s2", "status": {"type": "busy"}}},
                  {"type": "session.status", "properties": {"sessionID": "s2", "status": {"type": "idle"}}}],
       "want": "SessionBusy"},
      {"events": [{"type": "question.asked", "properties": {"id": "que_1", "sessionID": "s1"}},
                  {"type": "session.status", "properties": {"sessionID": "s1", "status": {"type": "idle"}}},
                  {"type": "session.idle", "properties": {"sessionID": "s1"}}],
       "want": "SessionIdle"},
      {"events": [{"type": "session.status"}, {"raw": null}, {"raw": {"event": null}}], "want": "SessionIdle"}
    ])";
    const auto run = itest::run({node, h.home + "/driver.mjs", h.home + "/plugin.mjs", h.project, steps},
                                h.home, {.stderrTo = itest::Stderr::apart, .env = env});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    const auto out = nlohmann::json::parse(run.output);
    std::vector<std::string> events;
    std::vector<double> times;
    for (const auto& record : out["seen"]) {
        const auto line = firstLine(record.get<std::string>());
        events.push_back(line.event);
        times.push_back(line.at);
        EXPECT_EQ(line.pid, out["pid"].get<long>()) << "the process that runs the plugin";
        EXPECT_EQ(lineStarting(record.get<std::string>(), "cwd="), h.project);
    }
    EXPECT_EQ(events, (std::vector<std::string>{"SessionStart", "SessionBusy", "SessionBusy", "UserQuestion",
                                                "SessionBusy", "SessionBusy", "SessionIdle", "SessionIdle"}));
    ASSERT_EQ(times.size(), 8u);
    EXPECT_EQ(times[2], times[1]) << "repeated busy events rewrote the record";
    EXPECT_EQ(times[5], times[4]) << "a subagent's end changed nothing";

    // Without the hook program the plugin stays silent and OpenCode goes on.
    fs::remove(h.home + "/.duskwell/hook");
    for (const auto& entry : fs::directory_iterator(h.sessions)) fs::remove(entry.path());
    const auto bare = itest::run({node, h.home + "/driver.mjs", h.home + "/plugin.mjs", h.project, "[]"}, h.home,
                                 {.stderrTo = itest::Stderr::apart, .env = env});
    EXPECT_EQ(bare.status, 0) << bare.errors;
    EXPECT_EQ(bare.errors, "");
    EXPECT_EQ(nlohmann::json::parse(bare.output)["seen"], nlohmann::json::array({"0 records"}));

    // Disconnecting removes our plugin; a plugin of that name we did not write stays.
    ASSERT_EQ(runCli({"disconnect", "opencode"}, env, h.home).status, 0);
    EXPECT_FALSE(fs::exists(plugin));
    writeFile(plugin, "export const Mine = async () => ({});\n");
    const auto refused = runCli({"connect", "opencode"}, env, h.home);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("a plugin Duskwell did not write"), std::string::npos) << refused.errors;
    EXPECT_EQ(runCli({"disconnect", "opencode"}, env, h.home).status, 0);
    EXPECT_EQ(readFile(plugin), "export const Mine = async () => ({});\n");
}

TEST(ConnectCommand, AnswersUsageAndFailureWithTheirExitCodes) {
    AgentHome h;
    const auto env = h.environment();
    EXPECT_EQ(runCli({"connect"}, env, h.home).status, 2);
    EXPECT_EQ(runCli({"connect", "aider"}, env, h.home).status, 2);
    EXPECT_EQ(runCli({"disconnect", "claude", "codex"}, env, h.home).status, 2);

    fs::create_directories(h.home + "/.claude");
    writeFile(h.home + "/.claude/settings.json", "[1]");
    const auto broken = runCli({"connect", "claude"}, env, h.home);
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.errors, "duskwell: Can't parse settings file: " + h.home + "/.claude/settings.json\n");
    EXPECT_EQ(readFile(h.home + "/.claude/settings.json"), "[1]");

    // Disconnecting an agent that was never connected is no error and creates nothing.
    EXPECT_EQ(runCli({"disconnect", "codex"}, env, h.home).status, 0);
    EXPECT_FALSE(fs::exists(h.home + "/.codex"));
}

}  // namespace
}  // namespace duskwell
