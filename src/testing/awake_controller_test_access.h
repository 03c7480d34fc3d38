#pragma once
// The one way tests reach the controller's private state and operations. Shared by every
// test file, so the definition is the same in all of them.
#include <optional>
#include <utility>

#include "core/awake_controller.h"
#include "power/command_runner.h"

namespace duskwell {

struct AwakeControllerTestAccess {
    // state the views render
    static void viewsSetAgents(AwakeController& c, AgentSnapshot s) { c.agents_ = std::move(s); }
    static void viewsSetBusy(AwakeController& c, bool busy) { c.busy_ = busy; }
    static void viewsSetNow(AwakeController& c, Date now) { c.now_ = now; }
    static void viewsSetUpdate(AwakeController& c, std::optional<UpdateInfo> u) { c.update_ = std::move(u); }
    static void viewsSetHelperInstalled(AwakeController& c, bool on) { c.helperInstalled_ = on; }
    static void viewsSetIntegrated(AwakeController& c, AgentKind kind, bool on) { c.integrated_[kind] = on; }
    static void viewsSetNotificationsAllowed(AwakeController& c, std::optional<bool> on) {
        c.notificationsAllowed_ = on;
    }
    static void viewsSetThermal(AwakeController& c, int level) { c.thermal_ = level; }

    // power
    static void setActive(AwakeController& c, bool active) { c.isActive_ = active; }
    static void applyPerformance(AwakeController& c) { c.applyPerformance(); }
    static void restorePerformance(AwakeController& c) { c.restorePerformance(); }
    static void startWatchdog(AwakeController& c) { c.startWatchdog(); }
    static void stopWatchdog(AwakeController& c) { c.stopWatchdog(); }
    static int watchdogPid(const AwakeController& c) { return c.watchdog_ ? c.watchdog_->pid() : -1; }

    // tick, scans and phone commands
    static void completeScan(AwakeController& c, AgentSnapshot s) { c.handleScan(std::move(s)); }
    static void phoneCommand(AwakeController& c, PhoneNotifier::Command command) { c.handlePhone(command); }
    static void tick(AwakeController& c) { c.onTick(); }
    static bool idleWarned(const AwakeController& c) { return c.idleWarned_; }
};

}  // namespace duskwell
