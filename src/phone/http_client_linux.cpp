// HttpClient on libcurl's multi interface: one worker thread drives every transfer, so a
// stalled server never holds up another request and nothing blocks the caller.
//
// libcurl is not linked: it is opened with dlopen when there is a request to make and closed
// again after a minute without one. An idle daemon makes one request (the update check) every
// six hours, and libcurl's TLS stack (libcrypto, gnutls, krb5, ...) mapped and relocated is
// about two thirds of duskwelld's resident memory. <curl/curl.h> gives the types and constants.
#include <curl/curl.h>
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "phone/http_client.h"

namespace duskwell {

// The client over the named libcurl, given back after `idleUnload` without a transfer.
// makePlatformHttpClient uses "libcurl.so.4" and a minute; tests use others.
std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& library,
                                               std::chrono::milliseconds idleUnload);

namespace {

constexpr const char* defaultLibrary = "libcurl.so.4";
constexpr const char* unavailable = "HTTP is not available (libcurl missing)";
// Threads libcurl starts (its resolver) inherit the name of the worker that started them.
constexpr const char* workerName = "duskwell-http";
// A client unloads libcurl after this long without a transfer. Longer than the phone
// channel's poll interval, so an enabled channel keeps it loaded between polls.
constexpr std::chrono::milliseconds defaultIdleUnload{60'000};

// The libcurl functions this client calls, resolved from the opened library.
struct CurlApi {
    decltype(&::curl_global_init) global_init;
    decltype(&::curl_global_cleanup) global_cleanup;
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
};

// Threads of this process named `workerName`: the workers themselves and any resolver
// thread libcurl left running detached after a transfer ended mid-lookup.
int namedThreads() {
    int count = 0;
    std::error_code ec;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", ec)) {
        std::ifstream in(task.path() / "comm");
        std::string name;
        if (std::getline(in, name) && name == workerName) ++count;
    }
    return count;
}

// The process-wide use of each library: opened (and curl_global_init run) when its first
// user arrives, closed again when the last one leaves. Thread-safe.
class CurlLibrary {
public:
    // Each worker counts itself while it runs (after naming itself, until just before it ends).
    static void workerStarted() {
        std::lock_guard lock(mutex());
        ++workers();
    }
    static void workerEnded() {
        std::lock_guard lock(mutex());
        --workers();
    }

    // The functions, or nothing when the library is missing or too old (< 7.68: no
    // poll/wakeup pair). Every successful acquire is matched by one release.
    static const CurlApi* acquire(const std::string& library) {
        std::lock_guard lock(mutex());
        Entry& e = entries()[library];
        if (!e.handle && !open(library, e)) return nullptr;
        ++e.users;
        return &e.api;
    }

    // True when closing now is safe: no resolver thread that libcurl left running detached
    // (after a transfer ended mid-lookup) may still be executing its code.
    static bool quiet() {
        std::lock_guard lock(mutex());
        return namedThreads() <= workers();
    }

    // Gives up one use; the last one closes the library. If a detached resolver thread
    // appeared meanwhile, the library stays open (unused) for the next user instead.
    static void release(const std::string& library) {
        std::lock_guard lock(mutex());
        Entry& e = entries()[library];
        if (--e.users > 0 || namedThreads() > workers()) return;
        e.api.global_cleanup();
        ::dlclose(e.handle);  // libcrypto and p11-kit pin themselves; the rest is unmapped
        e.handle = nullptr;
    }

private:
    struct Entry {
        void* handle = nullptr;
        CurlApi api{};
        int users = 0;
    };

    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static std::map<std::string, Entry>& entries() {
        static std::map<std::string, Entry> e;
        return e;
    }
    static int& workers() {
        static int n = 0;
        return n;
    }

    static bool open(const std::string& library, Entry& e) {
        void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) return false;
        CurlApi api{};
        bool complete = true;
        auto resolve = [&](auto& fn, const char* name) {
            fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(::dlsym(handle, name));
            if (!fn) complete = false;
        };
        resolve(api.global_init, "curl_global_init");
        resolve(api.global_cleanup, "curl_global_cleanup");
        resolve(api.easy_init, "curl_easy_init");
        resolve(api.easy_setopt, "curl_easy_setopt");
        resolve(api.easy_getinfo, "curl_easy_getinfo");
        resolve(api.easy_cleanup, "curl_easy_cleanup");
        resolve(api.easy_strerror, "curl_easy_strerror");
        resolve(api.slist_append, "curl_slist_append");
        resolve(api.slist_free_all, "curl_slist_free_all");
        resolve(api.multi_init, "curl_multi_init");
        resolve(api.multi_add_handle, "curl_multi_add_handle");
        resolve(api.multi_remove_handle, "curl_multi_remove_handle");
        resolve(api.multi_perform, "curl_multi_perform");
        resolve(api.multi_info_read, "curl_multi_info_read");
        resolve(api.multi_poll, "curl_multi_poll");
        resolve(api.multi_wakeup, "curl_multi_wakeup");
        resolve(api.multi_cleanup, "curl_multi_cleanup");
        if (!complete || api.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            ::dlclose(handle);
            return false;
        }
        e.handle = handle;
        e.api = api;
        return true;
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
    CurlHttpClient(std::string library, std::chrono::milliseconds idleUnload)
        : library_(std::move(library)), idleUnload_(idleUnload) {}

    // Transfers still running are abandoned: their completions never run.
    ~CurlHttpClient() override {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            if (multi_) curl_->multi_wakeup(multi_);
        }
        changed_.notify_all();
        if (worker_.joinable()) worker_.join();
    }

    // The worker thread starts with the first request; it loads libcurl when there is work.
    void send(HttpRequest request, std::function<void(HttpResponse)> completion) override {
        auto t = std::make_unique<Transfer>();
        t->request = std::move(request);
        t->completion = std::move(completion);
        {
            std::lock_guard lock(mutex_);
            incoming_.push_back(std::move(t));
            if (!worker_.joinable()) {
                worker_ = std::thread([this] { run(); });
                return;
            }
            // Under the mutex: the worker clears multi_ under it before cleaning it up.
            if (multi_) {
                curl_->multi_wakeup(multi_);
                return;
            }
        }
        changed_.notify_all();
    }

private:
    // Everything below runs on the worker thread.

    void run() {
        ::pthread_setname_np(::pthread_self(), workerName);
        CurlLibrary::workerStarted();
        for (;;) {
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return stopping_ || !incoming_.empty(); });
                if (stopping_) break;
            }
            const CurlApi* curl = CurlLibrary::acquire(library_);
            CURLM* multi = curl ? curl->multi_init() : nullptr;
            if (!multi) {
                if (curl) CurlLibrary::release(library_);
                failWaiting();
                continue;
            }
            session(*curl, multi);
            CurlLibrary::release(library_);
            // What TLS allocated (the CA store, session buffers) is free now but still
            // resident in this thread's arena: hand the free pages back.
            ::malloc_trim(0);
        }
        CurlLibrary::workerEnded();
    }

    // Without libcurl every waiting request fails at once.
    void failWaiting() {
        std::deque<std::unique_ptr<Transfer>> fresh;
        {
            std::lock_guard lock(mutex_);
            fresh.swap(incoming_);
        }
        for (auto& t : fresh) t->completion(HttpResponse{std::nullopt, {}, std::string(unavailable)});
    }

    // Drives the transfers until the client stops, or until it has been idle for idleUnload_
    // and libcurl may be closed. Ends with `multi` cleaned up.
    void session(const CurlApi& curl, CURLM* multi) {
        {
            std::lock_guard lock(mutex_);
            curl_ = &curl;
            multi_ = multi;
        }
        const auto pollMs = static_cast<int>(std::clamp<long long>(idleUnload_.count(), 1, 1000));
        auto lastBusy = std::chrono::steady_clock::now();
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> fresh;
            bool leave = false;
            {
                std::lock_guard lock(mutex_);
                const bool idleLongEnough = active_.empty() && incoming_.empty() &&
                                            std::chrono::steady_clock::now() - lastBusy >= idleUnload_;
                leave = stopping_ || (idleLongEnough && CurlLibrary::quiet());
                if (leave) {
                    // From here on senders wake the condition variable, not this handle.
                    multi_ = nullptr;
                    curl_ = nullptr;
                } else {
                    fresh.swap(incoming_);
                }
            }
            if (leave) break;
            for (auto& t : fresh) start(curl, multi, std::move(t));

            int running = 0;
            curl.multi_perform(multi, &running);
            int left = 0;
            while (CURLMsg* msg = curl.multi_info_read(multi, &left)) {
                if (msg->msg == CURLMSG_DONE) finish(curl, multi, msg->easy_handle, msg->data.result);
            }
            if (!active_.empty() || !fresh.empty()) lastBusy = std::chrono::steady_clock::now();
            curl.multi_poll(multi, nullptr, 0, pollMs, nullptr);
        }
        // Only when stopping can transfers remain: they are abandoned.
        for (auto& t : active_) {
            curl.multi_remove_handle(multi, t->easy);
            release(curl, *t);
        }
        active_.clear();
        curl.multi_cleanup(multi);
    }

    void release(const CurlApi& curl, Transfer& t) {
        if (t.easy) curl.easy_cleanup(t.easy);
        if (t.headers) curl.slist_free_all(t.headers);
        t.easy = nullptr;
        t.headers = nullptr;
    }

    void start(const CurlApi& curl, CURLM* multi, std::unique_ptr<Transfer> t) {
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

        if (curl.multi_add_handle(multi, e) != CURLM_OK) {
            release(curl, *t);
            t->completion(HttpResponse{std::nullopt, {}, std::string("Could not start the request.")});
            return;
        }
        active_.push_back(std::move(t));
    }

    void finish(const CurlApi& curl, CURLM* multi, CURL* e, CURLcode code) {
        curl.multi_remove_handle(multi, e);
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
        release(curl, *t);
        t.reset();
        completion(std::move(response));
    }

    const std::string library_;
    const std::chrono::milliseconds idleUnload_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;                               // guarded by mutex_
    std::deque<std::unique_ptr<Transfer>> incoming_;      // guarded by mutex_
    // While a session runs: its library and multi handle, so that senders can wake it.
    const CurlApi* curl_ = nullptr;                       // guarded by mutex_
    CURLM* multi_ = nullptr;                              // guarded by mutex_
    std::vector<std::unique_ptr<Transfer>> active_;       // worker thread only
    std::thread worker_;                                  // started by the first send, under mutex_
};

}  // namespace

std::unique_ptr<HttpClient> makeCurlHttpClient(const std::string& library,
                                               std::chrono::milliseconds idleUnload) {
    return std::make_unique<CurlHttpClient>(library, idleUnload);
}

std::unique_ptr<HttpClient> makePlatformHttpClient() {
    return makeCurlHttpClient(defaultLibrary, defaultIdleUnload);
}

}  // namespace duskwell
