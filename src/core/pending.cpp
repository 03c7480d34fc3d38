// Temporary definitions that let the controller link while its neighbours are built.
// Each block is removed by the change that implements it; none survives into a release.
#include "agents/agent_monitor.h"
#include "core/awake_controller.h"
#include "core/dispatcher.h"
#include "power/power_helper.h"

namespace duskwell {

// ---- session stop, needed by uninstallHelper; remove when the session change lands ----
void AwakeController::stop(std::optional<std::string>) {}
// ---- end session stop ----

// ---- session, tick, permissions ----
void AwakeController::onTick() {}
bool AwakeController::canNotify() { return false; }
void AwakeController::refreshPermissions() {}
void AwakeController::scanAgents() {}
// ---- end session ----

// ---- command surfaces ----
void AwakeController::refreshCLI() {}
// ---- end command surfaces ----

}  // namespace duskwell
