#pragma once
// The platform-free heart of a scan: from one process table and the live hook sessions to
// one snapshot. Both process sources (ps/nettop on macOS, /proc on Linux) feed it, and tests
// feed it tables directly.
#include <cstdint>
#include <map>
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

// Classifies `table` against the live `sessions` (those whose pid is in the table).
ScanResult classify(const ProcessTable& table, const std::vector<SessionRecord>& sessions,
                    const ScanMemory& previous, Date now);

}  // namespace duskwell
