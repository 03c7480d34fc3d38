// The phone server's poll answer: one JSON object per line, checked against the secret.
#include "fuzz_input.h"
#include "phone/phone_notifier.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto p = duskwell::fuzz::parts(duskwell::fuzz::text(data, size), 2);
    (void)duskwell::PhoneNotifier::parsePollAnswer(p[1], p[0]);
    return 0;
}
