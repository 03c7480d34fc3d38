// The macOS probe: `pmset` alone, run through runCommand (safe on any one thread). The
// assertion is found by our pid in "Listed by owning process"; lid sleep by the
// SleepDisabled line of `pmset -g`; the power modes by `pmset -g custom`'s battery section.
#include "power/command_runner.h"
#include "power/hold_probe.h"
#include "power/pmset_assertions.h"
#include "power/system_info.h"

namespace duskwell {
namespace {

constexpr const char* kPmset = "/usr/bin/pmset";

class PmsetHoldProbe final : public HoldProbe {
public:
    HoldObservation observe(const HoldQuery& query) override {
        HoldObservation seen;
        if (query.inhibitor) {
            const CommandResult r = runCommand(kPmset, {"-g", "assertions"});
            // A listing without its section means pmset changed its output: unknown.
            if (r.status == 0 && r.output.find("Listed by owning process") != std::string::npos)
                seen.inhibitorListed = PmsetAssertions::holdsIdleSleepAssertion(r.output, query.pid);
        }
        if (query.lid) {
            const CommandResult r = runCommand(kPmset, {"-g"});
            if (r.status == 0 && !r.output.empty()) seen.lidSleepDisabled = SystemInfo::parseSleepDisabled(r.output);
        }
        if (query.profile) {
            const CommandResult r = runCommand(kPmset, {"-g", "custom"});
            if (r.status == 0) {
                seen.powerMode = SystemInfo::parseBatterySetting(r.output, "powermode");
                seen.lowPowerMode = SystemInfo::parseBatterySetting(r.output, "lowpowermode");
            }
        }
        return seen;
    }
};

}  // namespace

std::unique_ptr<HoldProbe> makePlatformHoldProbe() { return std::make_unique<PmsetHoldProbe>(); }

}  // namespace duskwell
