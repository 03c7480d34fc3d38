#pragma once
// Real programs for the integration tests: the built binaries, child processes that are
// always killed and reaped (with everything they started), environment changes that are put
// back, and bounded waits.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testing/fakes.h"

extern char** environ;

namespace duskwell::itest {

using Clock = std::chrono::steady_clock;

inline std::string binary(const std::string& name) { return std::string(DUSKWELL_BIN_DIR) + "/" + name; }

using testing::EnvScope;
using testing::waitFor;

enum class Stderr { withOutput, apart };

// How a child starts: where its output goes (inherited when `log` is empty; its input is
// /dev/null otherwise) and which environment it gets.
struct Launch {
    std::string log = {};     // stdout, and stderr too unless `errors` is set
    std::string errors = {};  // stderr apart
    std::optional<std::vector<std::string>> env = {};  // exactly these variables, else this process's
};

// A child process in its own process group. When the owner goes, a child still running is
// killed together with everything it started, and reaped.
class Process {
public:
    explicit Process(const std::vector<std::string>& argv, const Launch& how = {}) {
        std::vector<char*> args, envp;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        if (how.env) {
            for (const auto& e : *how.env) envp.push_back(const_cast<char*>(e.c_str()));
            envp.push_back(nullptr);
        }
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setpgid(0, 0);
            if (!how.log.empty()) {
                const int out = ::open(how.log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                const int err = how.errors.empty() ? out : ::open(how.errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                const int null = ::open("/dev/null", O_RDONLY);
                if (out < 0 || err < 0 || null < 0) ::_exit(120);
                ::dup2(out, STDOUT_FILENO);
                ::dup2(err, STDERR_FILENO);
                ::dup2(null, STDIN_FILENO);
            }
            ::execve(args[0], args.data(), how.env ? envp.data() : environ);
            ::_exit(127);
        }
    }
    ~Process() {
        if (pid_ > 0 && !status_) {
            ::kill(-pid_, SIGKILL);
            reap(true);
        }
    }
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
    // Sends `sig` to the child alone and waits for it to end.
    void kill(int sig) {
        if (pid_ <= 0 || status_) return;
        ::kill(pid_, sig);
        reap(true);
    }
    // The wait status once it ended; waits up to `seconds`.
    std::optional<int> wait(double seconds) {
        waitFor([&] { return !running(); }, seconds);
        return status_;
    }
    // SIGTERM, as systemd stops a service: the exit code if it then ended by itself within
    // `seconds`.
    std::optional<int> terminate(double seconds = 10) {
        signal(SIGTERM);
        const auto st = wait(seconds);
        if (st && WIFEXITED(*st)) return WEXITSTATUS(*st);
        return std::nullopt;
    }

private:
    void reap(bool block) {
        if (pid_ <= 0 || status_) return;
        int st = 0;
        if (::waitpid(pid_, &st, block ? 0 : WNOHANG) == pid_) status_ = st;
    }
    pid_t pid_ = -1;
    std::optional<int> status_;
};

// Runs a program to its end (killed after `seconds`) and answers its exit status and output.
struct RunResult {
    int status = -1;     // -1 unless it exited by itself
    std::string output;  // stdout, with stderr unless that was asked apart
    std::string errors;
};
struct RunOptions {
    double seconds = 20;
    Stderr stderrTo = Stderr::withOutput;
    std::optional<std::vector<std::string>> env = {};  // exactly these variables, else this process's
};
inline RunResult run(const std::vector<std::string>& argv, const std::string& scratch, const RunOptions& options = {}) {
    static int runs = 0;
    const std::string base = scratch + "/run-" + std::to_string(::getpid()) + "-" + std::to_string(++runs);
    Launch how{base + ".out", options.stderrTo == Stderr::apart ? base + ".err" : "", options.env};
    RunResult r;
    {
        Process p(argv, how);
        if (auto st = p.wait(options.seconds); st && WIFEXITED(*st)) r.status = WEXITSTATUS(*st);
    }
    r.output = testing::readFile(how.log).value_or("");
    r.errors = testing::readFile(how.errors).value_or("");
    return r;
}

}  // namespace duskwell::itest
