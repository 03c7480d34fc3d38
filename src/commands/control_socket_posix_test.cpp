// The control socket: real Unix-domain sockets in a temporary folder.
#include "commands/control_socket.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using ControlProtocol::Reply;
using ControlProtocol::ReplyKind;
using Outcome = ControlResponse::Outcome;

// Runs posted tasks at once, on the server's thread: enough where no controller is involved.
void runNow(std::function<void()> task) { task(); }

struct Recorder {
    std::mutex mutex;
    std::vector<std::string> requests;
    ControlServer::Handler handler(Reply reply = {ReplyKind::ok, {}}) {
        return [this, reply](const std::string& r) {
            std::lock_guard lock(mutex);
            requests.push_back(r);
            return reply;
        };
    }
    size_t count() {
        std::lock_guard lock(mutex);
        return requests.size();
    }
};

struct ControlSocketTest : ::testing::Test {
    testing::TempDir dir;
    std::string path() const { return dir.path() + "/.duskwell/control.sock"; }
};

TEST_F(ControlSocketTest, CarriesOneRequestLineAndItsReply) {
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler({ReplyKind::error, "Couldn't change\npower settings."}));
    ASSERT_TRUE(server);
    const auto response = sendControlRequest(path(), "duskwell://start?mode=timer&minutes=90", 5);
    ASSERT_EQ(response.outcome, Outcome::replied) << response.text;
    EXPECT_EQ(response.reply, (Reply{ReplyKind::error, "Couldn't change power settings."}));
    ASSERT_EQ(rec.count(), 1u);
    EXPECT_EQ(rec.requests[0], "duskwell://start?mode=timer&minutes=90");
}

TEST_F(ControlSocketTest, TheSocketIsOwnerOnlyAndGoneAfterShutdown) {
    Recorder rec;
    {
        auto server = ControlServer::start(path(), runNow, rec.handler());
        ASSERT_TRUE(server);
        struct stat st {};
        ASSERT_EQ(::stat(path().c_str(), &st), 0);
        EXPECT_TRUE(S_ISSOCK(st.st_mode));
        EXPECT_EQ(st.st_mode & 0777, 0600u);
    }
    EXPECT_FALSE(fs::exists(fs::symlink_status(path())));
    EXPECT_EQ(sendControlRequest(path(), "ping", 2).outcome, Outcome::notRunning);
}

// A server whose handlers wait in a main queue that the test runs by hand.
struct QueuedServer {
    std::mutex mutex;
    std::vector<std::function<void()>> queue;
    std::atomic<int> ran{0};
    std::unique_ptr<ControlServer> server;

    QueuedServer(const std::string& path, Reply reply)
        : server(ControlServer::start(
              path,
              [this](std::function<void()> task) {
                  std::lock_guard lock(mutex);
                  queue.push_back(std::move(task));
              },
              [this, reply](const std::string&) {
                  ++ran;
                  return reply;
              })) {}
    std::vector<std::function<void()>> take() {
        std::lock_guard lock(mutex);
        return std::exchange(queue, {});
    }
};

TEST_F(ControlSocketTest, RepliesOnlyAfterTheMainQueueRanTheHandler) {
    QueuedServer q(path(), {ReplyKind::notHandled, {}});
    ASSERT_TRUE(q.server);
    ControlResponse response;
    std::thread client([&] { response = sendControlRequest(path(), "duskwell://nope", 10); });
    // Play the main loop: wait for the task, then run it.
    for (int i = 0; i < 500 && !q.ran.load(); ++i) {
        for (auto& t : q.take()) t();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    client.join();
    EXPECT_EQ(q.ran.load(), 1);
    ASSERT_EQ(response.outcome, Outcome::replied) << response.text;
    EXPECT_EQ(response.reply.kind, ReplyKind::notHandled);
}

TEST_F(ControlSocketTest, ShuttingDownAnswersAPendingRequestAndSkipsItsHandler) {
    QueuedServer q(path(), {ReplyKind::ok, {}});
    ASSERT_TRUE(q.server);
    ControlResponse response;
    std::thread client([&] { response = sendControlRequest(path(), "duskwell://stop", 10); });
    std::vector<std::function<void()>> neverRun;
    for (int i = 0; i < 500 && neverRun.empty(); ++i) {
        neverRun = q.take();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    q.server.reset();
    client.join();
    ASSERT_EQ(response.outcome, Outcome::replied) << response.text;
    EXPECT_EQ(response.reply, (Reply{ReplyKind::error, "shutting down"}));
    for (auto& t : neverRun) t();  // the main loop catches up after the server is gone
    EXPECT_EQ(q.ran.load(), 0);
}

TEST_F(ControlSocketTest, NoServerMeansNotRunningAlsoForAStaleSocketFile) {
    EXPECT_EQ(sendControlRequest(path(), "ping", 2).outcome, Outcome::notRunning);

    // A socket file whose process died: connecting is refused.
    fs::create_directories(dir.path() + "/.duskwell");
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strcpy(addr.sun_path, path().c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ::close(fd);
    EXPECT_EQ(sendControlRequest(path(), "ping", 2).outcome, Outcome::notRunning);

    // ... and a new server replaces it.
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    EXPECT_EQ(sendControlRequest(path(), "ping", 2).outcome, Outcome::replied);
}

TEST_F(ControlSocketTest, ASecondServerDoesNotStealALiveSocket) {
    Recorder first, second;
    auto server = ControlServer::start(path(), runNow, first.handler());
    ASSERT_TRUE(server);
    std::string error;
    EXPECT_FALSE(ControlServer::start(path(), runNow, second.handler(), &error));
    EXPECT_NE(error.find("already"), std::string::npos) << error;
    EXPECT_EQ(sendControlRequest(path(), "ping", 2).outcome, Outcome::replied);
    EXPECT_EQ(first.count(), 1u);
}

TEST_F(ControlSocketTest, SomethingElseAtThePathIsLeftAlone) {
    fs::create_directories(dir.path() + "/.duskwell");
    testing::writeFile(path(), "not a socket");
    Recorder rec;
    std::string error;
    EXPECT_FALSE(ControlServer::start(path(), runNow, rec.handler(), &error));
    EXPECT_EQ(testing::readFile(path()), "not a socket");
}

TEST_F(ControlSocketTest, MalformedOrOversizedRequestsNeverReachTheHandler) {
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    auto r = sendControlRequest(path(), std::string(5000, 'a'), 5);
    ASSERT_EQ(r.outcome, Outcome::replied) << r.text;
    EXPECT_EQ(r.reply.kind, ReplyKind::error);
    r = sendControlRequest(path(), "duskwell://stop\tnow", 5);
    ASSERT_EQ(r.outcome, Outcome::replied) << r.text;
    EXPECT_EQ(r.reply, (Reply{ReplyKind::error, "malformed request"}));
    EXPECT_EQ(rec.count(), 0u);
    EXPECT_EQ(sendControlRequest(path(), "ping", 5).reply.kind, ReplyKind::ok) << "still serving";
}

// A raw client that sends `bytes` and then either closes its sending side or stays silent.
struct RawClient {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    explicit RawClient(const std::string& path) {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    }
    ~RawClient() { ::close(fd); }
    void send(const std::string& bytes) { EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())); }
    std::string replyAfterClosingMySide() {
        ::shutdown(fd, SHUT_WR);
        return reply();
    }
    std::string reply() {
        std::string out;
        char buf[256];
        for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
        return out;
    }
};

TEST_F(ControlSocketTest, OnlyACompleteLineIsActedOn) {
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    for (const std::string& partial : {std::string("duskwell://stop"), std::string("ping\r"), std::string()}) {
        RawClient client(path());
        client.send(partial);
        EXPECT_EQ(client.replyAfterClosingMySide(), "error no request line\n") << partial;
    }
    EXPECT_EQ(rec.count(), 0u) << "a request cut short by the client closing is never executed";
}

TEST_F(ControlSocketTest, SilentClientsHoldNobodyUp) {
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    std::vector<std::unique_ptr<RawClient>> silent;
    for (int i = 0; i < 3; ++i) {
        silent.push_back(std::make_unique<RawClient>(path()));
        silent.back()->send("duskwell://st");  // and then nothing
    }
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) {
        const auto r = sendControlRequest(path(), "ping", 5);
        ASSERT_EQ(r.outcome, Outcome::replied) << r.text;
        EXPECT_EQ(r.reply.kind, ReplyKind::ok);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(500));
    // The silent ones are let go after their short deadline, without a request.
    const auto waited = std::chrono::steady_clock::now();
    EXPECT_EQ(silent[0]->reply(), "error no request line\n");
    EXPECT_LT(std::chrono::steady_clock::now() - waited, std::chrono::seconds(3));
    EXPECT_EQ(rec.count(), 5u);
}

// Reads lines until one starts with `prefix`; every line read, in order. Stops after 5 s.
std::vector<std::string> linesUntil(int fd, const std::string& prefix) {
    std::vector<std::string> lines;
    std::string partial;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 100) <= 0) continue;
        char buf[65536];
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n <= 0) break;
        partial.append(buf, static_cast<size_t>(n));
        for (size_t at; (at = partial.find('\n')) != std::string::npos; partial.erase(0, at + 1)) {
            lines.push_back(partial.substr(0, at));
            if (lines.back().rfind(prefix, 0) == 0) return lines;
        }
    }
    return lines;
}

// Watchers: "ok", then the newest published line and every later one; a watcher that
// reads nothing costs the publisher and the other clients nothing (lines are replaced,
// never queued); one that hangs up is counted out.
TEST_F(ControlSocketTest, WatchersGetTheNewestLinesAndASlowOneHoldsNobodyUp) {
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    server->publish("state 0");
    auto fast = std::make_unique<RawClient>(path());
    RawClient slow(path());
    const int small = 4096;
    ::setsockopt(slow.fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    fast->send("watch\n");
    slow.send("watch\n");
    EXPECT_EQ(linesUntil(fast->fd, "state 0"), (std::vector<std::string>{"ok", "state 0"}));
    ASSERT_TRUE(testing::waitFor([&] { return server->watchers() == 2; }, 2));

    const std::string bulk(256 * 1024, 'x');
    const auto started = std::chrono::steady_clock::now();
    for (int i = 1; i <= 200; ++i) server->publish("state " + std::to_string(i) + " " + bulk);
    const auto ping = sendControlRequest(path(), "ping", 5);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
    EXPECT_EQ(ping.reply.kind, ReplyKind::ok) << ping.text;
    const auto seen = linesUntil(fast->fd, "state 200 ");
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back().substr(0, 10), "state 200 ");
    EXPECT_LT(seen.size(), 200u);  // the 200 publications came faster than 50 MB could be read

    fast.reset();
    EXPECT_TRUE(testing::waitFor([&] { return server->watchers() == 1; }, 2));
    EXPECT_EQ(rec.count(), 3u);  // two watch requests and the ping went through the handler
}

// In a child that has switched to another user: connect, send, read the reply into `out`.
// Only async-signal-safe calls, since the parent runs threads. Returns -errno on failure.
int exchangeAs(uid_t uid, const std::string& socketPath, std::string& out) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return -1;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strcpy(addr.sun_path, socketPath.c_str());
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(pipeFds[0]);
        ::signal(SIGPIPE, SIG_IGN);  // the server may close before our write
        if (::setgid(uid) != 0 || ::setuid(uid) != 0) ::_exit(3);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            const int err = errno;
            [[maybe_unused]] auto n = ::write(pipeFds[1], "connect-failed", 14);
            ::_exit(err == EACCES ? 4 : 5);
        }
        [[maybe_unused]] auto w = ::write(fd, "duskwell://stop\n", 16);
        char buf[128];
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n > 0) [[maybe_unused]] auto m = ::write(pipeFds[1], buf, static_cast<size_t>(n));
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    char buf[256];
    ssize_t n;
    while ((n = ::read(pipeFds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ControlSocketTest, AnotherUserIsRefusedByFileModeAndByPeerCheck) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    const uid_t nobody = 65534;
    fs::permissions(dir.path(), static_cast<fs::perms>(0755));
    Recorder rec;
    auto server = ControlServer::start(path(), runNow, rec.handler());
    ASSERT_TRUE(server);
    fs::permissions(dir.path() + "/.duskwell", static_cast<fs::perms>(0755));

    std::string out;
    EXPECT_EQ(exchangeAs(nobody, path(), out), 4) << "0600 socket: connect is denied; got " << out;

    // Even if the mode were loosened, the server checks who is calling.
    fs::permissions(path(), static_cast<fs::perms>(0666));
    out.clear();
    EXPECT_EQ(exchangeAs(nobody, path(), out), 0);
    EXPECT_EQ(out, "error refused\n");
    EXPECT_EQ(rec.count(), 0u) << "the request never reached the handler";

    EXPECT_EQ(sendControlRequest(path(), "ping", 2).reply.kind, ReplyKind::ok) << "the owner still gets through";
}

}  // namespace
}  // namespace duskwell
