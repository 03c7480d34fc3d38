// The controller's side of a control request; kept apart from the line format so that the
// terminal command links without the controller.
#include "commands/control_protocol.h"
#include "commands/phone_request.h"
#include "commands/url.h"
#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell::ControlProtocol {
namespace {

// "phone-server ..." and "phone-token ...": nothing when the request is neither.
std::optional<Reply> answerPhoneRequest(AwakeController& controller, const std::string& request) {
    auto value = [&](std::string_view verb) -> std::optional<std::optional<std::string>> {
        if (request == verb) return std::optional<std::string>();
        if (request.size() > verb.size() + 1 && request.compare(0, verb.size(), verb) == 0 &&
            request[verb.size()] == ' ')
            return std::optional<std::string>(request.substr(verb.size() + 1));
        return std::nullopt;
    };
    if (const auto url = value(PhoneRequest::serverVerb)) {
        if (controller.setPhoneServer(url->value_or(""))) return Reply{ReplyKind::ok, {}};
        return Reply{ReplyKind::error, T("ntfy 서버 주소가 올바르지 않아요 (https://호스트[:포트]).",
                                         "Not an ntfy server address (https://host[:port]).")};
    }
    if (const auto token = value(PhoneRequest::tokenVerb)) {
        if (controller.setPhoneToken(*token)) return Reply{ReplyKind::ok, {}};
        return Reply{ReplyKind::error, T("액세스 토큰은 공백 없는 인쇄 가능한 문자여야 해요.",
                                         "An access token is printable characters without blanks.")};
    }
    return std::nullopt;
}

}  // namespace

Reply answer(AwakeController& controller, const std::string& request) {
    if (request == ping) return {ReplyKind::ok, {}};
    if (auto reply = answerPhoneRequest(controller, request)) return *reply;
    const bool wasActive = controller.isActive();
    if (!controller.handleURL(request)) return {ReplyKind::notHandled, {}};

    const auto url = URL::parse(request);
    const std::string host = url && url->host ? *url->host : std::string();
    const bool wantedStart = host == "start" || (host == "toggle" && !wasActive);
    if (wantedStart && !controller.isActive()) {
        return {ReplyKind::error,
                controller.lastMessage().value_or(T("세션을 시작하지 못했어요.", "Couldn't start a session."))};
    }
    if (host == "extend" && !wasActive)
        return {ReplyKind::error, T("실행 중인 세션이 없어요.", "No session is running.")};
    return {ReplyKind::ok, {}};
}

}  // namespace duskwell::ControlProtocol
