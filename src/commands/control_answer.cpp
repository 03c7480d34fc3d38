// The controller's side of a control request; kept apart from the line format so that the
// terminal command links without the controller.
#include "commands/control_protocol.h"
#include "commands/url.h"
#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell::ControlProtocol {

Reply answer(AwakeController& controller, const std::string& request) {
    if (request == ping) return {ReplyKind::ok, {}};
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
