// HttpClient on libcurl's multi interface: one worker thread drives every transfer, so a
// stalled server never holds up another request and nothing blocks the caller.
//
// libcurl is not linked: it is opened with dlopen when the first request is sent. An idle
// daemon never makes a request, and libcurl's TLS stack (libcrypto, gnutls, krb5, ...) would
// otherwise be mapped and relocated at start, about half of duskwelld's resident memory.
// <curl/curl.h> is still included for its types and constants.
#include <curl/curl.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "phone/http_client.h"

namespace duskwell {

std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& library);

namespace {

constexpr const char* defaultLibrary = "libcurl.so.4";
constexpr const char* unavailable = "HTTP is not available (libcurl missing)";

// The libcurl functions this client calls, resolved from the opened library.
struct CurlApi {
    decltype(&::curl_global_init) global_init;
    decltype(&::curl_easy_init) easy_init;
    decltype(&::curl_easy_setopt) easy_setopt;
    decltype(&::curl_easy_getinfo) easy_getinfo;
    decltype(&::curl_easy_cleanup) easy_cleanup;
    decltype(&::curl_easy_strerror) easy_strerror;
    decltype(&::curl_slist_append) slist_append;
    decltype(&::curl_slist_free_all) slist_free_all;
    decltype(&::curl_multi_init) multi_init;
    decltype(&::curl_multi_add_handle) multi_add_handle;
    decltype(&::curl_multi_remove_handle) multi_remove_handle;
    decltype(&::curl_multi_perform) multi_perform;
    decltype(&::curl_multi_info_read) multi_info_read;
    decltype(&::curl_multi_poll) multi_poll;
    decltype(&::curl_multi_wakeup) multi_wakeup;
    decltype(&::curl_multi_cleanup) multi_cleanup;

    // Opens `library` once per process (later calls answer the same table, or nothing again
    // when it could not be opened) and runs curl_global_init. Thread-safe. The library is
    // never closed: libcrypto pins itself anyway, and a client may be made again later.
    static const CurlApi* shared(const std::string& library) {
        static std::mutex mutex;
        static std::map<std::string, std::unique_ptr<const CurlApi>> loaded;
        std::lock_guard lock(mutex);
        auto [it, fresh] = loaded.try_emplace(library);
        if (fresh) it->second = open(library);
        return it->second.get();
    }

private:
    static std::unique_ptr<const CurlApi> open(const std::string& library) {
        void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) return nullptr;
        auto api = std::make_unique<CurlApi>();
        bool complete = true;
        auto resolve = [&](auto& fn, const char* name) {
            fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(::dlsym(handle, name));
            if (!fn) complete = false;
        };
        resolve(api->global_init, "curl_global_init");
        resolve(api->easy_init, "curl_easy_init");
        resolve(api->easy_setopt, "curl_easy_setopt");
        resolve(api->easy_getinfo, "curl_easy_getinfo");
        resolve(api->easy_cleanup, "curl_easy_cleanup");
        resolve(api->easy_strerror, "curl_easy_strerror");
        resolve(api->slist_append, "curl_slist_append");
        resolve(api->slist_free_all, "curl_slist_free_all");
        resolve(api->multi_init, "curl_multi_init");
        resolve(api->multi_add_handle, "curl_multi_add_handle");
        resolve(api->multi_remove_handle, "curl_multi_remove_handle");
        resolve(api->multi_perform, "curl_multi_perform");
        resolve(api->multi_info_read, "curl_multi_info_read");
        resolve(api->multi_poll, "curl_multi_poll");
        resolve(api->multi_wakeup, "curl_multi_wakeup");
        resolve(api->multi_cleanup, "curl_multi_cleanup");
        // A libcurl older than 7.68 lacks the poll/wakeup pair: treat it as missing.
        if (!complete) {
            ::dlclose(handle);
            return nullptr;
        }
        // After a failed global init the library may hold state; it stays open, unused.
        if (api->global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return nullptr;
        return api;
    }
};

// Wording of the common transport failures, close to what macOS says for the same cases.
std::string describe(const CurlApi& curl, CURLcode code, const char* detail) {
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
    return curl.easy_strerror(code);
}

size_t collect(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

struct Transfer {
    HttpRequest request;
    std::function<void(HttpResponse)> completion;
    CURL* easy = nullptr;            // owned; freed by the worker through the library
    curl_slist* headers = nullptr;   // owned, likewise
    std::string body;
    char error[CURL_ERROR_SIZE] = {};
};

class CurlHttpClient final : public HttpClient {
public:
    explicit CurlHttpClient(std::string library) : library_(std::move(library)) {}

    // Transfers still running are abandoned: their completions never run.
    ~CurlHttpClient() override {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        if (!worker_.joinable()) return;  // never sent anything: nothing was loaded
        wake();
        worker_.join();
        if (!multi_) return;
        for (auto& t : active_) {
            curl_->multi_remove_handle(multi_, t->easy);
            release(*t);
        }
        active_.clear();
        for (auto& t : incoming_) release(*t);
        curl_->multi_cleanup(multi_);
    }

    // The worker thread, and with it libcurl, starts with the first request.
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        auto t = std::make_unique<Transfer>();
        t->request = std::move(request);
        t->completion = std::move(completion);
        {
            std::lock_guard lock(mutex_);
            incoming_.push_back(std::move(t));
            if (!worker_.joinable()) {
                worker_ = std::thread([this] { run(); });
                return;  // it looks at incoming_ before it first waits
            }
        }
        wake();
    }

private:
    // Any thread. Before libcurl is up the worker waits on the condition variable; after, in
    // curl_multi_poll. multi_ is set once, under the mutex, and lives until the destructor.
    void wake() {
        CURLM* multi = nullptr;
        const CurlApi* curl = nullptr;
        {
            std::lock_guard lock(mutex_);
            multi = multi_;
            curl = curl_;
        }
        if (multi) curl->multi_wakeup(multi);
        else changed_.notify_all();
    }

    // Worker thread only.
    void release(Transfer& t) {
        if (t.easy) curl_->easy_cleanup(t.easy);
        if (t.headers) curl_->slist_free_all(t.headers);
        t.easy = nullptr;
        t.headers = nullptr;
    }

    void start(std::unique_ptr<Transfer> t) {
        const CurlApi& curl = *curl_;
        CURL* e = curl.easy_init();
        if (!e) {
            t->completion(HttpResponse{std::nullopt, {}, std::string("Could not start the request.")});
            return;
        }
        t->easy = e;
        const auto& r = t->request;
        curl.easy_setopt(e, CURLOPT_URL, r.url.c_str());
        curl.easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl.easy_setopt(e, CURLOPT_WRITEFUNCTION, &collect);
        curl.easy_setopt(e, CURLOPT_WRITEDATA, &t->body);
        curl.easy_setopt(e, CURLOPT_ERRORBUFFER, t->error);
        curl.easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        const long ms = std::lround(std::max(r.timeoutSeconds, 0.001) * 1000);
        curl.easy_setopt(e, CURLOPT_TIMEOUT_MS, ms);
        curl.easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, ms);
        curl.easy_setopt(e, CURLOPT_USERAGENT, "Duskwell");

        if (r.method == "GET") {
            curl.easy_setopt(e, CURLOPT_HTTPGET, 1L);
        } else if (r.method == "POST") {
            curl.easy_setopt(e, CURLOPT_POST, 1L);
        } else {
            curl.easy_setopt(e, CURLOPT_CUSTOMREQUEST, r.method.c_str());
        }
        if (r.body) {
            curl.easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body->size()));
            curl.easy_setopt(e, CURLOPT_POSTFIELDS, r.body->data());
        } else if (r.method == "POST") {
            curl.easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
            curl.easy_setopt(e, CURLOPT_POSTFIELDS, "");
        }
        // No "Expect: 100-continue" round trip before the body.
        curl_slist* list = curl.slist_append(nullptr, "Expect:");
        for (const auto& [name, value] : r.headers) {
            if (auto* grown = curl.slist_append(list, (name + ": " + value).c_str())) list = grown;
        }
        t->headers = list;
        curl.easy_setopt(e, CURLOPT_HTTPHEADER, list);
        curl.easy_setopt(e, CURLOPT_PRIVATE, t.get());

        if (curl.multi_add_handle(multi_, e) != CURLM_OK) {
            release(*t);
            t->completion(HttpResponse{std::nullopt, {}, std::string("Could not start the request.")});
            return;
        }
        active_.push_back(std::move(t));
    }

    void finish(CURL* e, CURLcode code) {
        const CurlApi& curl = *curl_;
        curl.multi_remove_handle(multi_, e);
        auto it = std::find_if(active_.begin(), active_.end(),
                               [e](const auto& t) { return t->easy == e; });
        if (it == active_.end()) return;
        std::unique_ptr<Transfer> t = std::move(*it);
        active_.erase(it);

        HttpResponse response;
        if (code == CURLE_OK) {
            long status = 0;
            curl.easy_getinfo(e, CURLINFO_RESPONSE_CODE, &status);
            response.status = static_cast<int>(status);
            response.body = std::move(t->body);
        } else {
            response.error = describe(curl, code, t->error);
        }
        auto completion = std::move(t->completion);
        release(*t);
        t.reset();
        completion(std::move(response));
    }

    // Without libcurl every request fails at once, still on this thread.
    void runUnavailable() {
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> fresh;
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return stopping_ || !incoming_.empty(); });
                if (stopping_) return;
                fresh.swap(incoming_);
            }
            for (auto& t : fresh) t->completion(HttpResponse{std::nullopt, {}, std::string(unavailable)});
        }
    }

    void run() {
        const CurlApi* curl = CurlApi::shared(library_);
        CURLM* multi = curl ? curl->multi_init() : nullptr;
        if (!multi) return runUnavailable();
        {
            std::lock_guard lock(mutex_);
            curl_ = curl;
            multi_ = multi;
        }
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> fresh;
            {
                std::lock_guard lock(mutex_);
                if (stopping_) return;
                fresh.swap(incoming_);
            }
            for (auto& t : fresh) start(std::move(t));

            int running = 0;
            curl_->multi_perform(multi, &running);
            int left = 0;
            while (CURLMsg* msg = curl_->multi_info_read(multi, &left)) {
                if (msg->msg == CURLMSG_DONE) finish(msg->easy_handle, msg->data.result);
            }
            curl_->multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }

    const std::string library_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    // Set together by the worker, once, under mutex_ (the worker itself reads them freely);
    // both stay null when libcurl could not be loaded.
    const CurlApi* curl_ = nullptr;
    CURLM* multi_ = nullptr;
    std::deque<std::unique_ptr<Transfer>> incoming_;      // guarded by mutex_
    std::vector<std::unique_ptr<Transfer>> active_;       // worker thread only
    std::thread worker_;                                  // started under mutex_ by send
};

}  // namespace

// The client over another copy of libcurl (tests: a library that is not there).
std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& library) {
    return std::make_unique<CurlHttpClient>(library);
}

std::unique_ptr<HttpClient> makePlatformHttpClient() { return makeCurlHttpClient(defaultLibrary); }

}  // namespace duskwell
