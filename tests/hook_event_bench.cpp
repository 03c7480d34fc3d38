// Wall time of one hook event, as an agent pays it: spawn duskwell-hook with a Claude-style
// event on standard input and wait for it. The hook's parent here is the benchmark, so it
// walks every ancestor up to init before it falls back: the slowest path it can take.
// Run: build/bin/duskwell_bench --benchmark_filter=HookEvent
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/fakes.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

std::string hookBesideThisProgram() {
    std::error_code ec;
    return (fs::read_symlink("/proc/self/exe", ec).parent_path() / "duskwell-hook").string();
}

// Spawns `program claude` with the event on standard input, once per iteration.
void spawnEach(benchmark::State& state, const std::string& program) {
    const std::string hook = program;
    if (!fs::exists(hook)) {
        state.SkipWithError("duskwell-hook is not beside the benchmark");
        return;
    }
    duskwell::testing::TempDir home;
    fs::create_directories(home.path() + "/.duskwell/sessions");
    const std::string event = home.path() + "/event.json";
    duskwell::testing::writeFile(event,
        R"({"session_id":"3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44","transcript_path":"/tmp/t.jsonl",)"
        R"("cwd":"/srv/app","permission_mode":"default","hook_event_name":"PostToolUse",)"
        R"("tool_name":"Bash","tool_input":{"command":"make test"},"tool_response":{"stdout":"ok"}})");
    std::vector<std::string> envWords{"HOME=" + home.path(), "PATH=/usr/bin:/bin"};
    std::vector<char*> envp;
    for (auto& w : envWords) envp.push_back(w.data());
    envp.push_back(nullptr);
    std::string arg0 = hook, arg1 = "claude";
    char* argv[] = {arg0.data(), arg1.data(), nullptr};

    std::vector<double> ms;
    for (auto _ : state) {
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addopen(&fa, 0, event.c_str(), O_RDONLY, 0);
        const auto begun = std::chrono::steady_clock::now();
        pid_t pid = -1;
        if (posix_spawn(&pid, hook.c_str(), &fa, nullptr, argv, envp.data()) != 0) {
            state.SkipWithError("spawn failed");
            break;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count());
        posix_spawn_file_actions_destroy(&fa);
    }
    if (!ms.empty()) {
        std::sort(ms.begin(), ms.end());
        state.counters["median_ms"] = ms[ms.size() / 2];
        state.counters["p90_ms"] = ms[ms.size() * 9 / 10];
    }
    if (program == hookBesideThisProgram() &&
        !fs::exists(home.path() + "/.duskwell/sessions/claude-3f2a9c1e-77b0-4d6e-9a51-0c2f5e8d1b44"))
        state.SkipWithError("the hook wrote no record");
}

void HookEvent(benchmark::State& state) { spawnEach(state, hookBesideThisProgram()); }
// The floor on this machine: spawning a program that does nothing at all.
void SpawnTrue(benchmark::State& state) { spawnEach(state, "/bin/true"); }

BENCHMARK(HookEvent)->Iterations(500)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SpawnTrue)->Iterations(500)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
