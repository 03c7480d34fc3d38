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
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

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

// A client waits at most this long to send its line: a silent one cannot hold others up.
constexpr auto kClientDeadline = std::chrono::seconds(2);
// More clients than this at once are answered "error busy" at once.
constexpr std::size_t kMaxClients = 32;

// A request's reply, filled in on the main queue and collected by the server thread, which
// the main queue wakes through the pipe (shared, so a late task never writes to a closed or
// reused descriptor).
struct Exchange {
    std::mutex mutex;
    std::optional<Reply> reply;
};

struct Client {
    Fd fd;
    std::string buffer;
    std::chrono::steady_clock::time_point deadline;
    std::shared_ptr<Exchange> exchange;  // set once a complete line went to the main queue
    bool watchRequest = false;           // asked to stay and be sent what is published
    bool watching = false;
    std::string out;                     // a watcher's unsent rest of one published line
    std::uint64_t sent = 0;              // the generation of the last line it was given
};

// A watcher that takes nothing for this long is dropped: a stopped client must not hold a
// slot (or its line) for ever.
constexpr auto kWatcherStall = std::chrono::seconds(10);

// Writes what the socket takes now; false when the peer is gone.
bool sendSome(int fd, std::string& out) {
#ifdef MSG_NOSIGNAL
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
#else
    const int flags = MSG_DONTWAIT;
#endif
    while (!out.empty()) {
        const ssize_t n = ::send(fd, out.data(), out.size(), flags);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN || errno == EWOULDBLOCK;
        }
        out.erase(0, static_cast<std::size_t>(n));
    }
    return true;
}

}  // namespace

struct ControlServer::Impl {
    std::string path;
    Poster post;
    Handler handler;
    Fd listener;
    Fd wakeRead;
    std::shared_ptr<Fd> wakeWrite;  // a byte here ends the thread's poll
    std::atomic<bool> stopping{false};
    std::thread thread;
    // Shared with posted tasks so that a late task sees the server is gone.
    std::shared_ptr<std::atomic<bool>> alive = std::make_shared<std::atomic<bool>>(true);
    std::vector<Client> clients;  // the server thread's alone
    // The newest published line and its generation (0: nothing published yet).
    std::mutex publishedMutex;
    std::string published;
    std::uint64_t generation = 0;
    std::atomic<std::size_t> watcherCount{0};

    void wake() {
        const char byte = 'p';
        [[maybe_unused]] const ssize_t n = ::write(wakeWrite->get(), &byte, 1);
    }
    // Hands watchers the newest line and writes what their sockets take.
    void feedWatchers();

    void run();
    void accept();
    // Reads what a client sent; false when the client is finished with (answered or gone).
    bool read(Client& client);
    void dispatch(Client& client, const std::string& request);
    void answer(Client& client, const Reply& reply);
};

void ControlServer::Impl::answer(Client& client, const Reply& reply) {
    sendAll(client.fd.get(), ControlProtocol::format(reply) + "\n");
    if (client.watchRequest && reply.kind == ReplyKind::ok) {
        client.watching = true;
        client.exchange.reset();
        client.deadline = std::chrono::steady_clock::now() + kWatcherStall;
        watcherCount.fetch_add(1);
        return;
    }
    client.fd.reset();
}

void ControlServer::Impl::feedWatchers() {
    std::string line;
    std::uint64_t gen = 0;
    {
        std::lock_guard lock(publishedMutex);
        line = published;
        gen = generation;
    }
    const auto now = std::chrono::steady_clock::now();
    for (auto& c : clients) {
        if (!c.watching || !c.fd.valid()) continue;
        // Until the socket is full or the watcher has the newest line: a line finished now
        // may already be stale, and no later wake-up would say so.
        while (c.fd.valid() && (!c.out.empty() || c.sent < gen)) {
            if (c.out.empty()) {
                c.out = line + "\n";
                c.sent = gen;
                c.deadline = now + kWatcherStall;  // the stall is counted from having something
            }
            const std::size_t before = c.out.size();
            if (!sendSome(c.fd.get(), c.out)) c.fd.reset();
            else if (c.out.size() < before) c.deadline = now + kWatcherStall;
            else if (now >= c.deadline) c.fd.reset();  // took nothing for too long
            if (!c.out.empty()) break;
        }
        if (!c.fd.valid()) watcherCount.fetch_sub(1);
    }
}

// Every client is served by this one thread at once: poll waits for the listener, the wake
// pipe and every client still sending; requests run on the main queue, in arrival order.
void ControlServer::Impl::run() {
    using Clock = std::chrono::steady_clock;
    std::vector<pollfd> fds;
    while (!stopping.load()) {
        fds.assign({{listener.get(), POLLIN, 0}, {wakeRead.get(), POLLIN, 0}});
        auto next = Clock::time_point::max();
        for (const auto& c : clients) {
            if (c.exchange) continue;  // waiting for the main queue
            // A watcher is polled to notice its hang-up, and for room when a line is pending.
            const short events = c.watching && !c.out.empty() ? POLLIN | POLLOUT : POLLIN;
            fds.push_back({c.fd.get(), events, 0});
            if (!c.watching || !c.out.empty()) next = std::min(next, c.deadline);
        }
        int timeout = -1;
        if (next != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
            timeout = static_cast<int>(std::clamp<long long>(left, 0, 60'000));
        }
        const int r = ::poll(fds.data(), fds.size(), timeout);
        if (r < 0 && errno != EINTR) return;
        if (stopping.load()) break;
        if (r > 0 && fds[1].revents) {
            char drain[64];
            while (::read(wakeRead.get(), drain, sizeof drain) == static_cast<ssize_t>(sizeof drain)) {
            }
        }
        // Replies the main queue has made.
        for (auto& c : clients) {
            if (!c.exchange) continue;
            std::optional<Reply> reply;
            {
                std::lock_guard lock(c.exchange->mutex);
                reply = c.exchange->reply;
            }
            if (reply) answer(c, *reply);
        }
        // What clients sent, and who ran out of time.
        const auto now = Clock::now();
        std::size_t at = 2;
        for (auto& c : clients) {
            if (!c.fd.valid() || c.exchange) continue;
            const auto revents = at < fds.size() && fds[at].fd == c.fd.get() ? fds[at++].revents : 0;
            if (c.watching) {
                if (revents & (POLLIN | POLLHUP | POLLERR)) {
                    // Anything a watcher sends is ignored; its end of the stream ends it.
                    char drain[256];
                    const ssize_t n = ::recv(c.fd.get(), drain, sizeof drain, MSG_DONTWAIT);
                    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
                        c.fd.reset();
                        watcherCount.fetch_sub(1);
                    }
                }
                continue;
            }
            if (revents) read(c);
            else if (now >= c.deadline) answer(c, {ReplyKind::error, "no request line"});
        }
        feedWatchers();
        std::erase_if(clients, [](const Client& c) { return !c.fd.valid(); });
        if (r > 0 && (fds[0].revents & POLLIN)) accept();
    }
    for (auto& c : clients)
        if (c.exchange) answer(c, {ReplyKind::error, "shutting down"});
    clients.clear();
    watcherCount.store(0);
}

void ControlServer::Impl::accept() {
    Fd fd(::accept(listener.get(), nullptr, nullptr));
    if (!fd.valid()) return;
    ::fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
    Client client;
    client.fd = std::move(fd);
    client.deadline = std::chrono::steady_clock::now() + kClientDeadline;
    const auto uid = peerUid(client.fd.get());
    if (!uid || *uid != ::geteuid()) return answer(client, {ReplyKind::error, "refused"});
    if (clients.size() >= kMaxClients) return answer(client, {ReplyKind::error, "busy"});
    clients.push_back(std::move(client));
}

bool ControlServer::Impl::read(Client& client) {
    char buf[1024];
    const ssize_t n = ::recv(client.fd.get(), buf, sizeof buf, 0);
    if (n < 0) {
        if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) return true;
        client.fd.reset();
        return false;
    }
    // Only a complete line is a request: a client that closes mid-line asked for nothing.
    if (n == 0) {
        answer(client, {ReplyKind::error, "no request line"});
        return false;
    }
    client.buffer.append(buf, static_cast<std::size_t>(n));
    const auto newline = client.buffer.find('\n');
    if (newline == std::string::npos) {
        if (client.buffer.size() > ControlProtocol::maxRequestBytes) answer(client, {ReplyKind::error, "malformed request"});
        return client.fd.valid();
    }
    std::string request = client.buffer.substr(0, newline);
    if (!request.empty() && request.back() == '\r') request.pop_back();
    if (request.size() > ControlProtocol::maxRequestBytes || !ControlProtocol::acceptableRequest(request)) {
        answer(client, {ReplyKind::error, "malformed request"});
        return false;
    }
    client.watchRequest = request == watchRequest;
    dispatch(client, request);
    return true;
}

void ControlServer::Impl::dispatch(Client& client, const std::string& request) {
    auto exchange = std::make_shared<Exchange>();
    client.exchange = exchange;
    std::weak_ptr<std::atomic<bool>> weakAlive = alive;
    std::shared_ptr<Fd> wake = wakeWrite;
    Handler handle = handler;
    // Runs on the main queue.
    post([exchange, weakAlive, wake, handle, request] {
        const auto live = weakAlive.lock();
        if (!live || !live->load()) return;
        Reply reply = handle(request);
        {
            std::lock_guard lock(exchange->mutex);
            exchange->reply = std::move(reply);
        }
        const char byte = 'r';
        [[maybe_unused]] const ssize_t n = ::write(wake->get(), &byte, 1);
    });
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
    impl->wakeWrite = std::make_shared<Fd>(pipeFds[1]);
    for (const int fd : pipeFds) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);  // a full pipe already wakes
    }

    Impl* raw = impl.get();
    impl->thread = std::thread([raw] { raw->run(); });
    return std::unique_ptr<ControlServer>(new ControlServer(std::move(impl)));
}

ControlServer::~ControlServer() {
    impl_->stopping.store(true);
    impl_->alive->store(false);
    const char byte = 'x';
    [[maybe_unused]] const ssize_t n = ::write(impl_->wakeWrite->get(), &byte, 1);
    if (impl_->thread.joinable()) impl_->thread.join();
    ::unlink(impl_->path.c_str());
}

const std::string& ControlServer::path() const { return impl_->path; }

void ControlServer::publish(std::string line) {
    {
        std::lock_guard lock(impl_->publishedMutex);
        impl_->published = std::move(line);
        ++impl_->generation;
    }
    impl_->wake();
}

std::size_t ControlServer::watchers() const { return impl_->watcherCount.load(); }

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
