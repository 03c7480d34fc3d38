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
    } else if (on && kind == AgentKind::codex) {
        // Codex does not run a hook it did not install itself until the user approves it.
        setLastMessage(T("Codex를 연결했습니다. Codex는 새 훅을 실행하기 전에 검토하고 신뢰할지 묻습니다. "
                         "다음에 Codex를 열 때 Duskwell 훅을 승인해 주세요.",
                         "Codex connected. Codex asks you to review and trust new hooks before it runs "
                         "them: approve the Duskwell hook the next time you open Codex."));
    }
    refreshIntegrations();
}

void AwakeController::refreshHookScript() {
    for (const auto& [kind, on] : integrated_) {
        if (!on) continue;
        // A newer app brings a newer hook; a failure keeps the old one, which still works.
        (void)AgentIntegration::installScript();
        return;
    }
}

}  // namespace duskwell
