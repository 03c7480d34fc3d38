// The Linux HTTP client opens libcurl only while it has requests to make: against the
// loopback test server, with a short idle time, and with a library that is not there.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ntfy_test_server.h"
#include "phone/http_client.h"
#include "testing/fakes.h"

namespace duskwell {
// Defined in src/phone/http_client_linux.cpp.
std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& library,
                                               std::chrono::milliseconds idleUnload);
}  // namespace duskwell

namespace duskwell::testing {
namespace {

using namespace std::chrono_literals;

bool libcurlMapped() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("/libcurl.so") != std::string::npos) return true;
    }
    return false;
}

// Collects the completions of a client, with the thread each ran on.
class Completions {
public:
    std::function<void(HttpResponse)> next() {
        return [this](HttpResponse r) {
            std::lock_guard lock(mutex_);
            responses_.push_back(std::move(r));
            threads_.push_back(std::this_thread::get_id());
            arrived_.notify_all();
        };
    }
    bool waitFor(std::size_t count, std::chrono::milliseconds limit = 10s) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, limit, [&] { return responses_.size() >= count; });
    }
    std::vector<HttpResponse> responses() {
        std::lock_guard lock(mutex_);
        return responses_;
    }
    std::vector<std::thread::id> threads() {
        std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<HttpResponse> responses_;
    std::vector<std::thread::id> threads_;
};

HttpRequest get(const std::string& url, const char* method = "GET", std::optional<std::string> body = std::nullopt) {
    HttpRequest r;
    r.method = method;
    r.url = url;
    r.body = std::move(body);
    r.timeoutSeconds = 5;
    return r;
}

HttpRequest publish(const NtfyTestServer& server, const std::string& text) {
    return get(server.url() + "/loading", "POST", text);
}

TEST(HttpClientLoading, LibcurlIsOpenOnlyWhileThereIsWorkAndComesBackForTheNextRequest) {
    NtfyTestServer server;
    // Clients of earlier tests in this process must have given the library back as well.
    ASSERT_TRUE(testing::waitFor([] { return !libcurlMapped(); }, 3)) << "libcurl still open before the test";

    auto client = makeCurlHttpClient("libcurl.so.4", 1s);
    EXPECT_FALSE(libcurlMapped()) << "a client that has sent nothing must not open libcurl";

    Completions done;
    client->send(publish(server, "first"), done.next());
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_EQ(done.responses()[0].status, 200) << done.responses()[0].error.value_or("");
    EXPECT_TRUE(libcurlMapped()) << "closed before the idle time passed";

    EXPECT_TRUE(testing::waitFor([] { return !libcurlMapped(); }, 5)) << "libcurl stayed open while idle";

    // The same client opens it again for the next request.
    client->send(publish(server, "second"), done.next());
    ASSERT_TRUE(done.waitFor(2));
    EXPECT_EQ(done.responses()[1].status, 200) << done.responses()[1].error.value_or("");
    ASSERT_EQ(server.messages("loading").size(), 2u);
    EXPECT_EQ(server.messages("loading")[0].value("message", ""), "first");
    EXPECT_EQ(server.messages("loading")[1].value("message", ""), "second");
    EXPECT_TRUE(testing::waitFor([] { return !libcurlMapped(); }, 5));
}

TEST(HttpClientLoading, RequestsSentWhileTheLibraryIsBeingClosedAreNotLost) {
    NtfyTestServer server;
    // An idle time as short as the gaps between requests: many sends land just as the
    // worker decides to close, or while it is closed.
    auto client = makeCurlHttpClient("libcurl.so.4", 15ms);
    Completions done;
    const std::size_t count = 40;
    for (std::size_t i = 0; i < count; ++i) {
        client->send(publish(server, "n" + std::to_string(i)), done.next());
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + (i * 7) % 30));
    }
    ASSERT_TRUE(done.waitFor(count, 20s)) << "only " << done.responses().size() << " of " << count << " completed";
    for (const auto& r : done.responses()) EXPECT_EQ(r.status, 200) << r.error.value_or("");
    EXPECT_EQ(server.messages("loading").size(), count);
}

TEST(HttpClientLoading, ClientsShareTheLibraryAndTheLastOneClosesIt) {
    NtfyTestServer server;
    auto quick = makeCurlHttpClient("libcurl.so.4", 100ms);
    auto slow = makeCurlHttpClient("libcurl.so.4", 60s);
    Completions done;
    quick->send(get(server.url() + "/loading/json?poll=1&since=all"), done.next());
    slow->send(get(server.url() + "/loading/json?poll=1&since=all"), done.next());
    ASSERT_TRUE(done.waitFor(2));
    for (const auto& r : done.responses()) EXPECT_EQ(r.status, 200) << r.error.value_or("");

    // The quick client is idle long enough, but the slow one still uses the library.
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(libcurlMapped());
    quick->send(get(server.url() + "/loading/json?poll=1&since=all"), done.next());
    ASSERT_TRUE(done.waitFor(3));
    EXPECT_EQ(done.responses()[2].status, 200) << done.responses()[2].error.value_or("");

    slow.reset();  // its session ends with it
    EXPECT_TRUE(testing::waitFor([] { return !libcurlMapped(); }, 5));
}

TEST(HttpClientLoading, DestroyingTheClientMidTransferAbandonsItAndClosesTheLibrary) {
    NtfyTestServer server;
    server.setStalled(true);
    std::atomic<int> called{0};
    {
        auto client = makeCurlHttpClient("libcurl.so.4", 60s);
        HttpRequest r = publish(server, "stalled");
        r.timeoutSeconds = 30;
        client->send(r, [&](HttpResponse) { ++called; });
        ASSERT_TRUE(server.waitForRequests(1, 5));
        const auto before = std::chrono::steady_clock::now();
        client.reset();
        EXPECT_LT(std::chrono::steady_clock::now() - before, 3s) << "the destructor waited for the stalled request";
    }
    EXPECT_EQ(called.load(), 0) << "an abandoned transfer's completion ran";
    EXPECT_TRUE(testing::waitFor([] { return !libcurlMapped(); }, 5));
    server.setStalled(false);
}

TEST(HttpClientLoading, WithoutLibcurlEveryRequestFailsWithTheUnavailableMessage) {
    auto client = makeCurlHttpClient("libduskwell-no-such-curl.so.4", 100ms);
    Completions done;
    client->send(get("http://127.0.0.1:9/a"), done.next());
    client->send(get("http://127.0.0.1:9/b"), done.next());
    ASSERT_TRUE(done.waitFor(2));
    for (const auto& r : done.responses()) {
        EXPECT_FALSE(r.status.has_value());
        EXPECT_EQ(r.error, std::optional<std::string>("HTTP is not available (libcurl missing)"));
    }
    // Asynchronously, like every other answer: never on the sender's thread.
    for (const auto& id : done.threads()) EXPECT_NE(id, std::this_thread::get_id());

    // It keeps answering later requests too.
    client->send(get("http://127.0.0.1:9/c"), done.next());
    ASSERT_TRUE(done.waitFor(3));
    EXPECT_EQ(done.responses()[2].error, std::optional<std::string>("HTTP is not available (libcurl missing)"));
}

}  // namespace
}  // namespace duskwell::testing
