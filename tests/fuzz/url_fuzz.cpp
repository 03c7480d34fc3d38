// duskwell:// links from the desktop, the terminal and the control socket.
#include "commands/url.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = duskwell::fuzz::text(data, size);
    if (const auto url = duskwell::URL::parse(text)) {
        (void)url->queryValue("minutes");
        (void)url->queryValue("mode");
    }
    // Encoding then decoding gives the text back.
    const auto decoded = duskwell::URL::percentDecode(duskwell::URL::percentEncode(text));
    if (!decoded || *decoded != text) __builtin_trap();
    return 0;
}
