// duskwell phone: the link, topic and QR code that connect a phone to this machine.
#include <iostream>

#include "cli_command.h"
#include "cli_text.h"
#include "core/localization.h"
#include "core/services.h"
#include "phone/phone_link.h"
#include "phone/qr_code.h"

namespace duskwell::cli {

int runPhoneSwitch(const std::vector<std::string>& args);  // cli_config.cpp

namespace {

int runPhone(const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a == "on" || a == "off" || a == "test") return runPhoneSwitch(args);
    auto format = PhoneLinkFormat::text;
    for (const auto& a : args) {
        if (a == "--json") format = PhoneLinkFormat::json;
        else return fail(usage, say(Msg::unexpected, {a, "phone"}));
    }
    // Colours force black on white so that the code scans on any terminal background;
    // piped output, NO_COLOR and TERM=dumb stay plain.
    const QrStyle style = colourAllowed() ? QrStyle::ansi : QrStyle::plain;
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
    "phone [on|off|test] [--json]",
    {"Show the link and QR code that connect your phone; switch phone alerts on or off; send a test alert.",
     "폰을 연결하는 링크와 QR 코드를 보여줘요. 폰 알림을 켜거나 끄고, 테스트 알림을 보내요."},
    {{"on|off", {"switch phone alerts on or off", "폰 알림 켜기/끄기"}},
     {"test", {"send a test alert through the running Duskwell and print the outcome",
               "실행 중인 Duskwell로 테스트 알림을 보내고 결과를 출력"}},
     {"--json", {"the link and topics only: {\"subscribeURL\", \"topic\", \"controlTopic\"}; with on|off|test: "
                 "{\"ok\", \"enabled\"|\"result\"}",
                 "링크와 토픽만: {\"subscribeURL\", \"topic\", \"controlTopic\"}. on|off|test와 함께: "
                 "{\"ok\", \"enabled\"|\"result\"}"}}},
    runPhone,
}};

}  // namespace
}  // namespace duskwell::cli
