// The controller's side of a control request; kept apart from the line format so that the
// terminal command links without the controller.
#include "commands/control_config.h"
#include "commands/control_protocol.h"
#include "commands/phone_request.h"
#include "commands/url.h"
#include "core/awake_controller.h"
#include "core/calendar.h"
#include "core/clock.h"
#include "core/localization.h"
#include "core/services.h"

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
    if (auto settings = answerSettings(controller, request)) return *settings;

    const auto url = URL::parse(request);
    const std::string host = url && url->host ? *url->host : std::string();
    const bool wasActive = controller.isActive();
    if (host == "extend" && wasActive && !controller.endDate())
        return {ReplyKind::error, T("이 세션에는 끝나는 시간이 없어 연장할 수 없어요.",
                                    "This session has no end time, so there is nothing to extend.")};
    // "at=HH:MM": the until mode's end, the next such local time.
    if (host == "start" && url->queryValue("at")) {
        const auto clock = parseClock(*url->queryValue("at"));
        if (!clock) return {ReplyKind::error, T("시각은 HH:MM 형식이에요.", "The time must be HH:MM.")};
        const auto when = Calendar::nextMatching(services().clock->now(), clock->first, clock->second);
        if (!when) return {ReplyKind::error, T("시각은 HH:MM 형식이에요.", "The time must be HH:MM.")};
        controller.setUntilDate(*when);
    }
    if (!controller.handleURL(request)) return {ReplyKind::notHandled, {}};

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
