// CPU cost of a scan: one real /proc sample on this machine, and the classification of a
// synthetic 500-process table.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "agents/agent_scan.h"
#include "agents/process_table.h"

#ifdef __linux__
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "agents/proc_process_source.h"

extern char** environ;
#endif

namespace duskwell {
namespace {

// 500 processes: mostly ordinary programs in shallow trees, a few agents with children,
// script hosts with long command lines, byte counters everywhere.
ProcessTable syntheticTable() {
    ProcessTable t;
    const char* names[] = {"/usr/bin/bash", "/usr/lib/systemd/systemd", "/usr/bin/ssh", "/usr/sbin/cron",
                           "/usr/bin/python3.11", "/usr/bin/node", "/opt/app/worker"};
    t.processes.push_back({1, 0, 0.1, "/sbin/init", "", 1000});
    for (int i = 2; i <= 500; ++i) {
        ProcessInfo p;
        p.pid = i;
        p.ppid = i < 20 ? 1 : 1 + (i % 19);
        p.cpu = (i % 7) * 0.4;
        p.exe = names[i % 7];
        if (i % 7 == 4) p.args = "/usr/bin/python3.11 -m some.module --port " + std::to_string(i) + " --verbose";
        if (i % 7 == 5) p.args = "node /srv/app/server.js --flag " + std::to_string(i);
        p.netBytes = i * 1000;
        t.processes.push_back(p);
    }
    // Agents: four claude roots with children, an ollama server, an mlx server.
    for (int k = 0; k < 4; ++k) t.processes[100 + k * 10].exe = "/home/u/.local/bin/claude";
    t.processes[300].exe = "/usr/local/bin/ollama";
    t.processes[301].exe = "/usr/bin/python3.11";
    t.processes[301].args = "python3 -m mlx_lm.server --model m";
    t.gpu = 30;
    return t;
}

void BM_ClassifySyntheticTable(benchmark::State& state) {
    const ProcessTable table = syntheticTable();
    ScanMemory memory;
    Date now{};
    for (auto _ : state) {
        ScanResult r = classify(table, {}, memory, now);
        memory = std::move(r.memory);
        benchmark::DoNotOptimize(r.snapshot);
    }
    state.counters["processes"] = static_cast<double>(table.processes.size());
}
BENCHMARK(BM_ClassifySyntheticTable)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

#ifdef __linux__
// Idle `sleep` processes that bring the machine's table up to the size under test; they
// end with the benchmark.
class ExtraProcesses {
public:
    explicit ExtraProcesses(int count) {
        char path[] = "/bin/sleep";
        char seconds[] = "600";
        char* argv[] = {path, seconds, nullptr};
        for (int i = 0; i < count; ++i) {
            pid_t pid = -1;
            if (::posix_spawn(&pid, path, nullptr, nullptr, argv, environ) == 0) pids_.push_back(pid);
        }
    }
    ~ExtraProcesses() {
        for (const pid_t pid : pids_) ::kill(pid, SIGKILL);
        for (const pid_t pid : pids_) ::waitpid(pid, nullptr, 0);
    }

private:
    std::vector<pid_t> pids_;
};

int processCount() {
    ProcSourceOptions options;
    options.nvidiaSmi = "";
    return static_cast<int>(makeProcProcessSource(options)->sample().processes.size());
}

// Argument: the table size to measure at (0 = the machine as it is).
void BM_LinuxProcSample(benchmark::State& state) {
    const int target = static_cast<int>(state.range(0));
    ExtraProcesses extra(target > 0 ? std::max(0, target - processCount()) : 0);
    ProcSourceOptions options;
    options.nvidiaSmi = "";  // a spawned tool would dominate; it runs only where a GPU is
    auto source = makeProcProcessSource(options);
    size_t processes = 0;
    for (auto _ : state) {
        ProcessTable t = source->sample();
        processes = t.processes.size();
        benchmark::DoNotOptimize(t);
    }
    state.counters["processes"] = static_cast<double>(processes);
}
BENCHMARK(BM_LinuxProcSample)->Arg(0)->Arg(500)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

// A sample with the classification, as one monitor scan does it.
void BM_LinuxFullScan(benchmark::State& state) {
    const int target = static_cast<int>(state.range(0));
    ExtraProcesses extra(target > 0 ? std::max(0, target - processCount()) : 0);
    ProcSourceOptions options;
    options.nvidiaSmi = "";
    auto source = makeProcProcessSource(options);
    ScanMemory memory;
    for (auto _ : state) {
        ScanResult r = classify(source->sample(), {}, memory, Date{});
        memory = std::move(r.memory);
        benchmark::DoNotOptimize(r.snapshot);
    }
}
BENCHMARK(BM_LinuxFullScan)->Arg(0)->Arg(500)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
}  // namespace duskwell
