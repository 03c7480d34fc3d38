#include "power_off_watcher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "testing/fakes.h"

namespace duskwell {
namespace {

TEST(ShutdownNoticeParser, GdbusLineWithTrueIsTheNotice) {
    ShutdownNoticeParser p;
    EXPECT_TRUE(p.feed("/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForShutdown (true,)"));
    EXPECT_FALSE(p.feed("/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForShutdown (false,)"));
    EXPECT_FALSE(p.feed("/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForSleep (true,)"));
    EXPECT_FALSE(p.feed("/org/freedesktop/login1: org.freedesktop.DBus.Properties.PropertiesChanged ('x', {}, @as [])"));
}

TEST(ShutdownNoticeParser, BusctlBlockIsReadAcrossLines) {
    ShutdownNoticeParser p;
    const char* block[] = {
        "‣ Type=signal  Endian=l  Flags=1  Version=1 Cookie=1234  Timestamp=\"Mon 2024-01-01\"",
        "  Sender=:1.3  Path=/org/freedesktop/login1  Interface=org.freedesktop.login1.Manager  Member=PrepareForShutdown",
        "  UniqueName=:1.3",
        "  MESSAGE \"b\" {",
    };
    for (const char* line : block) EXPECT_FALSE(p.feed(line));
    EXPECT_TRUE(p.feed("          BOOLEAN true;"));
    EXPECT_FALSE(p.feed("  };"));
    // A false body, and a BOOLEAN true in another signal's block, are not the notice.
    for (const char* line : block) p.feed(line);
    EXPECT_FALSE(p.feed("          BOOLEAN false;"));
    p.feed("‣ Type=signal  Endian=l  Flags=1  Version=1 Cookie=9");
    p.feed("  Sender=:1.3  Path=/org/freedesktop/login1  Interface=org.freedesktop.login1.Manager  Member=PrepareForSleep");
    EXPECT_FALSE(p.feed("          BOOLEAN true;"));
}

TEST(PowerOffMonitorCommand, PrefersGdbusThenBusctlThenNothing) {
    testing::TempDir a, b;
    EXPECT_EQ(powerOffMonitorCommand(a.path() + ":" + b.path()), std::nullopt);
    testing::writeFile(b.path() + "/busctl", "#!/bin/sh\n");
    ::chmod((b.path() + "/busctl").c_str(), 0755);
    auto cmd = powerOffMonitorCommand(a.path() + ":" + b.path());
    ASSERT_TRUE(cmd);
    EXPECT_EQ((*cmd)[0], b.path() + "/busctl");
    EXPECT_EQ((*cmd)[2], "--system");
    testing::writeFile(a.path() + "/gdbus", "#!/bin/sh\n");
    ::chmod((a.path() + "/gdbus").c_str(), 0755);
    cmd = powerOffMonitorCommand(b.path() + ":" + a.path());
    ASSERT_TRUE(cmd);
    EXPECT_EQ((*cmd)[0], a.path() + "/gdbus");
}

// Our children that have exited but were never collected.
int zombieChildren() {
    int zombies = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        auto stat = testing::readFile(entry.path().string() + "/stat");
        if (!stat) continue;
        const auto close = stat->rfind(')');
        if (close == std::string::npos) continue;
        char state = 0;
        int ppid = 0;
        if (std::sscanf(stat->c_str() + close + 1, " %c %d", &state, &ppid) == 2 && ppid == ::getpid() && state == 'Z')
            ++zombies;
    }
    return zombies;
}

// Runs the loop until `done` or the deadline.
void runFor(asio::io_context& io, double seconds, const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done() && std::chrono::steady_clock::now() < end) {
        io.run_for(std::chrono::milliseconds(20));
        io.restart();
    }
}

TEST(PowerOffWatcher, StandInMonitorDeliversOneNoticeOnTheLoop) {
    testing::TempDir dir;
    const std::string script = dir.path() + "/monitor";
    testing::writeFile(script,
                       "#!/bin/sh\n"
                       "echo '/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForShutdown (false,)'\n"
                       "echo 'noise on stderr' >&2\n"
                       "echo '/org/freedesktop/login1: org.freedesktop.login1.Manager.PrepareForShutdown (true,)'\n"
                       "exec sleep 30\n");
    ::chmod(script.c_str(), 0755);
    asio::io_context io;
    int notices = 0;
    const auto started = std::chrono::steady_clock::now();
    {
        PowerOffWatcher watcher(io, {script}, [&] { ++notices; });
        EXPECT_TRUE(watcher.running());
        runFor(io, 5, [&] { return notices > 0; });
        runFor(io, 0.2, [] { return false; });  // no second call from the same lines
        EXPECT_EQ(notices, 1);
    }  // the sleeping child is ended and reaped here, not waited out
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

TEST(PowerOffWatcher, AMonitorThatEndsIsCollectedAndOneThatCannotRunStaysQuiet) {
    asio::io_context io;
    int notices = 0;
    PowerOffWatcher watcher(io, {"/bin/sh", "-c", "echo 'Error connecting: no bus'"}, [&] { ++notices; });
    runFor(io, 3, [&] { return !watcher.running(); });
    runFor(io, 1.5, [] { return false; });  // the second look, a second later
    EXPECT_EQ(notices, 0);
    EXPECT_EQ(zombieChildren(), 0);
    PowerOffWatcher cannotRun(io, {"/nonexistent/gdbus", "monitor"}, [&] { ++notices; });
    runFor(io, 2, [&] { return !cannotRun.running(); });
    EXPECT_FALSE(cannotRun.running());
    EXPECT_EQ(notices, 0) << "a monitor that cannot run stays quiet";
}

}  // namespace
}  // namespace duskwell
