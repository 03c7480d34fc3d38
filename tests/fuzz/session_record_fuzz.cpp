// A hook session record as the monitor reads it (through a real file, as in use), and the
// record parts the hook program reads back.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "agents/session_records.h"
#include "fuzz_input.h"
#include "integration/hook_record.h"

namespace {

const std::string& folder() {
    static const std::string dir = [] {
        char name[] = "/tmp/duskwell-fuzz-sessions-XXXXXX";
        const char* made = ::mkdtemp(name);
        if (!made) std::abort();
        return std::string(made);
    }();
    return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto p = duskwell::fuzz::parts(duskwell::fuzz::text(data, size), 2);
    const std::string& record = p[1];
    {
        std::ofstream out(folder() + "/claude-fuzz", std::ios::binary | std::ios::trunc);
        out << record;
    }
    (void)duskwell::readSessions(folder(), [](std::int32_t) { return true; });
    (void)duskwell::HookRecord::previousStart(record);
    (void)duskwell::HookRecord::validEvent(p[0]);
    if (const auto name = duskwell::HookRecord::fileName("claude", p[0])) {
        // A session id never leaves the sessions folder.
        if (name->find('/') != std::string::npos || name->front() == '.') __builtin_trap();
    }
    return 0;
}
