// The /proc source against a fake /proc tree (Linux builds only).
#ifdef __linux__
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include <filesystem>

#include "agents/proc_process_source.h"
#include "testing/fakes.h"

namespace fs = std::filesystem;

namespace duskwell {
namespace {

using testing::writeFile;

class FakeProc : public ::testing::Test {
protected:
    testing::TempDir root;
    std::string proc = root.path() + "/proc";
    std::string drm = root.path() + "/drm";
    double clock = 1000;
    ProcSourceOptions options;

    void SetUp() override {
        fs::create_directories(proc);
        options.procRoot = proc;
        options.drmRoot = drm;
        options.nvidiaSmi = "";
        options.ticksPerSecond = 100;
        options.monotonicSeconds = [this] { return clock; };
    }

    // One process: stat with the given CPU ticks, an exe link, optional cmdline and io.
    void add(int pid, int ppid, const std::string& comm, const std::string& exe, std::uint64_t ticks,
             const std::string& cmdline = "", std::optional<std::int64_t> io = std::nullopt,
             std::uint64_t start = 500, std::uint64_t flags = 4194560) {
        const std::string dir = proc + "/" + std::to_string(pid);
        fs::create_directories(dir);
        writeFile(dir + "/stat", std::to_string(pid) + " (" + comm + ") S " + std::to_string(ppid) + " 1 1 0 -1 " +
                                     std::to_string(flags) + " 0 0 0 0 " + std::to_string(ticks) +
                                     " 0 0 0 20 0 1 0 " + std::to_string(start) + " 0 0\n");
        std::error_code ec;
        fs::remove(dir + "/exe", ec);
        if (!exe.empty()) fs::create_symlink(exe, dir + "/exe");
        writeFile(dir + "/cmdline", cmdline);
        if (io) writeFile(dir + "/io", "rchar: " + std::to_string(*io) + "\nwchar: 1\nread_bytes: 0\n");
    }

    const ProcessInfo* find(const ProcessTable& t, int pid) {
        for (const auto& p : t.processes)
            if (p.pid == pid) return &p;
        return nullptr;
    }
};

TEST_F(FakeProc, ReadsTheTreeAndSkipsWhatCannotBeRead) {
    add(1, 0, "init", "/sbin/init", 10);
    add(2, 0, "kthreadd", "", 0, "", std::nullopt, 1, 0x00208040);  // kernel thread
    add(40, 1, "my) (odd name", "/opt/odd", 0);
    fs::create_directories(proc + "/41");  // vanished: no stat any more
    add(42, 1, "broken", "/bin/broken", 0);
    writeFile(proc + "/42/stat", "42 (broken");
    fs::create_directories(proc + "/self");
    fs::create_directories(proc + "/sys");

    auto source = makeProcProcessSource(options);
    const auto t = source->sample();
    ASSERT_EQ(t.processes.size(), 2u);
    EXPECT_EQ(find(t, 1)->exe, "/sbin/init");
    EXPECT_EQ(find(t, 40)->exe, "/opt/my) (odd name");
    EXPECT_EQ(find(t, 40)->ppid, 1);
    EXPECT_FALSE(t.gpu);
}

TEST_F(FakeProc, CpuIsTheTickDeltaOverWallTimeNeverTheLifetimeAverage) {
    add(10, 1, "claude", "/home/u/bin/claude", 90'000);  // 15 minutes of CPU already
    auto source = makeProcProcessSource(options);
    EXPECT_EQ(find(source->sample(), 10)->cpu, 0.0);

    clock += 2.0;
    add(10, 1, "claude", "/home/u/bin/claude", 90'100);  // one more second of CPU in two
    EXPECT_DOUBLE_EQ(find(source->sample(), 10)->cpu, 50.0);

    clock += 1.0;
    EXPECT_DOUBLE_EQ(find(source->sample(), 10)->cpu, 0.0);

    // The pid is reused by a new process: no delta against the old one.
    clock += 1.0;
    add(10, 1, "claude", "/home/u/bin/claude", 95'000, "", std::nullopt, 777);
    EXPECT_DOUBLE_EQ(find(source->sample(), 10)->cpu, 0.0);
}

TEST_F(FakeProc, CommandLinesAndKernelNamesAreRead) {
    add(1, 0, "init", "/sbin/init", 0);
    add(20, 1, "python3", "/usr/bin/python3.11", 0, std::string("python3\0-m\0mlx_lm.server\0", 25));
    add(21, 1, "vllm", "/usr/bin/python3.11", 0, std::string("/usr/bin/python3\0/venv/bin/vllm\0serve\0", 38));
    add(22, 1, "bash", "/usr/bin/bash", 0, std::string("bash\0-c\0mlx_lm\0", 15));
    auto t = makeProcProcessSource(options)->sample();
    EXPECT_EQ(find(t, 20)->args, "python3 -m mlx_lm.server");
    EXPECT_EQ(find(t, 21)->exe, "/usr/bin/python3.11");
    EXPECT_EQ(find(t, 21)->args, "/usr/bin/python3 /venv/bin/vllm serve");
    EXPECT_EQ(find(t, 22)->args, "bash -c mlx_lm");
    EXPECT_EQ(find(t, 22)->comm, "bash");
    EXPECT_EQ(find(t, 21)->comm, "vllm");
}

TEST_F(FakeProc, ByteCountersAreReadForAgentTreesOnly) {
    add(1, 0, "init", "/sbin/init", 0, "", 5);
    add(30, 1, "claude", "/home/u/bin/claude", 0, "", 1000);
    add(31, 30, "zsh", "/bin/zsh", 0, "", 200);
    add(32, 31, "curl", "/usr/bin/curl", 0, "", 50);
    add(33, 1, "sshd", "/usr/sbin/sshd", 0, "", 9000);
    const auto t = makeProcProcessSource(options)->sample();
    EXPECT_EQ(find(t, 30)->netBytes, 1001);
    EXPECT_EQ(find(t, 31)->netBytes, 201);
    EXPECT_EQ(find(t, 32)->netBytes, 51);
    EXPECT_FALSE(find(t, 33)->netBytes);
    EXPECT_FALSE(find(t, 1)->netBytes);
}

TEST_F(FakeProc, TheExecutableIsReadAgainOnlyAfterAnExec) {
    add(50, 1, "claude", "/home/u/bin/claude", 0);
    auto source = makeProcProcessSource(options);
    EXPECT_EQ(find(source->sample(), 50)->exe, "/home/u/bin/claude");
    // Same process, same name: the link is not read again (a changed target goes unseen)...
    add(50, 1, "claude", "/elsewhere/claude", 0);
    EXPECT_EQ(find(source->sample(), 50)->exe, "/home/u/bin/claude");
    // ...but an exec renames it and the new executable is read.
    add(50, 1, "sleep", "/usr/bin/sleep", 0);
    EXPECT_EQ(find(source->sample(), 50)->exe, "/usr/bin/sleep");
}

TEST_F(FakeProc, GpuFromTheDrmBusyPercentAndNvidiaSmi) {
    writeFile(drm + "/card0/device/gpu_busy_percent", "37\n");
    writeFile(drm + "/card1/device/gpu_busy_percent", "12\n");
    writeFile(drm + "/card0-HDMI-A-1/device/gpu_busy_percent", "99\n");  // a connector, not a GPU
    EXPECT_EQ(makeProcProcessSource(options)->sample().gpu, 37);

    const std::string smi = root.path() + "/nvidia-smi";
    writeFile(smi, "#!/bin/sh\n[ \"$1\" = --query-gpu=utilization.gpu ] || exit 3\nprintf '12\\n64\\n'\n");
    fs::permissions(smi, fs::perms::owner_all);
    options.nvidiaSmi = smi;
    EXPECT_EQ(makeProcProcessSource(options)->sample().gpu, 64);
}

TEST(ProcSource, TheRealProcFindsThisProcess) {
    ProcSourceOptions options;
    options.nvidiaSmi = "";
    const auto t = makeProcProcessSource(options)->sample();
    const auto self = static_cast<std::int32_t>(::getpid());
    const auto it = std::find_if(t.processes.begin(), t.processes.end(), [&](const ProcessInfo& p) { return p.pid == self; });
    ASSERT_NE(it, t.processes.end());
    EXPECT_EQ(it->ppid, static_cast<std::int32_t>(::getppid()));
    EXPECT_NE(it->exe.find("duskwell_tests"), std::string::npos);
}

TEST(ProcSource, AProcessThatEndsBetweenSamplesDisappears) {
    ProcSourceOptions options;
    options.nvidiaSmi = "";
    auto source = makeProcProcessSource(options);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    auto has = [&](const ProcessTable& t) {
        return std::any_of(t.processes.begin(), t.processes.end(), [&](const ProcessInfo& p) { return p.pid == child; });
    };
    EXPECT_TRUE(has(source->sample()));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(has(source->sample()));
}

}  // namespace
}  // namespace duskwell
#endif
