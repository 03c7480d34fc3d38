// The control socket's lines: requests the server accepts and replies the client parses.
#include "commands/control_protocol.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto line = duskwell::fuzz::text(data, size);
    (void)duskwell::ControlProtocol::acceptableRequest(line);
    if (const auto reply = duskwell::ControlProtocol::parse(line)) {
        // What we print must read back as the same reply.
        const auto again = duskwell::ControlProtocol::parse(duskwell::ControlProtocol::format(*reply));
        if (!again || !(*again == *reply)) __builtin_trap();
    }
    return 0;
}
