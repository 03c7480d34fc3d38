// macOS process scan: `ps` rows, `ps` arguments and `nettop` rows (three parts, NUL-separated).
#include "agents/ps_parsers.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto p = duskwell::fuzz::parts(duskwell::fuzz::text(data, size), 3);
    const auto table = duskwell::PsParsers::buildTable(p[0], p[1], p[2], 50);
    (void)table;
    return 0;
}
