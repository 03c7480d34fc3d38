#include "power_off_watcher.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/streambuf.hpp>
#include <filesystem>
#include <istream>
#include <sstream>

namespace duskwell {

bool ShutdownNoticeParser::feed(const std::string& line) {
    const bool names = line.find("PrepareForShutdown") != std::string::npos;
    // gdbus: "/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForShutdown (true,)"
    if (names && line.find("org.freedesktop.login1.Manager.PrepareForShutdown") != std::string::npos) {
        const auto open = line.find('(', line.find("PrepareForShutdown"));
        return open != std::string::npos && line.compare(open, 5, "(true") == 0;
    }
    // busctl: a new message starts with its "Type=" header line.
    if (line.find("Type=") != std::string::npos) inShutdownMessage_ = false;
    if (line.find("Member=PrepareForShutdown") != std::string::npos) {
        inShutdownMessage_ = true;
        return false;
    }
    if (inShutdownMessage_ && line.find("BOOLEAN") != std::string::npos) {
        inShutdownMessage_ = false;
        return line.find("true") != std::string::npos;
    }
    return false;
}

std::optional<std::vector<std::string>> powerOffMonitorCommand(const std::string& path) {
    auto find = [&](const std::string& name) -> std::optional<std::string> {
        std::stringstream dirs(path);
        std::string dir;
        while (std::getline(dirs, dir, ':')) {
            if (dir.empty()) continue;
            const std::string candidate = dir + "/" + name;
            if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        }
        return std::nullopt;
    };
    if (auto gdbus = find("gdbus")) {
        return std::vector<std::string>{*gdbus, "monitor", "--system", "--dest", "org.freedesktop.login1",
                                        "--object-path", "/org/freedesktop/login1"};
    }
    if (auto busctl = find("busctl")) {
        return std::vector<std::string>{
            *busctl, "monitor", "--system",
            "--match", "type='signal',interface='org.freedesktop.login1.Manager',member='PrepareForShutdown'"};
    }
    return std::nullopt;
}

struct PowerOffWatcher::Impl : std::enable_shared_from_this<Impl> {
    explicit Impl(asio::io_context& context) : stream(context), reapTimer(context) {}

    asio::posix::stream_descriptor stream;
    asio::streambuf buffer;
    asio::steady_timer reapTimer;
    pid_t pid = -1;
    bool open = false;
    ShutdownNoticeParser parser;
    std::function<void()> onNotice;

    // The monitor closed its output; collect it once it has exited, so no zombie lingers.
    void reapSoon() {
        if (reap()) return;
        reapTimer.expires_after(std::chrono::seconds(1));
        reapTimer.async_wait([self = shared_from_this()](const std::error_code& ec) {
            if (!ec) self->reap();
        });
    }
    bool reap() {
        if (pid <= 0) return true;
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) pid = -1;
        return pid <= 0;
    }

    void readLine() {
        asio::async_read_until(stream, buffer, '\n',
                               [self = shared_from_this()](const std::error_code& ec, std::size_t) {
                                   if (ec) {  // EOF: the monitor ended (no bus); stay quiet
                                       if (self->open) self->reapSoon();
                                       self->open = false;
                                       return;
                                   }
                                   std::istream in(&self->buffer);
                                   std::string line;
                                   std::getline(in, line);
                                   if (self->parser.feed(line) && self->onNotice) self->onNotice();
                                   if (self->open) self->readLine();
                               });
    }
};

PowerOffWatcher::PowerOffWatcher(asio::io_context& context, const std::vector<std::string>& argv,
                                 std::function<void()> onNotice)
    : impl_(std::make_shared<Impl>(context)) {
    impl_->onNotice = std::move(onNotice);
    if (argv.empty()) return;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;

    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t parent = ::getpid();

    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        return;
    }
    if (pid == 0) {
        // Only async-signal-safe calls until exec.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(0);  // the parent died before the line above
        ::dup2(fds[1], STDOUT_FILENO);
        const int null = ::open("/dev/null", O_RDWR);
        if (null >= 0) {
            ::dup2(null, STDIN_FILENO);
            ::dup2(null, STDERR_FILENO);
        }
        ::execv(args[0], args.data());
        ::_exit(127);
    }
    ::close(fds[1]);
    impl_->pid = pid;
    impl_->stream.assign(fds[0]);
    impl_->open = true;
    impl_->readLine();
}

PowerOffWatcher::~PowerOffWatcher() {
    impl_->open = false;
    std::error_code ec;
    impl_->stream.cancel(ec);
    impl_->stream.close(ec);
    impl_->onNotice = nullptr;
    impl_->reapTimer.cancel();
    if (impl_->pid > 0) {
        ::kill(impl_->pid, SIGTERM);
        int status = 0;
        ::waitpid(impl_->pid, &status, 0);
    }
}

bool PowerOffWatcher::running() const { return impl_->open; }

}  // namespace duskwell
