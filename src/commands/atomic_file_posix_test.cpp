#include "commands/atomic_file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "core/json_file_settings.h"
#include "integration/agent_integration.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TestEnvironment;
using testing::writeFile;

unsigned modeOf(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// Watches a folder and stats every file the moment it appears: what another user's process
// polling the folder would see.
class ExposureWatcher {
public:
    explicit ExposureWatcher(const std::string& folder) : folder_(folder) {
        fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        inotify_add_watch(fd_, folder.c_str(), IN_CREATE);
        thread_ = std::thread([this] { run(); });
    }
    ~ExposureWatcher() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }
    int created() const { return created_; }
    int exposed() const { return exposed_; }

private:
    void run() {
        alignas(inotify_event) char buffer[64 * 1024];
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 5) <= 0) continue;
            const ssize_t n = ::read(fd_, buffer, sizeof buffer);
            for (ssize_t at = 0; at < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                if (event->len > 0) {
                    ++created_;
                    const unsigned mode = modeOf(folder_ + "/" + event->name);
                    if (mode & 077) ++exposed_;
                }
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }
    std::string folder_;
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::atomic<int> created_{0}, exposed_{0};
    std::thread thread_;
};

TEST(PrivateFiles, NoFileOnItsWayInIsEverReadableByOthers) {
    TestEnvironment env;
    const std::string home = env.home.path();
    const mode_t oldMask = ::umask(022);
    fs::create_directories(home + "/.claude");
    fs::create_directories(home + "/bundle");
    writeFile(home + "/bundle/duskwell-hook", "#!/bin/sh\n");
    env.platform.resources["duskwell-hook"] = home + "/bundle/duskwell-hook";
    const std::string secret(256 * 1024, 's');  // a long write keeps a wrong mode visible longer

    struct Writer {
        const char* what;
        std::string folder;
        std::function<void(int)> write;
    };
    const std::vector<Writer> writers = {
        {"Duskwell's own settings", home + "/.duskwell",
         [&](int i) {
             JsonFileSettings settings(home + "/.duskwell/settings.json");
             settings.setString("phone.secret", secret + std::to_string(i));
         }},
        {"an agent's settings", home + "/.claude",
         [&](int i) {
             writeFile(home + "/.claude/settings.json", R"({"env": {"TOKEN": ")" + secret + std::to_string(i) + "\"}}");
             ::chmod((home + "/.claude/settings.json").c_str(), 0600);
             ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
         }},
    };
    for (const auto& writer : writers) {
        fs::create_directories(writer.folder);
        writer.write(-1);  // the test's own first file is made with the umask; watch the rewrites
        ExposureWatcher watcher(writer.folder);
        for (int i = 0; i < 60; ++i) writer.write(i);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_GT(watcher.created(), 0) << writer.what;
        EXPECT_EQ(watcher.exposed(), 0) << writer.what << ": files seen readable by group or others";
    }
    EXPECT_EQ(modeOf(home + "/.duskwell/settings.json"), 0600u);
    EXPECT_EQ(modeOf(home + "/.claude/settings.json"), 0600u);
    EXPECT_EQ(modeOf(home + "/.claude/settings.json.duskwell-backup"), 0600u);
    ::umask(oldMask);
}

TEST(PrivateFiles, FoldersWeCreateAreOwnerOnly) {
    TestEnvironment env;
    const mode_t oldMask = ::umask(022);
    const std::string base = env.home.path() + "/.duskwell";
    ASSERT_EQ(createPrivateDirectories(base + "/sessions/"), std::nullopt);
    EXPECT_EQ(modeOf(base), 0700u);
    EXPECT_EQ(modeOf(base + "/sessions"), 0700u);
    EXPECT_EQ(createPrivateDirectories(base), std::nullopt) << "an existing folder is fine";
    writeFile(env.home.path() + "/file", "x");
    EXPECT_NE(createPrivateDirectories(env.home.path() + "/file/sub"), std::nullopt);
    ::umask(oldMask);
}

TEST(PrivateFiles, ConcurrentConnectsEachInstallTheHook) {
    TestEnvironment env;
    const std::string home = env.home.path();
    fs::create_directories(home + "/bundle");
    writeFile(home + "/bundle/duskwell-hook", std::string(512 * 1024, 'h'));
    env.platform.resources["duskwell-hook"] = home + "/bundle/duskwell-hook";
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i)
                if (AgentIntegration::installScript()) ++failures;
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(readFile(home + "/.duskwell/hook")->size(), 512u * 1024u);
    EXPECT_EQ(modeOf(home + "/.duskwell/hook"), 0755u);
    int leftovers = 0;
    for (const auto& e : fs::directory_iterator(home + "/.duskwell"))
        if (e.path().filename().string().find("tmp") != std::string::npos) ++leftovers;
    EXPECT_EQ(leftovers, 0);
}

TEST(PrivateFiles, RootWorkingInAUsersHomeLeavesEverythingToTheUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    TestEnvironment env;
    const std::string home = env.home.path();
    const uid_t user = 65534;
    fs::create_directories(home + "/.claude");
    fs::create_directories(home + "/bundle");
    writeFile(home + "/bundle/duskwell-hook", "#!/bin/sh\n");
    env.platform.resources["duskwell-hook"] = home + "/bundle/duskwell-hook";
    writeFile(home + "/.claude/settings.json", R"({"model": "opus"})");
    ::chmod((home + "/.claude/settings.json").c_str(), 0640);
    for (const auto& path : {home, home + "/.claude", home + "/.claude/settings.json"})
        ASSERT_EQ(::chown(path.c_str(), user, user), 0);

    ASSERT_EQ(AgentIntegration::install(AgentKind::claude), std::nullopt);
    for (const auto& path : {home + "/.claude/settings.json", home + "/.claude/settings.json.duskwell-backup",
                             home + "/.duskwell", home + "/.duskwell/sessions", home + "/.duskwell/hook"}) {
        struct stat st {};
        ASSERT_EQ(::stat(path.c_str(), &st), 0) << path;
        EXPECT_EQ(st.st_uid, user) << path;
    }
    EXPECT_EQ(modeOf(home + "/.claude/settings.json"), 0640u) << "the user's mode is kept";
}

}  // namespace
}  // namespace duskwell
