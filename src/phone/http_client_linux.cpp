// HttpClient on libcurl's multi interface: one worker thread drives every transfer, so a
// stalled server never holds up another request and nothing blocks the caller.
#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "phone/http_client.h"

namespace duskwell {
namespace {

// Wording of the common transport failures, close to what macOS says for the same cases.
std::string describe(CURLcode code, const char* detail) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT: return "The request timed out.";
        case CURLE_COULDNT_RESOLVE_HOST: return "A server with the specified hostname could not be found.";
        case CURLE_COULDNT_RESOLVE_PROXY: return "The proxy server could not be found.";
        case CURLE_COULDNT_CONNECT: return "Could not connect to the server.";
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
            return "A secure connection to the server could not be made.";
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
            return "The network connection was lost.";
        default: break;
    }
    if (detail && *detail) return detail;
    return curl_easy_strerror(code);
}

size_t collect(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

struct EasyDeleter { void operator()(CURL* e) const { curl_easy_cleanup(e); } };
struct ListDeleter { void operator()(curl_slist* l) const { curl_slist_free_all(l); } };

struct Transfer {
    HttpRequest request;
    std::function<void(HttpResponse)> completion;
    std::unique_ptr<CURL, EasyDeleter> easy;
    std::unique_ptr<curl_slist, ListDeleter> headers;
    std::string body;
    char error[CURL_ERROR_SIZE] = {};
};

class CurlHttpClient final : public HttpClient {
public:
    CurlHttpClient() {
        static std::once_flag once;
        std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        multi_ = curl_multi_init();
        worker_ = std::thread([this] { run(); });
    }

    // Transfers still running are abandoned: their completions never run.
    ~CurlHttpClient() override {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        curl_multi_wakeup(multi_);
        worker_.join();
        for (auto& t : active_) curl_multi_remove_handle(multi_, t->easy.get());
        active_.clear();
        curl_multi_cleanup(multi_);
    }

    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        auto t = std::make_unique<Transfer>();
        t->request = std::move(request);
        t->completion = std::move(completion);
        {
            std::lock_guard lock(mutex_);
            incoming_.push_back(std::move(t));
        }
        curl_multi_wakeup(multi_);
    }

private:
    // Worker thread only.
    void start(std::unique_ptr<Transfer> t) {
        CURL* e = curl_easy_init();
        if (!e) {
            t->completion(HttpResponse{std::nullopt, {}, std::string("Could not start the request.")});
            return;
        }
        t->easy.reset(e);
        const auto& r = t->request;
        curl_easy_setopt(e, CURLOPT_URL, r.url.c_str());
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &collect);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, &t->body);
        curl_easy_setopt(e, CURLOPT_ERRORBUFFER, t->error);
        curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        const long ms = std::lround(std::max(r.timeoutSeconds, 0.001) * 1000);
        curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, ms);
        curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, ms);
        curl_easy_setopt(e, CURLOPT_USERAGENT, "Duskwell");

        if (r.method == "GET") {
            curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
        } else if (r.method == "POST") {
            curl_easy_setopt(e, CURLOPT_POST, 1L);
        } else {
            curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, r.method.c_str());
        }
        if (r.body) {
            curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body->size()));
            curl_easy_setopt(e, CURLOPT_POSTFIELDS, r.body->data());
        } else if (r.method == "POST") {
            curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
            curl_easy_setopt(e, CURLOPT_POSTFIELDS, "");
        }
        // No "Expect: 100-continue" round trip before the body.
        curl_slist* list = curl_slist_append(nullptr, "Expect:");
        for (const auto& [name, value] : r.headers) {
            if (auto* grown = curl_slist_append(list, (name + ": " + value).c_str())) list = grown;
        }
        t->headers.reset(list);
        curl_easy_setopt(e, CURLOPT_HTTPHEADER, list);
        curl_easy_setopt(e, CURLOPT_PRIVATE, t.get());

        if (curl_multi_add_handle(multi_, e) != CURLM_OK) {
            t->completion(HttpResponse{std::nullopt, {}, std::string("Could not start the request.")});
            return;
        }
        active_.push_back(std::move(t));
    }

    void finish(CURL* e, CURLcode code) {
        curl_multi_remove_handle(multi_, e);
        auto it = std::find_if(active_.begin(), active_.end(),
                               [e](const auto& t) { return t->easy.get() == e; });
        if (it == active_.end()) return;
        std::unique_ptr<Transfer> t = std::move(*it);
        active_.erase(it);

        HttpResponse response;
        if (code == CURLE_OK) {
            long status = 0;
            curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
            response.status = static_cast<int>(status);
            response.body = std::move(t->body);
        } else {
            response.error = describe(code, t->error);
        }
        auto completion = std::move(t->completion);
        t.reset();
        completion(std::move(response));
    }

    void run() {
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> fresh;
            {
                std::lock_guard lock(mutex_);
                if (stopping_) return;
                fresh.swap(incoming_);
            }
            for (auto& t : fresh) start(std::move(t));

            int running = 0;
            curl_multi_perform(multi_, &running);
            int left = 0;
            while (CURLMsg* msg = curl_multi_info_read(multi_, &left)) {
                if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
            }
            curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
        }
    }

    CURLM* multi_ = nullptr;
    std::mutex mutex_;
    bool stopping_ = false;
    std::deque<std::unique_ptr<Transfer>> incoming_;      // guarded by mutex_
    std::vector<std::unique_ptr<Transfer>> active_;       // worker thread only
    std::thread worker_;
};

}  // namespace

std::unique_ptr<HttpClient> makePlatformHttpClient() { return std::make_unique<CurlHttpClient>(); }

}  // namespace duskwell
