// ~/.duskwell/status.json as `duskwell status` reads it, and the strict parser every
// settings file goes through.
#include "commands/status_document.h"
#include "core/strict_json.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = duskwell::fuzz::text(data, size);
    (void)duskwell::StatusDocument::read(text);
    const auto exact = duskwell::parseStrictJson(text, duskwell::JsonNumbers::exact);
    if (exact.ok()) {
        // What was accepted exactly prints and reads back as the same document.
        const auto printed = exact.value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
        const auto again = duskwell::parseStrictJson(printed, duskwell::JsonNumbers::exact);
        if (!again.ok()) __builtin_trap();
    }
    return 0;
}
