#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/date.h"

namespace duskwell {

// One process as a scan sees it.
struct ProcessInfo {
    std::int32_t pid = 0;
    std::int32_t ppid = 0;
    double cpu = 0;             // percent of one core
    std::string exe;            // the executable, usually a full path
    std::string args;           // the whole command line; empty when unknown
    std::optional<std::int64_t> netBytes;  // network (or I/O) byte counter
    std::string comm;             // the kernel's short name, when the platform has one
    std::optional<Date> started;  // when the process started, when known
};

// Byte counters are never negative; their sums stop at the largest value instead of wrapping.
inline std::int64_t addBytes(std::int64_t a, std::int64_t b) {
    if (a < 0) a = 0;
    if (b < 0) b = 0;
    return a > INT64_MAX - b ? INT64_MAX : a + b;
}

struct ProcessTable {
    std::vector<ProcessInfo> processes;
    std::optional<int> gpu;  // highest GPU utilisation percent, when any GPU reports one
};

// The platform's process table (ps + nettop + IOKit on macOS, /proc on Linux).
class ProcessSource {
public:
    virtual ~ProcessSource() = default;
    // One sample. Called only on the monitor's serial queue.
    virtual ProcessTable sample() = 0;
};

// The platform's source (/proc on Linux; ps, nettop and IOKit on macOS).
std::unique_ptr<ProcessSource> makePlatformProcessSource();

}  // namespace duskwell
