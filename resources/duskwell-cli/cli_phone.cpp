// duskwell phone: the link, topic and QR code that connect a phone to this machine; with
// --server / --token, the self-hosted ntfy server the alerts go through.
#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>
#include <nlohmann/json.hpp>

#include "cli_command.h"
#include "commands/control_socket.h"
#include "commands/phone_request.h"
#include "core/app_config.h"
#include "cli_text.h"
#include "core/localization.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "phone/ntfy_access.h"
#include "phone/phone_link.h"
#include "phone/qr_code.h"

namespace duskwell::cli {

int runPhoneSwitch(const std::vector<std::string>& args);  // cli_config.cpp

namespace {


// Lines the QR code may take on a terminal: all but the one the prompt returns to.
std::optional<int> terminalRows() {
    winsize size{};
    if (!::isatty(STDOUT_FILENO) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0)
        return std::nullopt;
    return size.ws_row - 1;
}

// What the options asked to change; the token is read from standard input for "--token -",
// so that it stays out of the shell's history and the process list.
struct Change {
    std::optional<std::string> server;                 // "" returns to the public server
    std::optional<std::optional<std::string>> token;   // set, or removed (inner nothing)
    bool any() const { return server || token; }
};

// Asks the running app first: it owns the settings while it runs and would write its own
// copy over the file. Without an app the settings are written here.
int apply(const Change& change, PhoneLinkFormat format) {
    std::vector<std::string> requests;
    if (change.server) requests.push_back(PhoneRequest::server(*change.server));
    if (change.token) requests.push_back(PhoneRequest::token(*change.token));

    bool viaApp = false;
    for (const auto& request : requests) {
        const ControlResponse r = sendControlRequest(AppConfig::controlSocket(), request, 10);
        if (r.outcome == ControlResponse::Outcome::notRunning) break;
        if (r.outcome == ControlResponse::Outcome::failed)
            return fail(refused, T("Duskwell에 연결하지 못했어요: ", "couldn't reach Duskwell: ") + r.text);
        if (r.reply.kind != ControlProtocol::ReplyKind::ok)
            return fail(refused, r.reply.text.empty() ? T("Duskwell이 거절했어요.", "Duskwell refused the change.")
                                                      : r.reply.text);
        viaApp = true;
    }
    SettingsStore& settings = *services().settings;
    if (!viaApp) {
        if (change.server) {
            if (change.server->empty()) settings.remove(SettingsKey::phoneServer);
            else settings.setString(SettingsKey::phoneServer, *NtfyAccess::normalizedServer(*change.server));
        }
        if (change.token) {
            if (*change.token) settings.setString(SettingsKey::phoneToken, **change.token);
            else settings.remove(SettingsKey::phoneToken);
        }
    }

    // What is in force now, as the app sees it; never the token itself.
    const std::string server = change.server ? (change.server->empty() ? NtfyAccess::publicServer()
                                                                       : *NtfyAccess::normalizedServer(*change.server))
                                             : NtfyAccess::server(settings);
    const bool tokenSet = change.token ? change.token->has_value() : NtfyAccess::token(settings).has_value();
    (void)format;  // under --json `succeed` prints the object
    return succeed({{"server", server}, {"tokenSet", tokenSet}},
                   T("휴대폰 알림 서버: ", "Phone alerts server: ") + server +
                       (tokenSet ? T(" (액세스 토큰 있음)", " (with an access token)") : "") + "\n" +
                       T("`duskwell phone`으로 새 링크와 QR 코드를 보세요.",
                         "Run `duskwell phone` for the new link and QR code.") + "\n");
}

int runPhone(const std::vector<std::string>& args) {
    for (const auto& a : args)
        if (a == "on" || a == "off" || a == "test") return runPhoneSwitch(args);
    auto format = PhoneLinkFormat::text;
    Change change;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--json") {
            format = PhoneLinkFormat::json;
        } else if (a == "--server" && hasValue) {
            const std::string& url = args[++i];
            if (!NtfyAccess::normalizedServer(url))
                return fail(usage, T("ntfy 서버 주소가 아니에요: ", "not an ntfy server address: ") + url +
                                       " (https://host[:port])");
            change.server = url;
        } else if (a == "--public-server") {
            change.server = "";
        } else if (a == "--token" && hasValue) {
            std::string token = args[++i];
            if (token == "-" && !std::getline(std::cin, token)) token.clear();
            if (!token.empty() && token.back() == '\r') token.pop_back();
            // The value is never echoed: it may be the token itself.
            if (!NtfyAccess::validToken(token))
                return fail(usage, T("액세스 토큰은 공백 없는 인쇄 가능한 문자 1~256자여야 해요.",
                                     "an access token is 1 to 256 printable characters without blanks"));
            change.token = std::optional<std::string>(token);
        } else if (a == "--no-token") {
            change.token = std::optional<std::string>();
        } else {
            return fail(usage, say(Msg::unexpected, {a, "phone"}));
        }
    }
    if (change.any()) return apply(change, format);

    // Colours force black on white so that the code scans on any terminal background;
    // piped output, NO_COLOR and TERM=dumb stay plain.
    const QrStyle style = colourAllowed() ? QrStyle::ansi : QrStyle::plain;
    const auto report = phoneLinkReport(*services().settings, format, [style](const std::string& link) {
        const auto rows = terminalRows();
        if (auto fitted = drawQrForTerminal(link, style, rows)) return fitted;
        // Too short for any code: the smallest one, and how tall the window must be.
        auto code = makeQrCode(link, QrLevel::low);
        if (!code) return std::optional<std::string>();
        const QrFit smallest{QrLevel::low, 1, *code};
        return std::optional<std::string>(
            T("(QR 코드 전체를 보려면 창 높이가 ", "(For the whole QR code the window needs ") +
            std::to_string(smallest.rows() + 1) + T("줄 이상이어야 해요.)", " lines or more.)") + "\n" +
            renderQrForTerminal(smallest.code, style, smallest.quietZone));
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
    "phone [on|off|test] [--json] [--server URL|--public-server] [--token T|--token -|--no-token]",
    {"Show the link and QR code that connect your phone; switch phone alerts on or off; send a test alert; "
     "set a self-hosted ntfy server and its access token.",
     "폰을 연결하는 링크와 QR 코드를 보여줘요. 폰 알림을 켜거나 끄고, 테스트 알림을 보내고, 직접 운영하는 ntfy 서버와 "
     "액세스 토큰을 정해요."},
    {{"on|off", {"switch phone alerts on or off", "폰 알림 켜기/끄기"}},
     {"test", {"send a test alert through the running Duskwell and print the outcome",
               "실행 중인 Duskwell로 테스트 알림을 보내고 결과를 출력"}},
     {"--server URL", {"send alerts through this ntfy server (https://host[:port])",
                       "이 ntfy 서버로 알림 보내기 (https://호스트[:포트])"}},
     {"--public-server", {"go back to the public ntfy server", "공개 ntfy 서버로 돌아가기"}},
     {"--token T", {"the server's access token, sent as a Bearer header; '-' reads it from standard input",
                    "서버의 액세스 토큰(Bearer 헤더로 보냄). '-'이면 표준 입력에서 읽기"}},
     {"--no-token", {"remove the access token", "액세스 토큰 지우기"}},
     {"--json", {"the link and topics only: {\"subscribeURL\", \"topic\", \"controlTopic\", \"server\", \"tokenSet\"}; "
                 "with on|off|test: {\"ok\", \"enabled\"|\"result\"}; with --server/--token: {\"server\", \"tokenSet\"}",
                 "링크와 토픽만: {\"subscribeURL\", \"topic\", \"controlTopic\", \"server\", \"tokenSet\"}. on|off|test와 함께: "
                 "{\"ok\", \"enabled\"|\"result\"}. --server/--token과 함께: {\"server\", \"tokenSet\"}"}}},
    runPhone,
}};

}  // namespace
}  // namespace duskwell::cli
