#pragma once
#include <functional>
#include <memory>
#include <map>
#include <optional>
#include <string>

namespace duskwell {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::optional<std::string> body;
    std::map<std::string, std::string> headers;
    double timeoutSeconds = 10;
};

struct HttpResponse {
    std::optional<int> status;         // nothing when no HTTP answer arrived
    std::string body;
    std::optional<std::string> error;  // the transport's readable description
};

// Asynchronous HTTP: returns at once; `completion` runs later on any thread. No retries.
class HttpClient {
public:
    virtual ~HttpClient() = default;
    virtual void send(HttpRequest request, std::function<void(HttpResponse)> completion) = 0;
};

// The platform's client (libcurl on Linux, NSURLSession on macOS).
std::unique_ptr<HttpClient> makePlatformHttpClient();

}  // namespace duskwell
