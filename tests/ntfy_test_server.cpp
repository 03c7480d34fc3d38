#include "ntfy_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <ctime>
#include <map>
#include <random>
#include <regex>
#include <stdexcept>

namespace duskwell::testing {

using nlohmann::json;

namespace {

constexpr std::size_t kMaxHeader = 64 * 1024;
constexpr std::size_t kMaxBody = 1024 * 1024;

bool validTopic(const std::string& topic) {
    static const std::regex pattern("^[-_A-Za-z0-9]{1,64}$");
    return std::regex_match(topic, pattern);
}

std::string reason(int status) {
    switch (status) {
        case 200: return "OK";
        case 401: return "Unauthorized";
        case 400: return "Bad Request";
        case 404: return "Not Found";
        case 429: return "Too Many Requests";
        case 500: return "Internal Server Error";
        default: return "Status";
    }
}

std::string errorBody(int status, int code, const std::string& text) {
    return json{{"code", code}, {"http", status}, {"error", text}}.dump() + "\n";
}

std::map<std::string, std::string> parseQuery(const std::string& query) {
    std::map<std::string, std::string> out;
    std::size_t i = 0;
    while (i <= query.size()) {
        std::size_t end = query.find('&', i);
        if (end == std::string::npos) end = query.size();
        const std::string pair = query.substr(i, end - i);
        const std::size_t eq = pair.find('=');
        if (!pair.empty()) out[pair.substr(0, eq)] = eq == std::string::npos ? "" : pair.substr(eq + 1);
        i = end + 1;
    }
    return out;
}

void sendAll(int fd, const std::string& data) {
    std::size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<std::size_t>(n);
    }
}

// The same clock as the tests and the notifier use: std::time() reads a coarse clock that
// can still show the previous second for a few milliseconds after system_clock moved on.
std::int64_t unixNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

NtfyTestServer::NtfyTestServer() {
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listenFd_ < 0) throw std::runtime_error("socket failed");
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listenFd_, 64) != 0) {
        ::close(listenFd_);
        throw std::runtime_error("bind/listen on loopback failed");
    }
    socklen_t len = sizeof addr;
    ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    if (::pipe2(wakeFds_, O_CLOEXEC) != 0) {
        ::close(listenFd_);
        throw std::runtime_error("pipe failed");
    }
    idSeed_ = std::random_device{}();
    acceptor_ = std::thread([this] { acceptLoop(); });
}

NtfyTestServer::~NtfyTestServer() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    const char byte = 'x';
    [[maybe_unused]] const ssize_t n = ::write(wakeFds_[1], &byte, 1);
    acceptor_.join();
    for (auto& t : connections_) t.join();
    ::close(listenFd_);
    ::close(wakeFds_[0]);
    ::close(wakeFds_[1]);
}

std::string NtfyTestServer::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

void NtfyTestServer::answerWith(std::optional<int> status) {
    std::lock_guard lock(mutex_);
    forcedStatus_ = status;
}

void NtfyTestServer::setStalled(bool stalled) {
    {
        std::lock_guard lock(mutex_);
        stalled_ = stalled;
    }
    changed_.notify_all();
}

void NtfyTestServer::setIgnoreSince(bool ignore) {
    std::lock_guard lock(mutex_);
    ignoreSince_ = ignore;
}

std::string NtfyTestServer::publish(const std::string& topic, const std::string& message,
                                    std::optional<std::int64_t> time) {
    std::lock_guard lock(mutex_);
    return store(topic, json{{"message", message}}, time)["id"];
}

std::vector<json> NtfyTestServer::messages(const std::string& topic) const {
    std::lock_guard lock(mutex_);
    std::vector<json> out;
    for (const auto& m : messages_) {
        if (m["topic"] == topic) out.push_back(m);
    }
    return out;
}

void NtfyTestServer::requireToken(std::optional<std::string> token) {
    std::lock_guard lock(mutex_);
    requiredToken_ = std::move(token);
}

std::vector<NtfyTestServer::Request> NtfyTestServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

bool NtfyTestServer::waitForRequests(std::size_t count, double seconds) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds),
                             [&] { return requests_.size() >= count; });
}

// Caller holds mutex_.
std::string NtfyTestServer::newID() {
    static constexpr std::string_view chars = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::mt19937_64 gen(idSeed_++);
    for (;;) {
        std::string id;
        for (int i = 0; i < 12; ++i) id += chars[gen() % chars.size()];
        bool taken = false;
        for (const auto& m : messages_) taken = taken || m["id"] == id;
        if (!taken) return id;
    }
}

// Caller holds mutex_.
json NtfyTestServer::store(const std::string& topic, json message, std::optional<std::int64_t> time) {
    const std::int64_t t = time.value_or(unixNow());
    message["id"] = newID();
    message["time"] = t;
    message["expires"] = t + 12 * 3600;
    message["event"] = "message";
    message["topic"] = topic;
    messages_.push_back(message);
    return message;
}

void NtfyTestServer::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakeFds_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents) return;
        if (!(fds[0].revents & POLLIN)) continue;
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        {
            std::lock_guard lock(mutex_);
            if (stopping_ || openConnections_ >= maxConnections) {
                ::close(fd);
                continue;
            }
            ++openConnections_;
        }
        connections_.emplace_back([this, fd] {
            serve(fd);
            ::close(fd);
            std::lock_guard lock(mutex_);
            --openConnections_;
        });
    }
}

void NtfyTestServer::serve(int fd) {
    timeval tv{5, 0};  // a silent client cannot hold a connection thread for long
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);

    std::string data;
    std::size_t headerEnd = std::string::npos;
    char buf[4096];
    while ((headerEnd = data.find("\r\n\r\n")) == std::string::npos) {
        if (data.size() > kMaxHeader) return;
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return;
        data.append(buf, static_cast<std::size_t>(n));
    }
    const std::string head = data.substr(0, headerEnd);
    std::string body = data.substr(headerEnd + 4);

    Request request;
    const std::size_t sp1 = head.find(' ');
    const std::size_t sp2 = head.find(' ', sp1 + 1);
    if (sp1 == std::string::npos || sp2 == std::string::npos) return;
    request.method = head.substr(0, sp1);
    request.target = head.substr(sp1 + 1, sp2 - sp1 - 1);

    std::size_t contentLength = 0;
    std::size_t pos = head.find("\r\n");
    while (pos != std::string::npos && pos < head.size()) {
        const std::size_t next = head.find("\r\n", pos + 2);
        std::string line = head.substr(pos + 2, (next == std::string::npos ? head.size() : next) - pos - 2);
        for (std::size_t i = 0; i < line.size() && line[i] != ':'; ++i) line[i] = static_cast<char>(std::tolower(line[i]));
        if (line.rfind("content-length:", 0) == 0) contentLength = std::stoul(line.substr(15));
        if (line.rfind("authorization:", 0) == 0) {
            const std::size_t value = line.find_first_not_of(' ', 14);
            request.authorization = value == std::string::npos ? "" : line.substr(value);
        }
        pos = next;
    }
    if (contentLength > kMaxBody) return;
    while (body.size() < contentLength) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return;
        body.append(buf, static_cast<std::size_t>(n));
    }
    body.resize(contentLength);
    request.body = body;

    Answer reply;
    {
        std::unique_lock lock(mutex_);
        requests_.push_back(request);
        changed_.notify_all();
        changed_.wait(lock, [&] { return stopping_ || !stalled_; });
        if (stopping_) return;
        if (forcedStatus_) {
            reply.status = *forcedStatus_;
            reply.body = errorBody(reply.status, reply.status * 100 + 1, "forced by the test");
        } else if (requiredToken_ && request.authorization != "Bearer " + *requiredToken_) {
            reply.status = 401;
            reply.body = errorBody(401, 40101, "unauthorized");
        } else {
            reply = answer(request);
        }
    }
    std::string out = "HTTP/1.1 " + std::to_string(reply.status) + " " + reason(reply.status) + "\r\n";
    out += reply.stream ? "Content-Type: application/x-ndjson; charset=utf-8\r\n"
                        : "Content-Type: application/json\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\n";
    out += "Connection: close\r\n\r\n" + reply.body;
    sendAll(fd, out);
    ::shutdown(fd, SHUT_WR);
}

// Caller holds mutex_.
NtfyTestServer::Answer NtfyTestServer::answer(const Request& request) {
    const std::size_t q = request.target.find('?');
    const std::string path = request.target.substr(0, q);
    const std::string query = q == std::string::npos ? "" : request.target.substr(q + 1);

    if (request.method == "POST" || request.method == "PUT") {
        if (path == "/") return publishJSON(request.body);
        const std::string topic = path.substr(1);
        if (!validTopic(topic)) return {404, errorBody(404, 40401, "page not found")};
        return {200, store(topic, json{{"message", request.body}}, std::nullopt).dump() + "\n"};
    }
    if (request.method == "GET") {
        const std::string suffix = "/json";
        if (path.size() > suffix.size() + 1 && path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0) {
            const std::string topic = path.substr(1, path.size() - suffix.size() - 1);
            if (validTopic(topic)) return poll(topic, query);
        }
    }
    return {404, errorBody(404, 40401, "page not found")};
}

// Caller holds mutex_.
NtfyTestServer::Answer NtfyTestServer::publishJSON(const std::string& body) {
    const json in = json::parse(body, nullptr, false);
    if (!in.is_object()) return {400, errorBody(400, 40017, "invalid request: request body must be message JSON")};
    const auto topic = in.find("topic");
    if (topic == in.end() || !topic->is_string() || !validTopic(topic->get<std::string>())) {
        return {400, errorBody(400, 40009, "invalid request: topic invalid")};
    }
    const auto actions = in.find("actions");
    if (actions != in.end() && (!actions->is_array() || actions->size() > 3)) {
        return {400, errorBody(400, 40018, "invalid request: actions invalid, only 3 actions allowed")};
    }
    json message = json::object();
    for (const char* key : {"title", "message", "tags", "priority", "actions", "click"}) {
        if (in.contains(key)) message[key] = in[key];
    }
    if (!message.contains("message")) message["message"] = "triggered";
    return {200, store(topic->get<std::string>(), message, std::nullopt).dump() + "\n"};
}

// Caller holds mutex_.
NtfyTestServer::Answer NtfyTestServer::poll(const std::string& topic, const std::string& query) {
    const auto params = parseQuery(query);
    const auto pollParam = params.find("poll");
    if (pollParam == params.end() || (pollParam->second != "1" && pollParam->second != "true")) {
        return {400, errorBody(400, 40000, "this test server answers polls only")};
    }
    const auto sinceParam = params.find("since");
    const std::string since = sinceParam == params.end() ? "all" : sinceParam->second;

    std::vector<const json*> ofTopic;
    for (const auto& m : messages_) {
        if (m["topic"] == topic) ofTopic.push_back(&m);
    }
    std::vector<const json*> chosen;
    static const std::regex unixTime("^[0-9]{1,12}$");
    static const std::regex messageID("^[A-Za-z0-9]{12}$");
    if (since == "all" || ignoreSince_) {
        chosen = ofTopic;
    } else if (std::regex_match(since, unixTime)) {
        const std::int64_t t = std::stoll(since);
        for (const auto* m : ofTopic) {
            if ((*m)["time"].get<std::int64_t>() >= t) chosen.push_back(m);
        }
    } else if (std::regex_match(since, messageID)) {
        // Messages after the one named; an id the cache no longer knows gives them all.
        bool after = true;
        for (const auto* m : ofTopic) after = after && (*m)["id"] != since;
        for (const auto* m : ofTopic) {
            if (after) chosen.push_back(m);
            if ((*m)["id"] == since) after = true;
        }
    } else {
        return {400, errorBody(400, 40008, "invalid request: since parameter invalid")};
    }
    std::string lines;
    for (const auto* m : chosen) lines += m->dump() + "\n";
    return {200, lines, /*stream=*/true};
}

}  // namespace duskwell::testing
