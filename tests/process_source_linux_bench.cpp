// CPU cost of one real /proc sample on this machine, alone and with the classification,
// at the machine's own size and at about 500 processes (Linux builds only).
#ifdef __linux__
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "agents/agent_scan.h"
#include "agents/proc_process_source.h"

extern char** environ;

namespace duskwell {
namespace {

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

// Without nvidia-smi: a spawned tool would dominate, and it runs only where a GPU is.
ProcSourceOptions withoutNvidia() {
    ProcSourceOptions options;
    options.nvidiaSmi.emplace();
    return options;
}

int processCount() {
    return static_cast<int>(makeProcProcessSource(withoutNvidia())->sample().processes.size());
}

// Argument: the table size to measure at (0 = the machine as it is).
void BM_LinuxProcSample(benchmark::State& state) {
    const int target = static_cast<int>(state.range(0));
    ExtraProcesses extra(target > 0 ? std::max(0, target - processCount()) : 0);
    auto source = makeProcProcessSource(withoutNvidia());
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
    auto source = makeProcProcessSource(withoutNvidia());
    ScanMemory memory;
    for (auto _ : state) {
        ScanResult r = classify(source->sample(), {}, memory, Date{});
        memory = std::move(r.memory);
        benchmark::DoNotOptimize(r.snapshot);
    }
}
BENCHMARK(BM_LinuxFullScan)->Arg(0)->Arg(500)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
}  // namespace
}  // namespace duskwell
#endif
