#pragma once
// Linux's process source: /proc read directly (no `ps`), GPU from the DRM busy percentage or
// nvidia-smi. Declared here so tests can point it at a fake /proc tree; only Linux builds
// define it.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agents/process_table.h"

namespace duskwell {

struct ProcSourceOptions {
    std::string procRoot = "/proc";
    std::string drmRoot = "/sys/class/drm";  // card*/device/gpu_busy_percent
    // nvidia-smi to ask for GPU utilisation; nothing = look for it on PATH once, "" = never.
    std::optional<std::string> nvidiaSmi;
    // Monotonic seconds for the CPU measure; empty = the steady clock.
    std::function<double()> monotonicSeconds;
    // Clock ticks per second of the stat times; 0 = the system's value.
    long ticksPerSecond = 0;
};

// Each sample measures CPU as the utime+stime ticks used since the previous sample divided
// by the wall time between them, in percent of one core; a process's first sample reads 0.
// Kernel threads are left out. The executable and the command line are read once per
// process (again only after an exec), a script host's command line (node*, bun*, python*,
// Python*, uv) at every sample. Start times count from /proc/stat's btime. The byte counter is rchar + wchar of
// /proc/<pid>/io, read only for the processes of trees rooted at a recognised agent (the
// only ones a scan sums); the others have none. Processes that vanish or cannot be read
// mid-scan are skipped. Call from one thread at a time (the monitor's queue).
std::unique_ptr<ProcessSource> makeProcProcessSource(ProcSourceOptions options = {});

}  // namespace duskwell
