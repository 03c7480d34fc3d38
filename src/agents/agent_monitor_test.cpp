#include "agents/agent_monitor.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/app_config.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

class Monitor : public ::testing::Test {
protected:
    testing::TestEnvironment env;

    void SetUp() override {
        ProcessInfo init;
        init.pid = 1;
        init.exe = "/sbin/launchd";
        ProcessInfo claude;
        claude.pid = 10;
        claude.ppid = 1;
        claude.cpu = 12;
        claude.exe = "/usr/local/bin/claude";
        env.processes.table.processes = {init, claude};
    }
};

TEST_F(Monitor, ScansOnItsQueueAndAnswersOnTheMainQueueEvenAfterTheMonitorIsGone) {
    std::vector<AgentSnapshot> got;
    {
        AgentMonitor monitor;
        monitor.scan([&](AgentSnapshot s) { got.push_back(std::move(s)); });
        EXPECT_EQ(env.processes.samples, 0);  // nothing runs on the caller's thread
        EXPECT_EQ(env.dispatcher.pendingBackground(), 1u);
    }
    env.dispatcher.runBackground();
    ASSERT_EQ(got.size(), 1u);
    ASSERT_EQ(got[0].items.size(), 1u);
    EXPECT_EQ(got[0].items[0].kind, AgentKind::claude);
    EXPECT_EQ(got[0].items[0].state, AgentState::working);
    EXPECT_EQ(got[0].items[0].since, env.clock.now());
}

TEST_F(Monitor, AScanWhileOneRunsIsIgnored) {
    AgentMonitor monitor;
    int first = 0, second = 0;
    monitor.scan([&](AgentSnapshot) { ++first; });
    monitor.scan([&](AgentSnapshot) { ++second; });
    EXPECT_TRUE(monitor.scanning());
    EXPECT_EQ(env.dispatcher.pendingBackground(), 1u);
    // Even with the scan done but its answer not yet on the main queue.
    env.dispatcher.runBackground();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(env.processes.samples, 1);
    monitor.scan([&](AgentSnapshot) { ++second; });
    env.dispatcher.runBackground();
    EXPECT_EQ(second, 1);
}

TEST_F(Monitor, SinceCarriesOverBetweenScans) {
    AgentMonitor monitor;
    const Date first = env.clock.now();
    monitor.scanNow();
    env.clock.advance(5);
    EXPECT_EQ(monitor.scanNow().items.at(0).since, first);
    env.processes.table.processes[1].cpu = 0;
    env.clock.advance(5);
    EXPECT_EQ(monitor.scanNow().items.at(0).since, std::nullopt);
}

TEST_F(Monitor, HookSessionsComeFromTheSessionsFolder) {
    std::filesystem::create_directories(AppConfig::sessionsDir());
    testing::writeFile(AppConfig::sessionsDir() + "/claude-s1", "Notification 1800000000 10\ncwd=/src/app\n");
    testing::writeFile(AppConfig::sessionsDir() + "/claude-gone", "Stop 1800000000 77\n");
    AgentMonitor monitor;
    const auto s = monitor.scanNow();
    ASSERT_EQ(s.items.size(), 1u);
    EXPECT_EQ(s.items[0].state, AgentState::waiting);  // the session stands for pid 10
    EXPECT_TRUE(s.items[0].viaHooks);
    ASSERT_EQ(s.sessions.size(), 1u);
    EXPECT_EQ(s.sessions[0].project, "app");
    EXPECT_FALSE(std::filesystem::exists(AppConfig::sessionsDir() + "/claude-gone"));
}

}  // namespace
}  // namespace duskwell
