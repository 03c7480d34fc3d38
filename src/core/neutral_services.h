#pragma once
#include <string>

#include "agents/process_table.h"
#include "core/dispatcher.h"
#include "phone/http_client.h"

namespace duskwell {

// Stands in when a build has no HTTP client: every request fails, reported on the main queue.
class UnavailableHttpClient final : public HttpClient {
public:
    explicit UnavailableHttpClient(Dispatcher& main) : main_(main) {}
    void send(HttpRequest, std::function<void(HttpResponse)> completion) override {
        if (!completion) return;
        main_.post([completion = std::move(completion)] {
            completion(HttpResponse{std::nullopt, {}, std::string("no HTTP client in this build")});
        });
    }

private:
    Dispatcher& main_;
};

// Stands in when a build has no process source: no processes, no GPU reading.
class EmptyProcessSource final : public ProcessSource {
public:
    ProcessTable sample() override { return {}; }
};

}  // namespace duskwell
