// The hook program's standard input: an agent's event JSON, as its own parser reads it.
// The program's source is compiled in whole, so the fuzzer runs exactly its parse.
#define main duskwell_hook_main
#include "../../resources/duskwell-hook/main.cpp"
#undef main

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const bool truncated : {false, true}) {
        Input in;
        in.bytes.assign(reinterpret_cast<const char*>(data), size);
        in.truncated = truncated;
        if (const auto event = parseEvent(in)) {
            if (event->sessionId) (void)HookRecord::fileName("claude", *event->sessionId);
            if (event->name) (void)HookRecord::validEvent(*event->name);
        }
    }
    return 0;
}
