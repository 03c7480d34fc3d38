// The controller's side of the agent hooks: which agents are connected, connecting and
// disconnecting them, and keeping the installed hook program current.
#include "agents/agent_kind.h"
#include "core/awake_controller.h"
#include "core/localization.h"
#include "integration/agent_integration.h"

namespace duskwell {

void AwakeController::refreshIntegrations() {
    std::map<AgentKind, bool> integrated;
    for (AgentKind kind : AgentKind::allCases()) {
        if (kind.supportsHooks()) integrated[kind] = AgentIntegration::isInstalled(kind);
    }
    publish(integrated_, std::move(integrated));
}

void AwakeController::setIntegration(AgentKind kind, bool on) {
    const auto error = on ? AgentIntegration::install(kind) : AgentIntegration::uninstall(kind);
    if (error) {
        setLastMessage(*error);
    } else if (const auto hint = on ? AgentIntegration::connectHint(kind) : std::nullopt) {
        setLastMessage(T(std::string(kind.title()) + " 연결됨. ", std::string(kind.title()) + " connected. ") + *hint);
    }
    refreshIntegrations();
}

void AwakeController::refreshHookScript() {
    for (const auto& [kind, on] : integrated_) {
        if (!on) continue;
        // A newer app brings a newer hook; a failure keeps the old one, which still works.
        (void)AgentIntegration::installScript();
        break;
    }
    // And a newer OpenCode plugin: connecting again rewrites it only when it differs.
    if (const auto it = integrated_.find(AgentKind::opencode); it != integrated_.end() && it->second)
        (void)AgentIntegration::install(AgentKind::opencode);
}

}  // namespace duskwell
