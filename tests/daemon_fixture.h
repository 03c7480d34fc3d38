#pragma once
// Real duskwelld processes in a temporary HOME, with recording stand-ins for the privileged
// and sleep commands (DUSKWELL_TEST_SUDO / _HELPER / _SLEEP), a fast test clock
// (DUSKWELL_TEST_TIME_SCALE) and bounded waits. Every process a test starts is killed and
// reaped by its RAII owner, also when the test fails half-way.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "testing/fakes.h"

namespace duskwell::daemontest {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

inline std::string binary(const std::string& name) { return std::string(DUSKWELL_BIN_DIR) + "/" + name; }

// Polls `done` every 50 ms; false when `seconds` pass first.
inline bool waitFor(const std::function<bool()>& done, double seconds) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (Clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// Sets environment variables for this process (and so for every child) and puts the old
// values back afterwards.
class EnvScope {
public:
    void set(const std::string& name, const std::string& value) {
        if (!saved_.count(name)) {
            const char* old = std::getenv(name.c_str());
            saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
        }
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    ~EnvScope() {
        for (const auto& [name, value] : saved_) {
            if (value) ::setenv(name.c_str(), value->c_str(), 1);
            else ::unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> saved_;
};

// A child process, stdout and stderr into `logPath` (or inherited), killed and reaped when
// the owner goes.
class Process {
public:
    Process(const std::vector<std::string>& argv, const std::string& logPath = "") {
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setpgid(0, 0);
            if (!logPath.empty()) {
                const int fd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                if (fd >= 0) {
                    ::dup2(fd, STDOUT_FILENO);
                    ::dup2(fd, STDERR_FILENO);
                }
                const int null = ::open("/dev/null", O_RDONLY);
                if (null >= 0) ::dup2(null, STDIN_FILENO);
            }
            ::execv(args[0], args.data());
            ::_exit(127);
        }
    }
    ~Process() { kill(SIGKILL); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    int pid() const { return pid_; }
    bool running() {
        reap(false);
        return pid_ > 0 && !status_;
    }
    void signal(int sig) {
        if (pid_ > 0 && !status_) ::kill(pid_, sig);
    }
    void kill(int sig) {
        if (pid_ <= 0) return;
        if (!status_) {
            ::kill(pid_, sig);
            reap(true);
        }
    }
    // The wait status once it ended; waits up to `seconds`.
    std::optional<int> wait(double seconds) {
        waitFor([&] { return !running(); }, seconds);
        return status_;
    }

private:
    void reap(bool block) {
        if (pid_ <= 0 || status_) return;
        int st = 0;
        const pid_t r = ::waitpid(pid_, &st, block ? 0 : WNOHANG);
        if (r == pid_) status_ = st;
    }
    pid_t pid_ = -1;
    std::optional<int> status_;
};

// Runs a program to its end (bounded) and answers its exit status and output.
struct RunResult {
    int status = -1;
    std::string output;
};
inline RunResult run(const std::vector<std::string>& argv, const std::string& scratch, double seconds = 20) {
    const std::string log = scratch + "/run-" + std::to_string(Clock::now().time_since_epoch().count()) + ".log";
    Process p(argv, log);
    RunResult r;
    if (auto st = p.wait(seconds); st && WIFEXITED(*st)) r.status = WEXITSTATUS(*st);
    r.output = testing::readFile(log).value_or("");
    return r;
}

// A temporary HOME with the stand-ins, the environment that points duskwelld at them, and
// readers for what they recorded.
class DaemonHome {
public:
    explicit DaemonHome(const std::string& ntfyURL = "", double timeScale = 0) {
        fs::create_directories(support());
        fs::create_directories(bin());
        script("sudo", "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + calls() + "'\nexit 0\n");
        script("sleep-now", "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + sleeps() + "'\nexit 0\n");
        testing::writeFile(helper(), "#!/bin/sh\n# stands in for the installed helper\n");
        env_.set("HOME", home());
        env_.set("DUSKWELL_TEST_SUDO", bin() + "/sudo");
        env_.set("DUSKWELL_TEST_HELPER", helper());
        env_.set("DUSKWELL_TEST_SLEEP", bin() + "/sleep-now");
        env_.set("DUSKWELL_TEST_NTFY", ntfyURL.empty() ? "http://127.0.0.1:9" : ntfyURL);
        if (timeScale > 0) env_.set("DUSKWELL_TEST_TIME_SCALE", std::to_string(timeScale));
        env_.set("LANG", "C");
        env_.set("LC_ALL", "");
        env_.set("LANGUAGE", "");
    }

    std::string home() const { return dir_.path(); }
    std::string support() const { return home() + "/.duskwell"; }
    std::string bin() const { return home() + "/stand-ins"; }
    std::string helper() const { return bin() + "/duskwell-power"; }
    std::string calls() const { return bin() + "/sudo-calls.log"; }
    std::string sleeps() const { return bin() + "/sleep-calls.log"; }
    std::string daemonLog() const { return home() + "/duskwelld.log"; }
    EnvScope& env() { return env_; }

    void writeSettings(const nlohmann::json& settings) const {
        testing::writeFile(support() + "/settings.json", settings.dump());
    }
    std::optional<nlohmann::json> settings() const {
        auto text = testing::readFile(support() + "/settings.json");
        if (!text) return std::nullopt;
        auto j = nlohmann::json::parse(*text, nullptr, false);
        if (j.is_discarded()) return std::nullopt;
        return j;
    }
    std::optional<nlohmann::json> status() const {
        auto text = testing::readFile(support() + "/status.json");
        if (!text) return std::nullopt;
        auto j = nlohmann::json::parse(*text, nullptr, false);
        if (j.is_discarded()) return std::nullopt;
        return j;
    }

    // The helper verbs the stand-in sudo was asked to run ("lid-on", "lid-off", ...), in
    // order; "version" probes are left out.
    std::vector<std::string> helperVerbs() const {
        std::vector<std::string> verbs;
        const std::string prefix = "-n " + helper() + " ";
        std::string text = testing::readFile(calls()).value_or("");
        for (std::size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1)) {
            const std::string line = text.substr(0, at);
            if (line.rfind(prefix, 0) != 0) continue;
            const std::string verb = line.substr(prefix.size());
            if (verb != "version") verbs.push_back(verb);
        }
        return verbs;
    }
    int count(const std::string& verb) const {
        int n = 0;
        for (const auto& v : helperVerbs()) n += v == verb;
        return n;
    }

    // Starts duskwelld (no terminal: log mode) and waits until its control socket answers.
    std::unique_ptr<Process> startDaemon(const std::vector<std::string>& extra = {}) const {
        std::vector<std::string> argv{binary("duskwelld")};
        argv.insert(argv.end(), extra.begin(), extra.end());
        auto p = std::make_unique<Process>(argv, daemonLog());
        waitFor([&] { return fs::exists(support() + "/control.sock") || !p->running(); }, 10);
        return p;
    }

private:
    void script(const std::string& name, const std::string& text) const {
        testing::writeFile(bin() + "/" + name, text);
        fs::permissions(bin() + "/" + name, fs::perms::owner_all);
    }

    testing::TempDir dir_;
    EnvScope env_;
};

// A stand-in agent: a copy of /bin/sh named "claude" spinning a busy loop. SIGSTOP makes
// it quiet; it is killed when the owner goes.
class BusyAgent {
public:
    explicit BusyAgent(const std::string& folder) {
        const std::string exe = folder + "/claude";
        fs::copy_file("/bin/sh", exe, fs::copy_options::overwrite_existing);
        fs::permissions(exe, fs::perms::owner_all);
        process_ = std::make_unique<Process>(std::vector<std::string>{exe, "-c", "while :; do :; done"}, folder + "/agent.log");
    }
    ~BusyAgent() {
        process_->signal(SIGCONT);
        process_->kill(SIGKILL);
    }
    void quiet() { process_->signal(SIGSTOP); }
    int pid() const { return process_->pid(); }

private:
    std::unique_ptr<Process> process_;
};

}  // namespace duskwell::daemontest
