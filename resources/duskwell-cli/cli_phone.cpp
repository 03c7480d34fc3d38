// duskwell phone: the link, topic and QR code that connect a phone to this machine.
#include <unistd.h>

#include <iostream>

#include "cli_command.h"
#include "core/localization.h"
#include "core/services.h"
#include "phone/phone_link.h"
#include "phone/qr_code.h"

namespace duskwell::cli {
namespace {

int runPhone(const std::vector<std::string>& args) {
    auto format = PhoneLinkFormat::text;
    for (const auto& a : args) {
        if (a == "--json") format = PhoneLinkFormat::json;
        else return fail(usage, "unknown option '" + a + "' (usage: duskwell phone [--json])");
    }
    // Colours force black on white so that the code scans on any terminal background;
    // piped output stays plain.
    const QrStyle style = ::isatty(STDOUT_FILENO) ? QrStyle::ansi : QrStyle::plain;
    const auto report = phoneLinkReport(*services().settings, format, [style](const std::string& link) {
        auto code = makeQrCode(link);
        return code ? std::optional<std::string>(renderQrForTerminal(*code, style)) : std::nullopt;
    });
    if (!report) {
        return fail(refused, T("휴대폰 연결 정보가 아직 없어요. Duskwell을 한 번 실행하세요.",
                               "No phone link yet. Start Duskwell once first."));
    }
    std::cout << *report;
    return done;
}

const Registration registration{{
    "phone",
    "phone [--json]",
    "Show the link and QR code that connect your phone (--json: the link and topics only).",
    runPhone,
}};

}  // namespace
}  // namespace duskwell::cli
