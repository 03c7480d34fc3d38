// `duskwell agents` against real processes dressed up as agents on this machine.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "testing/fakes.h"

extern char** environ;
namespace fs = std::filesystem;

namespace duskwell {
namespace {

struct Output {
    int status = -1;
    std::string text;
};

Output runCli(const std::string& home, const std::string& args) {
    const std::string cmd = "HOME='" + home + "' LANG=C '" + std::string(DUSKWELL_BIN_DIR) + "/duskwell-cli' " + args;
    Output out;
    FILE* p = ::popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.text.append(buf, n);
    const int st = ::pclose(p);
    out.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return out;
}

// Processes started for one test, each in its own process group, all killed at the end.
class Processes {
public:
    ~Processes() {
        for (const pid_t pid : pids_) ::kill(-pid, SIGKILL);
        for (const pid_t pid : pids_) ::waitpid(pid, nullptr, 0);
    }
    pid_t start(const std::string& path, const std::vector<std::string>& argv) {
        std::vector<char*> v;
        for (const auto& a : argv) v.push_back(const_cast<char*>(a.c_str()));
        v.push_back(nullptr);
        posix_spawnattr_t attr;
        posix_spawnattr_init(&attr);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attr, 0);
        pid_t pid = -1;
        const int rc = ::posix_spawn(&pid, path.c_str(), nullptr, &attr, v.data(), environ);
        posix_spawnattr_destroy(&attr);
        if (rc != 0) return -1;
        pids_.push_back(pid);
        return pid;
    }

private:
    std::vector<pid_t> pids_;
};

const nlohmann::json* row(const nlohmann::json& rows, const std::string& kind) {
    for (const auto& r : rows)
        if (r.at("kind") == kind) return &r;
    return nullptr;
}

class AgentsCommand : public ::testing::Test {
protected:
    testing::TempDir bin;
    testing::TempDir home;
    Processes procs;

    // A copy of a system program under an agent's (or a look-alike's) name.
    std::string program(const std::string& from, const std::string& name) {
        const std::string to = bin.path() + "/" + name;
        fs::copy_file(from, to);
        fs::permissions(to, fs::perms::owner_all);
        return to;
    }
};

TEST_F(AgentsCommand, ReportsLookAlikeAgentsWithTheirKindsCountsAndStates) {
    // Two unrelated idle goose instances, and look-alikes that must not count.
    const std::string goose = program("/bin/sleep", "goose");
    ASSERT_GT(procs.start(goose, {goose, "60"}), 0);
    ASSERT_GT(procs.start(goose, {goose, "60"}), 0);
    for (const char* name : {"Goose", "goose-helper", "Claude", "claude-helper"}) {
        const std::string p = program("/bin/sleep", name);
        ASSERT_GT(procs.start(p, {p, "60"}), 0);
    }
    // A cursor-agent whose child is another cursor-agent: one instance.
    const std::string cursor = program("/bin/sh", "cursor-agent");
    ASSERT_GT(procs.start(cursor, {cursor, "-c", cursor + " -c 'sleep 60; :'; :"}), 0);
    // An idle opencode root whose child shell spins: the tree works.
    const std::string opencode = program("/bin/sh", "opencode");
    ASSERT_GT(procs.start(opencode, {opencode, "-c", "sh -c 'while :; do :; done' & wait"}), 0);
    // A Python model server known only by its command line, and a Python look-alike.
    const bool python = fs::exists("/usr/bin/python3");
    if (python) {
        ASSERT_GT(procs.start("/usr/bin/python3",
                              {"python3", "-c", "import time; time.sleep(60)", "mlx_lm.server", "--port", "8080"}),
                  0);
        ASSERT_GT(procs.start("/usr/bin/python3", {"python3", "-c", "import time; time.sleep(60)", "-m", "aider"}), 0);
    }
    // A hook record of a waiting codex session, on a running (non-agent) process, and the
    // record of a session whose process is gone.
    const std::string sleeper = program("/bin/sleep", "plain-sleep");
    const pid_t hookedPid = procs.start(sleeper, {sleeper, "60"});
    ASSERT_GT(hookedPid, 0);
    const std::string sessions = home.path() + "/.duskwell/sessions";
    fs::create_directories(sessions);
    const auto now = std::to_string(std::time(nullptr));
    testing::writeFile(sessions + "/codex-t1", "Notification " + now + " " + std::to_string(hookedPid) +
                                                   "\ncwd=/work/some-project\n");
    testing::writeFile(sessions + "/codex-gone", "Stop " + now + " 2147483000\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // let every exec happen

    const auto started = std::chrono::steady_clock::now();
    const Output out = runCli(home.path(), "agents --json");
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    ASSERT_EQ(out.status, 0) << out.text;
    EXPECT_LT(took, 2.5);  // one second of sampling, plus the start-up
    const auto rows = nlohmann::json::parse(out.text);
    ASSERT_TRUE(rows.is_array()) << out.text;

    const auto* g = row(rows, "goose");
    ASSERT_TRUE(g) << out.text;
    EXPECT_EQ(g->at("count"), 2);
    EXPECT_EQ(g->at("state"), "idle");
    EXPECT_EQ(g->at("name"), "Goose");
    EXPECT_EQ(g->at("viaHooks"), false);
    EXPECT_TRUE(g->at("since").is_null());

    const auto* c = row(rows, "cursor");
    ASSERT_TRUE(c) << out.text;
    EXPECT_EQ(c->at("count"), 1);
    EXPECT_EQ(c->at("state"), "idle");

    const auto* o = row(rows, "opencode");
    ASSERT_TRUE(o) << out.text;
    EXPECT_EQ(o->at("count"), 1);
    EXPECT_EQ(o->at("state"), "working");
    EXPECT_TRUE(o->at("since").is_string());

    if (python) {
        const auto* m = row(rows, "mlx");
        ASSERT_TRUE(m) << out.text;
        EXPECT_EQ(m->at("count"), 1);
        EXPECT_EQ(m->at("state"), "idle");
        EXPECT_FALSE(row(rows, "aider")) << out.text;
    }

    const auto* x = row(rows, "codex");
    ASSERT_TRUE(x) << out.text;
    EXPECT_EQ(x->at("viaHooks"), true);
    EXPECT_NE(x->at("state"), "idle");
    EXPECT_TRUE(fs::exists(sessions + "/codex-t1"));
    EXPECT_FALSE(fs::exists(sessions + "/codex-gone"));

    // Working rows first.
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows[0].at("state"), "working");
}

TEST_F(AgentsCommand, TheTableShowsOneLinePerKind) {
    // A kind no other test starts: ctest runs tests side by side and the scan sees them all.
    const std::string server = program("/bin/sleep", "llama-server");
    ASSERT_GT(procs.start(server, {server, "60"}), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const Output out = runCli(home.path(), "agents");
    ASSERT_EQ(out.status, 0);
    EXPECT_NE(out.text.find("AGENT"), std::string::npos) << out.text;
    const auto line = out.text.find("llama.cpp");
    ASSERT_NE(line, std::string::npos) << out.text;
    const std::string serverLine = out.text.substr(line, out.text.find('\n', line) - line);
    EXPECT_NE(serverLine.find(" 1 "), std::string::npos) << serverLine;
    EXPECT_NE(serverLine.find("idle"), std::string::npos) << serverLine;
}

TEST_F(AgentsCommand, AnUnknownOptionIsAUsageError) {
    EXPECT_EQ(runCli(home.path(), "agents --yaml 2>/dev/null").status, 2);
}

}  // namespace
}  // namespace duskwell
