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
    const auto on = [this](AgentKind kind) {
        const auto it = integrated_.find(kind);
        return it != integrated_.end() && it->second;
    };
    // A newer app brings a newer hook, and a newer OpenCode plugin (connecting OpenCode again
    // installs the hook too and rewrites the plugin only when it differs). A failure keeps
    // the old ones, which still work.
    if (on(AgentKind::opencode)) {
        (void)AgentIntegration::install(AgentKind::opencode);
        return;
    }
    for (const auto& [kind, connected] : integrated_) {
        if (!connected) continue;
        (void)AgentIntegration::installScript();
        return;
    }
}

}  // namespace duskwell
