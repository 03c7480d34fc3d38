#pragma once
// The platform-free heart of a scan: from one process table and the live hook sessions to
// one snapshot. Both process sources (ps/nettop on macOS, /proc on Linux) feed it, and tests
// feed it tables directly.
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "agents/agent_snapshot.h"
#include "agents/process_table.h"
#include "agents/session_records.h"
#include "core/date.h"

namespace duskwell {

// What one scan hands to the next.
struct ScanMemory {
    // Network (or I/O) byte total of each agent tree at the previous scan, by root pid.
    std::map<std::int32_t, std::int64_t> lastNet;
    // When each kind (by raw value) entered `working` and has stayed there since.
    std::map<std::string, Date> busySince;
    // Hook sessions that report working: their tree's byte total at the previous scan and
    // when they last showed any sign of work, by session id.
    struct Activity {
        std::int64_t net = 0;
        Date active;
        bool operator==(const Activity&) const = default;
    };
    std::map<std::string, Activity> sessionActivity;
    // Roots a hook session stood for. Once it ends, the agent reports its next turn through
    // its hooks again, so until then the root is idle, not measured: a UI redrawing its
    // terminal after /clear is no work.
    std::set<std::int32_t> hookedRoots;
    bool operator==(const ScanMemory&) const = default;
};

struct ScanResult {
    AgentSnapshot snapshot;
    ScanMemory memory;  // replaces the previous memory
};

// A tree counts as busy from this much CPU (percent of one core) over all its processes.
inline constexpr double kTreeBusyCpu = 3.0;
// A single descendant at this much CPU makes its tree busy (tools the agent runs).
inline constexpr double kDescendantBusyCpu = 5.0;
// Bytes a tree must move between two scans to count as busy on the network.
inline constexpr std::int64_t kNetBusyBytes = 2048;
// GPU utilisation from which local model runners count as busy.
inline constexpr int kGpuBusyPercent = 25;

// A tool an agent starts this long after asking the user was started by the user's answer.
inline constexpr double kAnswerGraceSeconds = 1.0;
// A session that reports working but has shown no sign of work (no event, no tool, no CPU,
// no bytes) for this long is idle: Claude Code sends no event when the user interrupts a
// turn with Esc, and the record would say "working" for ever.
inline constexpr double kStaleWorkingSeconds = 600;

// Whether a hook record's pid still stands for a live session: the process runs, and when
// it is a shared daemon (Codex's app-server outlives its UI) an agent of its kind runs too.
std::function<bool(std::int32_t)> sessionLiveness(const ProcessTable& table);

// Classifies `table` against the live `sessions` (those `sessionLiveness` keeps).
// A matching process belongs to the nearest ancestor of the same kind, looking through
// shells, sandboxes and other processes that are no agent; every other match of an agent
// is a root. A session stands for the root whose tree holds its pid (or, for a daemon's
// session, for a root of its kind that has none). A session that waits for the user while
// a tool started after its question runs is working: the user answered, and agents report
// no event for that. So is a session with a descendant busy on the CPU (a command it left
// running in the background).
ScanResult classify(const ProcessTable& table, const std::vector<SessionRecord>& sessions,
                    const ScanMemory& previous, Date now);

}  // namespace duskwell
