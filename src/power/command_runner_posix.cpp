#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/text.h"
#include "power/command_runner_posix.h"

extern char** environ;

namespace duskwell {
namespace {

// Closes a file descriptor when it goes out of scope.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    void reset() { if (fd_ >= 0) ::close(fd_); fd_ = -1; }

private:
    int fd_;
};

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&a_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&a_); }
    posix_spawn_file_actions_t* get() { return &a_; }

private:
    posix_spawn_file_actions_t a_;
};

class SpawnAttr {
public:
    SpawnAttr() { posix_spawnattr_init(&a_); }
    ~SpawnAttr() { posix_spawnattr_destroy(&a_); }
    posix_spawnattr_t* get() { return &a_; }

private:
    posix_spawnattr_t a_;
};

std::vector<char*> argv(const std::string& path, const std::vector<std::string>& args) {
    std::vector<char*> v;
    v.push_back(const_cast<char*>(path.c_str()));
    for (const auto& a : args) v.push_back(const_cast<char*>(a.c_str()));
    v.push_back(nullptr);
    return v;
}

int waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

class DetachedChild final : public ChildProcess {
public:
    explicit DetachedChild(pid_t pid) : pid_(pid) {}
    int pid() const override { return pid_; }
    void terminate() override {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGTERM);
        waitFor(pid_);
        pid_ = -1;
    }

private:
    pid_t pid_;
};

}  // namespace

CommandResult PosixCommandRunner::run(const std::string& path, const std::vector<std::string>& args) {
    int fds[2];
    if (::pipe(fds) != 0) return {-1, std::string("could not create a pipe: ") + std::strerror(errno)};
    Fd readEnd(fds[0]), writeEnd(fds[1]);
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);

    SpawnActions actions;
    posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions.get(), writeEnd.get(), 1);
    posix_spawn_file_actions_adddup2(actions.get(), writeEnd.get(), 2);

    auto v = argv(path, args);
    pid_t pid = 0;
    const int err = ::posix_spawn(&pid, path.c_str(), actions.get(), nullptr, v.data(), environ);
    if (err != 0) return {-1, "could not start " + path + ": " + std::strerror(err)};
    writeEnd.reset();

    // Read to the end first: a chatty child must never block on a full pipe.
    std::string bytes;
    char buf[65536];
    while (true) {
        const ssize_t n = ::read(readEnd.get(), buf, sizeof buf);
        if (n > 0) bytes.append(buf, static_cast<size_t>(n));
        else if (n == 0) break;
        else if (errno != EINTR) break;
    }
    const int status = waitFor(pid);
    return {status, Text::sanitizeUtf8(bytes)};
}

std::unique_ptr<ChildProcess> PosixCommandRunner::spawnDetached(const std::string& path,
                                                                const std::vector<std::string>& args) {
    SpawnActions actions;
    posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(actions.get(), 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(actions.get(), 2, "/dev/null", O_WRONLY, 0);
    SpawnAttr attr;
    // Its own session: a Ctrl-C aimed at our terminal must not end the watchdog too.
    posix_spawnattr_setflags(attr.get(), POSIX_SPAWN_SETSID);
    auto v = argv(path, args);
    pid_t pid = 0;
    if (::posix_spawn(&pid, path.c_str(), actions.get(), attr.get(), v.data(), environ) != 0)
        return nullptr;
    return std::make_unique<DetachedChild>(pid);
}

}  // namespace duskwell
