// Unix-domain control socket: the daemon's server and the client used by the terminal
// command and `duskwelld --open-url`.
#include "commands/control_socket.h"

#include "commands/atomic_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

#include "core/app_config.h"

namespace duskwell {
namespace {

using ControlProtocol::Reply;
using ControlProtocol::ReplyKind;

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& o) noexcept : fd_(o.release()) {}
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) {
            reset();
            fd_ = o.release();
        }
        return *this;
    }
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

std::string errnoText(int err) { return std::strerror(err); }

bool fillAddress(const std::string& path, sockaddr_un& addr) {
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof addr.sun_path) return false;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    return true;
}

Fd makeSocket() {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd >= 0) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
#ifdef SO_NOSIGPIPE
    if (fd >= 0) {
        int one = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
    }
#endif
    return Fd(fd);
}

ssize_t sendAll(int fd, const std::string& data) {
#ifdef MSG_NOSIGNAL
    const int flags = MSG_NOSIGNAL;
#else
    const int flags = 0;
#endif
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, flags);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        sent += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(sent);
}

// Reads up to the first "\n" (not included), at most `limit` bytes, until `deadline`.
// Nothing on timeout, error, or when the line is too long.
std::optional<std::string> readLine(int fd, size_t limit, std::chrono::steady_clock::time_point deadline) {
    std::string line;
    char buf[512];
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd p{fd, POLLIN, 0};
        const int r = ::poll(&p, 1, static_cast<int>(std::min<long long>(left.count(), 1'000'000)));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return std::nullopt;
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) return line.empty() ? std::nullopt : std::optional<std::string>(line);  // EOF
        for (ssize_t i = 0; i < n; ++i) {
            if (buf[i] == '\n') return line;
            line += buf[i];
            if (line.size() > limit) return std::nullopt;
        }
    }
}

// The user id of the process at the other end, when the system tells.
std::optional<uid_t> peerUid(int fd) {
#if defined(SO_PEERCRED)
    ucred cred{};
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) return std::nullopt;
    return cred.uid;
#else
    uid_t uid = 0;
    gid_t gid = 0;
    if (::getpeereid(fd, &uid, &gid) != 0) return std::nullopt;
    return uid;
#endif
}

// One request's hand-over between the server thread and the main queue.
struct Exchange {
    std::mutex mutex;
    std::condition_variable done;
    std::optional<Reply> reply;
};

}  // namespace

struct ControlServer::Impl {
    std::string path;
    Poster post;
    Handler handler;
    Fd listener;
    Fd wakeRead, wakeWrite;  // a byte here ends the thread's poll
    std::atomic<bool> stopping{false};
    std::thread thread;
    // Shared with posted tasks so that a late task sees the server is gone.
    std::shared_ptr<std::atomic<bool>> alive = std::make_shared<std::atomic<bool>>(true);
    std::mutex exchangeMutex;
    std::shared_ptr<Exchange> current;

    void run();
    void serve(Fd client);
    Reply dispatch(const std::string& request);
};

void ControlServer::Impl::run() {
    while (!stopping.load()) {
        pollfd fds[2] = {{listener.get(), POLLIN, 0}, {wakeRead.get(), POLLIN, 0}};
        const int r = ::poll(fds, 2, -1);
        if (r < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents) return;
        if (!(fds[0].revents & POLLIN)) continue;
        Fd client(::accept(listener.get(), nullptr, nullptr));
        if (!client.valid()) continue;
        ::fcntl(client.get(), F_SETFD, FD_CLOEXEC);
        serve(std::move(client));
    }
}

void ControlServer::Impl::serve(Fd client) {
    const auto uid = peerUid(client.get());
    if (!uid || *uid != ::geteuid()) {
        sendAll(client.get(), ControlProtocol::format({ReplyKind::error, "refused"}) + "\n");
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    const auto line = readLine(client.get(), ControlProtocol::maxRequestBytes, deadline);
    std::string request = line.value_or("");
    if (!request.empty() && request.back() == '\r') request.pop_back();
    Reply reply;
    if (!line) reply = {ReplyKind::error, "no request line"};
    else if (!ControlProtocol::acceptableRequest(request)) reply = {ReplyKind::error, "malformed request"};
    else reply = dispatch(request);
    sendAll(client.get(), ControlProtocol::format(reply) + "\n");
}

Reply ControlServer::Impl::dispatch(const std::string& request) {
    auto exchange = std::make_shared<Exchange>();
    {
        std::lock_guard lock(exchangeMutex);
        current = exchange;
    }
    std::weak_ptr<std::atomic<bool>> weakAlive = alive;
    Handler handle = handler;
    post([exchange, weakAlive, handle, request] {
        const auto live = weakAlive.lock();
        if (!live || !live->load()) return;
        Reply reply = handle(request);
        std::lock_guard lock(exchange->mutex);
        exchange->reply = std::move(reply);
        exchange->done.notify_all();
    });
    std::unique_lock lock(exchange->mutex);
    exchange->done.wait(lock, [&] { return exchange->reply.has_value() || stopping.load(); });
    if (exchange->reply) return *exchange->reply;
    return {ReplyKind::error, "shutting down"};
}

ControlServer::ControlServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

std::unique_ptr<ControlServer> ControlServer::start(const std::string& socketPath, Poster post, Handler handler,
                                                    std::string* error) {
    auto fail = [&](const std::string& text) -> std::unique_ptr<ControlServer> {
        if (error) *error = text;
        return nullptr;
    };
    sockaddr_un addr{};
    if (!fillAddress(socketPath, addr)) return fail("socket path too long: " + socketPath);

    if (auto folderError = createPrivateDirectories(std::filesystem::path(socketPath).parent_path().string()))
        return fail(*folderError);

    struct stat st {};
    if (::lstat(socketPath.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) return fail("not a socket: " + socketPath);
        // A live server answers a connection; a stale file refuses it.
        Fd probe = makeSocket();
        if (probe.valid() && ::connect(probe.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0)
            return fail("another Duskwell is already listening on " + socketPath);
        ::unlink(socketPath.c_str());
    }

    auto impl = std::make_unique<Impl>();
    impl->path = socketPath;
    impl->post = std::move(post);
    impl->handler = std::move(handler);
    impl->listener = makeSocket();
    if (!impl->listener.valid()) return fail(errnoText(errno));

    // Owner-only from the first moment: no window in which others could connect.
    const mode_t old = ::umask(0177);
    const int bound = ::bind(impl->listener.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    const int bindErr = errno;
    ::umask(old);
    if (bound != 0) return fail(errnoText(bindErr));
    ::chmod(socketPath.c_str(), 0600);
    if (::listen(impl->listener.get(), 16) != 0) {
        const int err = errno;
        ::unlink(socketPath.c_str());
        return fail(errnoText(err));
    }

    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        const int err = errno;
        ::unlink(socketPath.c_str());
        return fail(errnoText(err));
    }
    impl->wakeRead = Fd(pipeFds[0]);
    impl->wakeWrite = Fd(pipeFds[1]);
    ::fcntl(pipeFds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(pipeFds[1], F_SETFD, FD_CLOEXEC);

    Impl* raw = impl.get();
    impl->thread = std::thread([raw] { raw->run(); });
    return std::unique_ptr<ControlServer>(new ControlServer(std::move(impl)));
}

ControlServer::~ControlServer() {
    impl_->stopping.store(true);
    impl_->alive->store(false);
    {
        std::shared_ptr<Exchange> exchange;
        {
            std::lock_guard lock(impl_->exchangeMutex);
            exchange = impl_->current;
        }
        if (exchange) {
            std::lock_guard lock(exchange->mutex);
            exchange->done.notify_all();
        }
    }
    const char byte = 'x';
    [[maybe_unused]] const ssize_t n = ::write(impl_->wakeWrite.get(), &byte, 1);
    if (impl_->thread.joinable()) impl_->thread.join();
    ::unlink(impl_->path.c_str());
}

const std::string& ControlServer::path() const { return impl_->path; }

ControlResponse sendControlRequest(const std::string& socketPath, const std::string& request,
                                   double timeoutSeconds) {
    ControlResponse response;
    sockaddr_un addr{};
    if (!fillAddress(socketPath, addr)) {
        response.text = "socket path too long: " + socketPath;
        return response;
    }
    Fd fd = makeSocket();
    if (!fd.valid()) {
        response.text = errnoText(errno);
        return response;
    }
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        const int err = errno;
        if (err == ENOENT || err == ECONNREFUSED) {
            response.outcome = ControlResponse::Outcome::notRunning;
        } else {
            response.text = errnoText(err);
        }
        return response;
    }
    // A server that refuses us answers and closes without reading: the send may fail,
    // but its reply is still there to read.
    const int sendErr = sendAll(fd.get(), request + "\n") < 0 ? errno : 0;
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long long>(timeoutSeconds * 1000));
    const auto line = readLine(fd.get(), 64 * 1024, deadline);
    if (!line) {
        response.text = sendErr ? errnoText(sendErr) : "no answer from Duskwell";
        return response;
    }
    const auto reply = ControlProtocol::parse(*line);
    if (!reply) {
        response.text = "unexpected answer: " + *line;
        return response;
    }
    response.outcome = ControlResponse::Outcome::replied;
    response.reply = *reply;
    return response;
}

ControlResponse forwardURL(const std::string& url, double timeoutSeconds) {
    return sendControlRequest(AppConfig::controlSocket(), url, timeoutSeconds);
}

int forwardURLExitStatus(const ControlResponse& response, std::string& err) {
    switch (response.outcome) {
        case ControlResponse::Outcome::notRunning:
            err = "Duskwell is not running";
            return 1;
        case ControlResponse::Outcome::failed:
            err = response.text;
            return 1;
        case ControlResponse::Outcome::replied:
            break;
    }
    switch (response.reply.kind) {
        case ReplyKind::ok: return 0;
        case ReplyKind::notHandled: err = "Duskwell did not handle this URL"; return 1;
        case ReplyKind::error: err = response.reply.text; return 1;
    }
    return 1;
}

}  // namespace duskwell
