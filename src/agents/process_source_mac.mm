// macOS process source: two runs of ps, one of nettop, and the GPU's own statistics.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include <algorithm>
#include <optional>

#include "agents/process_table.h"
#include "agents/ps_parsers.h"
#include "power/command_runner.h"

namespace duskwell {
namespace {

// The output of a tool, or nothing usable when it could not be started.
std::string outputOf(const std::string& path, const std::vector<std::string>& args) {
    CommandResult r = runCommand(path, args);
    return r.status == -1 ? std::string() : std::move(r.output);
}

// The highest "Device Utilization %" any IOAccelerator reports, or nothing.
std::optional<int> gpuUtilization() {
    CFMutableDictionaryRef matching = IOServiceMatching("IOAccelerator");
    if (!matching) return std::nullopt;
    io_iterator_t iterator = IO_OBJECT_NULL;
    // A null main port means the default one on every SDK. The call consumes `matching`.
    if (IOServiceGetMatchingServices(MACH_PORT_NULL, matching, &iterator) != KERN_SUCCESS) return std::nullopt;

    std::optional<int> best;
    io_registry_entry_t service;
    while ((service = IOIteratorNext(iterator)) != IO_OBJECT_NULL) {
        CFTypeRef stats = IORegistryEntryCreateCFProperty(service, CFSTR("PerformanceStatistics"),
                                                          kCFAllocatorDefault, 0);
        if (stats) {
            if (CFGetTypeID(stats) == CFDictionaryGetTypeID()) {
                const void* value = CFDictionaryGetValue(static_cast<CFDictionaryRef>(stats),
                                                         CFSTR("Device Utilization %"));
                if (value && CFGetTypeID(value) == CFNumberGetTypeID() &&
                    !CFNumberIsFloatType(static_cast<CFNumberRef>(value))) {
                    long long n = 0;
                    if (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberLongLongType, &n))
                        best = std::max(best.value_or(static_cast<int>(n)), static_cast<int>(n));
                }
            }
            CFRelease(stats);
        }
        IOObjectRelease(service);
    }
    IOObjectRelease(iterator);
    return best;
}

class PsProcessSource final : public ProcessSource {
public:
    ProcessTable sample() override {
        const std::string processes = outputOf("/bin/ps", {"-Axo", "pid=,ppid=,pcpu=,comm="});
        const std::string arguments = outputOf("/bin/ps", {"-Axo", "pid=,etime=,args="});
        const std::string nettop = outputOf(
            "/usr/bin/nettop", {"-P", "-L", "1", "-x", "-s", "0", "-J", "bytes_in,bytes_out"});
        return PsParsers::buildTable(processes, arguments, nettop, gpuUtilization(),
                                     std::chrono::system_clock::now());
    }
};

}  // namespace

std::unique_ptr<ProcessSource> makePlatformProcessSource() { return std::make_unique<PsProcessSource>(); }

}  // namespace duskwell
