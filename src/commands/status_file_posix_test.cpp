// A status file in a folder we may not write: the old file stays, nothing is reported.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;

// Runs `body` as another user when we are root (root writes anywhere), else in-process.
// Answers what `body` answered.
int runUnprivileged(const std::function<int()>& body) {
    if (::geteuid() != 0) return body();
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(90);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 91;
}

TEST(StatusFilePermissions, AnUnwritableFolderKeepsTheOldFileAndReportsNothing) {
    testing::TestEnvironment env;
    AwakeController c;
    c.writeStatusFile();
    const auto old = testing::readFile(AppConfig::statusFile());
    ASSERT_TRUE(old);
    fs::permissions(env.home.path(), static_cast<fs::perms>(0755));
    fs::permissions(AppConfig::supportDir(), static_cast<fs::perms>(0555));

    const int result = runUnprivileged([&] {
        Locale::overrideForTesting(true);  // a new status text that would need a write
        try {
            c.writeStatusFile();
            c.writeStatusFile();
        } catch (...) {
            return 10;
        }
        if (testing::readFile(AppConfig::statusFile()) != old) return 11;
        if (c.lastMessage()) return 12;
        int entries = 0;
        for ([[maybe_unused]] const auto& e : fs::directory_iterator(AppConfig::supportDir())) ++entries;
        return entries == 1 ? 0 : 13;
    });
    EXPECT_EQ(result, 0) << "10 threw, 11 file changed, 12 message shown, 13 litter left";

    // Writable again: the next call succeeds, since the failed text was not remembered.
    fs::permissions(AppConfig::supportDir(), static_cast<fs::perms>(0755));
    Locale::overrideForTesting(true);
    c.writeStatusFile();
    EXPECT_NE(testing::readFile(AppConfig::statusFile()), old);
}

}  // namespace
}  // namespace duskwell
