// CPU cost of classifying a synthetic 500-process table (the /proc sample is measured in
// process_source_linux_bench.cpp).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "agents/agent_scan.h"
#include "agents/process_table.h"


namespace duskwell {
namespace {

// 500 processes: mostly ordinary programs in shallow trees, a few agents with children,
// script hosts with long command lines, byte counters everywhere.
ProcessTable syntheticTable() {
    ProcessTable t;
    const char* names[] = {"/usr/bin/bash", "/usr/lib/systemd/systemd", "/usr/bin/ssh", "/usr/sbin/cron",
                           "/usr/bin/python3.11", "/usr/bin/node", "/opt/app/worker"};
    ProcessInfo init;
    init.pid = 1;
    init.cpu = 0.1;
    init.exe = init.args = init.comm = "/sbin/init";
    init.netBytes = 1000;
    t.processes.push_back(init);
    for (int i = 2; i <= 500; ++i) {
        ProcessInfo p;
        p.pid = i;
        p.ppid = i < 20 ? 1 : 1 + (i % 19);
        p.cpu = (i % 7) * 0.4;
        p.exe = names[i % 7];
        p.args = p.exe + " --serve";  // every command line is read now
        p.comm = p.exe.substr(p.exe.rfind('/') + 1).substr(0, 15);
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


}  // namespace
}  // namespace duskwell
