// macOS process scan: `ps` rows, `ps` arguments and `nettop` rows (three parts, NUL-separated),
// then the scan itself over the table they make (names, trees, parent cycles).
#include "agents/agent_scan.h"
#include "agents/ps_parsers.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto p = duskwell::fuzz::parts(duskwell::fuzz::text(data, size), 3);
    const duskwell::Date now = duskwell::dateFromUnix(1'800'000'000);
    const auto table = duskwell::PsParsers::buildTable(p[0], p[1], p[2], 50, now);
    const auto alive = duskwell::sessionLiveness(table);
    for (const auto& process : table.processes) (void)alive(process.pid);
    (void)duskwell::classify(table, {}, {}, now);
    return 0;
}
