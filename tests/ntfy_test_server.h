#pragma once
// A small ntfy-compatible server on loopback for the tests: JSON publish to the root,
// plain publish to "/<topic>", and the poll form of the JSON stream
// ("GET /<topic>/json?poll=1&since=<id|unix time|all>"). It can be told to answer every
// request with an error status or to stall. One thread per connection, at most
// `maxConnections` at once; everything stops and is joined in the destructor.
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

namespace duskwell::testing {

class NtfyTestServer {
public:
    struct Request {
        std::string method;
        std::string target;  // path and query, as sent
        std::string body;
        std::optional<std::string> authorization;  // the Authorization header, as sent
    };

    static constexpr int maxConnections = 32;

    NtfyTestServer();  // listens on 127.0.0.1 at a free port
    ~NtfyTestServer();
    NtfyTestServer(const NtfyTestServer&) = delete;
    NtfyTestServer& operator=(const NtfyTestServer&) = delete;

    // "http://127.0.0.1:<port>", no trailing slash.
    std::string url() const;

    // Answer every request with this status and an ntfy error body (429, 500, ...), storing
    // nothing; nothing returns to normal answers.
    void answerWith(std::optional<int> status);
    // While stalled, requests are read and recorded but never answered.
    void setStalled(bool stalled);
    // Polls answer every message of the topic whatever "since" says (a server whose cache
    // cursor was lost).
    void setIgnoreSince(bool ignore);
    // With a token, every request must carry "Authorization: Bearer <token>"; others are
    // answered 401 as ntfy does for a server without anonymous access. Nothing: open.
    void requireToken(std::optional<std::string> token);

    // Stores a message as if published; `time` defaults to now. Answers the new id.
    std::string publish(const std::string& topic, const std::string& message,
                        std::optional<std::int64_t> time = std::nullopt);
    // The stored messages of `topic`, oldest first, as the server would send them.
    std::vector<nlohmann::json> messages(const std::string& topic) const;
    // Every request received, in order of arrival.
    std::vector<Request> requests() const;
    // Waits until at least `count` requests arrived; false after `seconds`.
    bool waitForRequests(std::size_t count, double seconds) const;

private:
    struct Answer {
        int status = 200;
        std::string body;
        bool stream = false;  // no Content-Length: the body ends when the connection closes
    };
    void acceptLoop();
    void serve(int fd);
    Answer answer(const Request& request);
    Answer publishJSON(const std::string& body);
    Answer poll(const std::string& topic, const std::string& query);
    nlohmann::json store(const std::string& topic, nlohmann::json message, std::optional<std::int64_t> time);
    std::string newID();

    int listenFd_ = -1;
    int port_ = 0;
    int wakeFds_[2] = {-1, -1};  // the destructor writes to [1] to end accept()

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool stopping_ = false;
    bool stalled_ = false;
    bool ignoreSince_ = false;
    std::optional<int> forcedStatus_;
    std::optional<std::string> requiredToken_;
    int openConnections_ = 0;
    std::vector<Request> requests_;
    std::vector<nlohmann::json> messages_;  // every topic, in publication order
    std::uint64_t idSeed_ = 0;

    std::thread acceptor_;
    std::vector<std::thread> connections_;  // acceptor thread only, joined in the destructor
};

}  // namespace duskwell::testing
