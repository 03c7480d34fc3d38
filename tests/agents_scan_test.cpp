// `duskwell agents` against real processes dressed up as agents on this machine.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "process_support.h"

namespace duskwell::itest {
namespace {

namespace fs = std::filesystem;

const nlohmann::json* row(const nlohmann::json& rows, const std::string& kind) {
    for (const auto& r : rows)
        if (r.at("kind") == kind) return &r;
    return nullptr;
}

class AgentsCommand : public ::testing::Test {
protected:
    testing::TempDir bin;
    testing::TempDir home;
    std::vector<std::unique_ptr<Process>> procs;  // each killed with its children at the end

    // A copy of a system program under an agent's (or a look-alike's) name.
    std::string program(const std::string& from, const std::string& name) {
        const std::string to = bin.path() + "/" + name;
        fs::copy_file(from, to);
        fs::permissions(to, fs::perms::owner_all);
        return to;
    }
    int start(const std::vector<std::string>& argv) {
        procs.push_back(std::make_unique<Process>(argv));
        return procs.back()->pid();
    }
    RunResult cli(const std::vector<std::string>& args) {
        std::vector<std::string> argv{binary("duskwell-cli")};
        argv.insert(argv.end(), args.begin(), args.end());
        return run(argv, bin.path(),
                   {.stderrTo = Stderr::apart, .env = std::vector<std::string>{"HOME=" + home.path(), "PATH=/usr/bin:/bin", "LANG=C"}});
    }
};

TEST_F(AgentsCommand, ReportsLookAlikeAgentsWithTheirKindsCountsAndStates) {
    // Two unrelated idle goose instances, and look-alikes that must not count.
    const std::string goose = program("/bin/sleep", "goose");
    ASSERT_GT(start({goose, "60"}), 0);
    ASSERT_GT(start({goose, "60"}), 0);
    for (const char* name : {"Goose", "goose-helper", "Claude", "claude-helper"}) {
        const std::string p = program("/bin/sleep", name);
        ASSERT_GT(start({p, "60"}), 0);
    }
    // A cursor-agent whose child is another cursor-agent: one instance.
    const std::string cursor = program("/bin/sh", "cursor-agent");
    ASSERT_GT(start({cursor, "-c", cursor + " -c 'sleep 60; :'; :"}), 0);
    // An idle opencode root whose child shell spins: the tree works.
    const std::string opencode = program("/bin/sh", "opencode");
    ASSERT_GT(start({opencode, "-c", "sh -c 'while :; do :; done' & wait"}), 0);
    // A Python model server known only by its command line, and a Python look-alike.
    const bool python = fs::exists("/usr/bin/python3");
    if (python) {
        ASSERT_GT(start({"/usr/bin/python3", "-c", "import time; time.sleep(60)", "mlx_lm.server", "--port", "8080"}), 0);
        ASSERT_GT(start({"/usr/bin/python3", "-c", "import time; time.sleep(60)", "-m", "aider"}), 0);
    }
    // A hook record of a waiting codex session, on a running (non-agent) process, and the
    // record of a session whose process is gone.
    const std::string sleeper = program("/bin/sleep", "plain-sleep");
    const int hookedPid = start({sleeper, "60"});
    ASSERT_GT(hookedPid, 0);
    const std::string sessions = home.path() + "/.duskwell/sessions";
    fs::create_directories(sessions);
    const auto now = std::to_string(std::time(nullptr));
    testing::writeFile(sessions + "/codex-t1", "Notification " + now + " " + std::to_string(hookedPid) +
                                                   "\ncwd=/work/some-project\n");
    testing::writeFile(sessions + "/codex-gone", "Stop " + now + " 2147483000\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // let every exec happen

    const auto started = std::chrono::steady_clock::now();
    const RunResult out = cli({"agents", "--json"});
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    ASSERT_EQ(out.status, 0) << out.output;
    EXPECT_LT(took, 2.5);  // one second of sampling, plus the start-up
    const auto rows = nlohmann::json::parse(out.output);
    ASSERT_TRUE(rows.is_array()) << out.output;

    auto expectRow = [&](const char* kind, int count, const char* state) {
        const auto* r = row(rows, kind);
        EXPECT_TRUE(r) << kind << ": " << out.output;
        if (r) {
            EXPECT_EQ(r->at("count"), count) << kind;
            EXPECT_EQ(r->at("state"), state) << kind;
        }
        return r;
    };
    if (const auto* g = expectRow("goose", 2, "idle")) {
        EXPECT_EQ(g->at("name"), "Goose");
        EXPECT_EQ(g->at("viaHooks"), false);
        EXPECT_TRUE(g->at("since").is_null());
    }
    expectRow("cursor", 1, "idle");
    if (const auto* o = expectRow("opencode", 1, "working")) {
        EXPECT_TRUE(o->at("since").is_string());
    }
    if (python) {
        expectRow("mlx", 1, "idle");
        EXPECT_FALSE(row(rows, "aider")) << out.output;
    }

    const auto* x = row(rows, "codex");
    ASSERT_TRUE(x) << out.output;
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
    ASSERT_GT(start({server, "60"}), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(cli({"agents", "--yaml"}).status, 2) << "an unknown option is a usage error";
    const RunResult out = cli({"agents"});
    ASSERT_EQ(out.status, 0);
    EXPECT_NE(out.output.find("AGENT"), std::string::npos) << out.output;
    const auto line = out.output.find("llama.cpp");
    ASSERT_NE(line, std::string::npos) << out.output;
    const std::string serverLine = out.output.substr(line, out.output.find('\n', line) - line);
    EXPECT_NE(serverLine.find(" 1 "), std::string::npos) << serverLine;
    EXPECT_NE(serverLine.find("idle"), std::string::npos) << serverLine;
}

}  // namespace
}  // namespace duskwell::itest
