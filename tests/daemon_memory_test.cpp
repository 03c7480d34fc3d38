// duskwelld's idle footprint: libcurl (and the TLS stack behind it) is not loaded until the
// first request, which keeps an idle daemon well inside its memory budget; the update check
// still goes out and loads it on demand.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>

#include "daemon_fixture.h"
#include "ntfy_test_server.h"

namespace duskwell::itest {
namespace {

bool mapsLibcurl(int pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("/libcurl.so") != std::string::npos) return true;
    }
    return false;
}

// VmRSS from /proc/<pid>/status, in kB; nothing when unreadable.
std::optional<long> residentKB(int pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    }
    return std::nullopt;
}

// Under AddressSanitizer the resident size is mostly shadow memory and redzones.
#if defined(__SANITIZE_ADDRESS__)
#define DUSKWELL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DUSKWELL_ASAN 1
#endif
#endif
#ifdef DUSKWELL_ASAN
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

TEST(DaemonMemory, IdleDaemonStaysUnderTwelveMegabytesUntilTheUpdateCheckLoadsHttp) {
    if (kSanitized) GTEST_SKIP() << "memory figures mean nothing in a sanitizer build";
    testing::NtfyTestServer feed;
    DaemonHome home;
    EnvScope env;
    env.set("DUSKWELL_TEST_FEED", feed.url() + "/version.json");
    auto daemon = home.startDaemon({"--log"});
    ASSERT_TRUE(daemon->running()) << testing::readFile(home.daemonLog()).value_or("");

    std::this_thread::sleep_for(std::chrono::seconds(3));
    ASSERT_TRUE(daemon->running());
    EXPECT_FALSE(mapsLibcurl(daemon->pid())) << "libcurl loaded before any request";
    const auto rss = residentKB(daemon->pid());
    ASSERT_TRUE(rss.has_value());
    EXPECT_LT(*rss, 12 * 1024) << "idle VmRSS " << *rss << " kB";

    // The update check (tick 10) is the first request: it still reaches the feed.
    ASSERT_TRUE(feed.waitForRequests(1, 20)) << testing::readFile(home.daemonLog()).value_or("");
    const auto request = feed.requests().front();
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/version.json");
    EXPECT_TRUE(mapsLibcurl(daemon->pid()));
}

}  // namespace
}  // namespace duskwell::itest
