#pragma once
#include <functional>
#include <memory>
#include <string>

#include "commands/control_protocol.h"

namespace duskwell {

// The daemon's end of the control socket (protocol: control_protocol.h). The socket file
// is created owner-only (0600); a peer whose user id differs from ours is answered
// "error refused" without its request being read. The server's own thread serves every
// connection at once (poll): a client has 2 seconds to send one complete "\n"-ended line
// (a line cut short by the client closing is never acted on); each request is handed to
// `post` (which must run the task on the main queue), and the reply is written after the
// handler has run there.
class ControlServer {
public:
    // Runs on the main queue; answers the request line.
    using Handler = std::function<ControlProtocol::Reply(const std::string& request)>;
    // Schedules a task on the main queue (for the app: services().dispatcher->post).
    using Poster = std::function<void(std::function<void()>)>;

    // Binds `socketPath` (creating its folder), replacing a stale socket left by a dead
    // process. Fails, with `error` set, when another live server answers there, when the
    // path holds something that is not a socket, or when the socket cannot be made.
    static std::unique_ptr<ControlServer> start(const std::string& socketPath, Poster post, Handler handler,
                                                std::string* error = nullptr);

    // Stops accepting, removes the socket file and joins the thread. A request whose task
    // has not yet run on the main queue is answered "error shutting down"; the task then
    // does nothing. Call on the main thread.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    const std::string& path() const;

    // Streaming: a client whose request equals `watchRequest` and is answered "ok" stays
    // connected and is sent every line `publish` hands over afterwards (the latest one first).
    // A watcher that reads slowly only ever gets the newest line (older ones are dropped,
    // never queued); one that takes no data for 10 seconds is disconnected. Any thread.
    void publish(std::string line);
    std::size_t watchers() const;
    static constexpr std::string_view watchRequest = "watch";

    struct Impl;

private:
    explicit ControlServer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// The client's view of one exchange.
struct ControlResponse {
    enum class Outcome {
        replied,     // `reply` holds the server's answer
        notRunning,  // no socket, or nobody listening on it
        failed,      // anything else (permission, timeout, garbled reply); see `text`
    };
    Outcome outcome = Outcome::failed;
    ControlProtocol::Reply reply;
    std::string text;
};

// Sends one request line and waits up to `timeoutSeconds` for the reply. Never throws.
ControlResponse sendControlRequest(const std::string& socketPath, const std::string& request,
                                   double timeoutSeconds);

// For `duskwelld --open-url <url>` and the desktop URL handler: hands the URL to the
// running daemon of this user (AppConfig::controlSocket()).
ControlResponse forwardURL(const std::string& url, double timeoutSeconds = 300);

// Exit status for a forwarded URL: 0 handled, 1 refused/not running/failed, with a line on
// `err` for every outcome but success.
int forwardURLExitStatus(const ControlResponse& response, std::string& err);

}  // namespace duskwell
