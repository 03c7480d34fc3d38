// Linux process scan: /proc/<pid>/stat, io and cmdline.
#include "agents/proc_parsers.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace duskwell::ProcParsers;
    const auto input = duskwell::fuzz::text(data, size);
    if (const auto stat = parseStat(input)) (void)chooseExecutable(std::nullopt, stat->comm);
    (void)parseIoBytes(input);
    const std::string cmdline = joinCmdline(input);
    (void)chooseExecutable(cmdline, cmdline);
    (void)isScriptHost(input);
    return 0;
}
