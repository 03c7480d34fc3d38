// The terminal command against the real daemon: `duskwelld` and `duskwell-cli` in a
// temporary HOME, with sudo, the power helper and system sleep replaced by recording
// stand-ins, so that nothing here touches the machine.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "testing/fakes.h"

namespace {

namespace fs = std::filesystem;
using duskwell::testing::readFile;
using duskwell::testing::TempDir;
using duskwell::testing::writeFile;

const std::string binDir = DUSKWELL_BIN_DIR;

struct Result {
    int status = -1;
    std::string out, err;
};

// Runs `argv` with exactly `env`, waits up to 60 s. `asUser` switches user in the child.
Result run(const std::vector<std::string>& argv, const std::vector<std::string>& env, const std::string& scratch,
           std::optional<uid_t> asUser = std::nullopt) {
    const std::string outPath = scratch + "/out", errPath = scratch + "/err";
    std::vector<char*> args, envp;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    for (const auto& e : env) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (!freopen(outPath.c_str(), "w", stdout) || !freopen(errPath.c_str(), "w", stderr)) ::_exit(120);
        if (asUser && (::setgid(*asUser) != 0 || ::setuid(*asUser) != 0)) ::_exit(121);
        ::execve(args[0], args.data(), envp.data());
        ::_exit(127);
    }
    Result r;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = readFile(outPath).value_or("");
    r.err = readFile(errPath).value_or("");
    return r;
}

class CommandsEndToEnd : public ::testing::Test {
protected:
    TempDir home;
    TempDir scratch;
    std::string stand;  // stand-in programs and their logs
    std::vector<std::string> env;
    pid_t daemon = -1;

    void SetUp() override {
        stand = scratch.path() + "/stand-ins";
        fs::create_directories(stand);
        // sudo: log, drop "-n", run the rest. Helper and sleep: log only.
        writeFile(stand + "/sudo", "#!/bin/sh\necho \"$*\" >> " + stand + "/sudo.log\n[ \"$1\" = -n ] && shift\nexec \"$@\"\n");
        writeFile(stand + "/duskwell-power", "#!/bin/sh\necho \"$*\" >> " + stand + "/helper.log\nexit 0\n");
        writeFile(stand + "/sleep", "#!/bin/sh\necho \"$*\" >> " + stand + "/sleep.log\nexit 0\n");
        for (const char* f : {"sudo", "duskwell-power", "sleep"})
            fs::permissions(stand + "/" + f, static_cast<fs::perms>(0755));
        env = {"HOME=" + home.path(),
               "PATH=/usr/bin:/bin",
               "LANG=C",
               "DUSKWELL_TEST_SUDO=" + stand + "/sudo",
               "DUSKWELL_TEST_HELPER=" + stand + "/duskwell-power",
               "DUSKWELL_TEST_SLEEP=" + stand + "/sleep",
               "DUSKWELL_TEST_NTFY=http://127.0.0.1:9",
               "DUSKWELL_TEST_FEED=http://127.0.0.1:9/version.json"};
    }

    void TearDown() override { stopDaemon(); }

    Result cli(std::vector<std::string> words, std::optional<uid_t> asUser = std::nullopt) {
        words.insert(words.begin(), binDir + "/duskwell-cli");
        return run(words, env, scratch.path(), asUser);
    }

    std::string socketPath() const { return home.path() + "/.duskwell/control.sock"; }

    // Starts duskwelld and waits until it answers on its socket.
    void startDaemon() {
        const std::string path = binDir + "/duskwelld";
        const std::string log = scratch.path() + "/duskwelld.log";
        std::vector<char*> envp;
        for (const auto& e : env) envp.push_back(const_cast<char*>(e.c_str()));
        envp.push_back(nullptr);
        daemon = ::fork();
        if (daemon == 0) {
            if (!freopen("/dev/null", "r", stdin) || !freopen(log.c_str(), "w", stdout) ||
                !freopen(log.c_str(), "a", stderr))
                ::_exit(120);
            char* args[] = {const_cast<char*>(path.c_str()), nullptr};
            ::execve(path.c_str(), args, envp.data());
            ::_exit(127);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(daemon, &status, WNOHANG) == daemon) {
                daemon = -1;
                FAIL() << "duskwelld exited early: " << readFile(log).value_or("");
            }
            if (fs::exists(socketPath()) && cli({"status"}).status == 0) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        FAIL() << "duskwelld did not answer on " << socketPath() << ": " << readFile(log).value_or("");
    }

    // SIGTERM, as systemd stops it; answers the exit status.
    int stopDaemon() {
        if (daemon <= 0) return -1;
        ::kill(daemon, SIGTERM);
        int status = 0;
        for (int i = 0; i < 200 && ::waitpid(daemon, &status, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (::waitpid(daemon, &status, WNOHANG) == 0) {
            ::kill(daemon, SIGKILL);
            ::waitpid(daemon, &status, 0);
        }
        daemon = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool haveDaemon() const { return fs::exists(binDir + "/duskwelld"); }
};

TEST_F(CommandsEndToEnd, WithoutTheAppEveryCommandExitsOneAndSaysSo) {
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"start", "--mode", "timer", "--minutes", "90"}, {"stop"}, {"toggle"}, {"extend", "30"}, {"sleep"}}) {
        const Result r = cli(words);
        EXPECT_EQ(r.status, 1) << words[0];
        EXPECT_NE(r.err.find("Duskwell is not running"), std::string::npos) << words[0] << ": " << r.err;
    }
    const Result status = cli({"status", "--json"});
    EXPECT_EQ(status.status, 1);
    EXPECT_NE(status.err.find("has not run yet"), std::string::npos) << status.err;
    EXPECT_FALSE(fs::exists(scratch.path() + "/stand-ins/sleep.log")) << "sleep was never run";
}

TEST_F(CommandsEndToEnd, UsageErrorsExitTwoBeforeContactingTheApp) {
    EXPECT_EQ(cli({"start", "--mode", "forever"}).status, 2);
    EXPECT_EQ(cli({"start", "--minutes", "ninety"}).status, 2);
    EXPECT_EQ(cli({"start", "--minutes"}).status, 2);
    EXPECT_EQ(cli({"extend", "-5"}).status, 2);
    EXPECT_EQ(cli({"status", "--yaml"}).status, 2);
    EXPECT_EQ(cli({"launch"}).status, 2);
    EXPECT_EQ(cli({}).status, 2);
    const Result help = cli({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: duskwell start | stop | status\n", 0), 0u) << help.out;
}

TEST_F(CommandsEndToEnd, StartStatusStopAgainstTheRunningDaemon) {
    if (!haveDaemon()) GTEST_SKIP() << "duskwelld is not built in " << binDir;
    startDaemon();
    ASSERT_GT(daemon, 0);

    struct stat st {};
    ASSERT_EQ(::stat(socketPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "the control socket is owner-only";

    const auto before = std::chrono::system_clock::now();
    const Result start = cli({"start", "--mode", "timer", "--minutes", "90"});
    ASSERT_EQ(start.status, 0) << start.err;
    EXPECT_NE(start.out.find("1:30 left"), std::string::npos) << start.out;

    const Result status = cli({"status", "--json"});
    ASSERT_EQ(status.status, 0) << status.err;
    const auto doc = nlohmann::json::parse(status.out);
    EXPECT_EQ(doc["active"], true);
    EXPECT_EQ(doc["mode"], "timer");
    std::tm tm{};
    ASSERT_TRUE(strptime(doc["endsAt"].get<std::string>().c_str(), "%Y-%m-%dT%H:%M:%SZ", &tm));
    const auto endsAt = std::chrono::system_clock::from_time_t(timegm(&tm));
    const auto expected = before + std::chrono::minutes(90);
    EXPECT_LT(std::chrono::abs(endsAt - expected), std::chrono::seconds(5)) << doc.dump();
    EXPECT_NE(readFile(scratch.path() + "/stand-ins/helper.log").value_or("").find("lid-on"), std::string::npos);

    const Result human = cli({"status"});
    EXPECT_EQ(human.status, 0);
    EXPECT_NE(human.out.find("Mode: timer"), std::string::npos) << human.out;

    const Result stop = cli({"stop"});
    ASSERT_EQ(stop.status, 0) << stop.err;
    const Result after = cli({"status", "--json"});
    ASSERT_EQ(after.status, 0) << after.err;
    const auto idle = nlohmann::json::parse(after.out);
    EXPECT_EQ(idle["active"], false);
    EXPECT_FALSE(idle.contains("mode"));
    EXPECT_FALSE(idle.contains("endsAt"));
    EXPECT_NE(readFile(scratch.path() + "/stand-ins/helper.log").value_or("").find("lid-off"), std::string::npos);

    const Result extend = cli({"extend", "30"});
    EXPECT_EQ(extend.status, 1) << "nothing to extend";
    EXPECT_NE(extend.err.find("No session is running."), std::string::npos) << extend.err;

    EXPECT_EQ(stopDaemon(), 0);
    const Result gone = cli({"stop"});
    EXPECT_EQ(gone.status, 1);
    EXPECT_NE(gone.err.find("Duskwell is not running"), std::string::npos) << gone.err;
    const Result stale = cli({"status"});
    EXPECT_EQ(stale.status, 1);
    EXPECT_NE(stale.err.find("last state it wrote"), std::string::npos) << stale.err;
}

TEST_F(CommandsEndToEnd, OpenURLForwardsToTheRunningDaemon) {
    if (!haveDaemon()) GTEST_SKIP() << "duskwelld is not built in " << binDir;
    startDaemon();
    ASSERT_GT(daemon, 0);
    const std::string daemonPath = binDir + "/duskwelld";
    Result r = run({daemonPath, "--open-url", "duskwell://toggle"}, env, scratch.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(cli({"status", "--json"}).out)["active"], true);
    r = run({daemonPath, "--open-url", "duskwell://STOP"}, env, scratch.path());
    EXPECT_EQ(r.status, 1) << "not handled";
    r = run({daemonPath, "--open-url", "duskwell://toggle"}, env, scratch.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(cli({"status", "--json"}).out)["active"], false);
}

TEST_F(CommandsEndToEnd, AnotherUserCannotCommandTheDaemon) {
    if (!haveDaemon()) GTEST_SKIP() << "duskwelld is not built in " << binDir;
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    fs::permissions(home.path(), static_cast<fs::perms>(0755));
    fs::permissions(scratch.path(), static_cast<fs::perms>(0777));
    startDaemon();
    ASSERT_GT(daemon, 0);
    fs::permissions(home.path() + "/.duskwell", static_cast<fs::perms>(0755));
    // The stand-ins' folder must be readable for the other user's copy of the CLI (it only
    // needs the binary, which lives in the build tree).
    const Result r = cli({"start", "--mode", "timer", "--minutes", "5"}, 65534);
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_NE(r.err.find("Permission denied"), std::string::npos) << r.err;
    EXPECT_EQ(nlohmann::json::parse(cli({"status", "--json"}).out)["active"], false) << "nothing started";
}

}  // namespace
