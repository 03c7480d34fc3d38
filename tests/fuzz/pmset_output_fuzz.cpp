// `pmset -g`, `pmset -g custom` and `pmset -g assertions` output.
#include "fuzz_input.h"
#include "power/pmset_assertions.h"
#include "power/system_info.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output(duskwell::fuzz::text(data, size));
    (void)duskwell::SystemInfo::parseSleepDisabled(output);
    for (const char* key : {"lowpowermode", "powermode"}) (void)duskwell::SystemInfo::parseBatterySetting(output, key);
    (void)duskwell::PmsetAssertions::holdsIdleSleepAssertion(output, 351);
    return 0;
}
