// CPU cost of the one-second tick when it does no agent scan: the stop rules, the lid
// handling and, every fifth tick, the readings and the status file.
#include <benchmark/benchmark.h>

#include "core/awake_controller_test_support.h"

namespace duskwell {
namespace {

void runTicks(benchmark::State& state, bool active) {
    testing::TestEnvironment env;
    env.installHelper();
    env.power.setBattery(80, true, 300);
    env.power.lid = true;
    env.power.displays = std::vector<DisplayInfo>{{true, true, false}};
    AwakeController c;
    if (active) c.start(KeepMode::timer, 0);  // no end: the period outlives the benchmark
    c.setFrozen(true);                         // no scans: only the tick itself is measured
    for (auto _ : state) {
        env.clock.advance(1);
        AwakeControllerTestAccess::tick(c);
    }
    state.counters["ticks"] = static_cast<double>(c.tick());
    if (active) c.stop();
}

void BM_TickWithoutScan_Active(benchmark::State& state) { runTicks(state, true); }
void BM_TickWithoutScan_Idle(benchmark::State& state) { runTicks(state, false); }

BENCHMARK(BM_TickWithoutScan_Active);
BENCHMARK(BM_TickWithoutScan_Idle);

}  // namespace
}  // namespace duskwell
