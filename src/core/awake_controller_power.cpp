// The controller's power side: performance mode, the crash watchdog, launch recovery, the
// helper's install and removal, and the system readings.
#include "core/awake_controller.h"

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "commands/atomic_file.h"
#include "core/app_config.h"

#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "power/command_runner.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

SettingsStore& settings() { return *services().settings; }

// A failed restore still drops its key: the app never retries one.
void restoreRecordedPerformance() {
    if (const auto lowPower = settings().integer(SettingsKey::restoreLowPower)) {
        PowerHelper::run({"lowpower", std::to_string(*lowPower)});
        settings().remove(SettingsKey::restoreLowPower);
    }
    if (const auto powerMode = settings().integer(SettingsKey::restorePowerMode)) {
        PowerHelper::run({"powermode", std::to_string(*powerMode)});
        settings().remove(SettingsKey::restorePowerMode);
    }
}

}  // namespace

void AwakeController::applyPerformance() {
    if (!maxPerformance_ || perfApplied_) return;
    // Only what was really changed is recorded, so a restore never writes a value back
    // that was already the wanted one.
    if (SystemInfo::batterySetting("lowpowermode") == 1 && PowerHelper::run({"lowpower", "0"}))
        settings().setInteger(SettingsKey::restoreLowPower, 1);
    const auto powerMode = SystemInfo::batterySetting("powermode");
    if (powerMode && *powerMode != 2 && PowerHelper::run({"powermode", "2"}))
        settings().setInteger(SettingsKey::restorePowerMode, *powerMode);
    publish(perfApplied_, true);
}

void AwakeController::restorePerformance() {
    restoreRecordedPerformance();
    publish(perfApplied_, false);
}

void AwakeController::startWatchdog() {
    // The restore values are copied into the script, so every change of them needs a
    // fresh watchdog. A launch failure leaves no watchdog and is not reported.
    // Its token lets the next launch call it off (see recoverPowerSettings). Without a
    // token file it runs unguarded: restoring late beats never restoring.
    std::optional<PowerHelper::WatchdogGuard> guard;
    char token[33];
    std::snprintf(token, sizeof token, "%016llx%016llx", static_cast<unsigned long long>(std::random_device{}()) << 32 ^ std::random_device{}(),
                  static_cast<unsigned long long>(std::random_device{}()) << 32 ^ std::random_device{}());
    if (!createPrivateDirectories(AppConfig::supportDir()) && writeFileAtomically(AppConfig::watchdogToken(), token))
        guard = PowerHelper::WatchdogGuard{AppConfig::watchdogToken(), token};
    const std::string script = PowerHelper::watchdogScript(services().platform->processId(),
                                                           settings().integer(SettingsKey::restoreLowPower),
                                                           settings().integer(SettingsKey::restorePowerMode), guard);
    watchdog_ = services().commands->spawnDetached("/bin/sh", {"-c", script});
}

void AwakeController::stopWatchdog() {
    if (!watchdog_) return;
    watchdog_->terminate();
    watchdog_.reset();
}

void AwakeController::recoverPowerSettings() {
    // A watchdog of an earlier run that is still waiting (its app was killed seconds ago)
    // would give the lid back in the middle of this run's first period: call it off. What
    // it would have restored is restored here.
    std::error_code ec;
    std::filesystem::remove(AppConfig::watchdogToken(), ec);
    // Changes still recorded mean the last run ended without giving them back and its
    // watchdog did not finish the job either.
    if (!restorePending()) return;
    if (PowerHelper::isInstalled()) {
        PowerHelper::run({"lid-off"});
        restoreRecordedPerformance();
    }
    settings().setBool(SettingsKey::restoreLid, false);
}

void AwakeController::setPerformance(bool on) {
    setMaxPerformance(on);
    if (!isActive_) return;  // takes effect at the next start
    if (on) applyPerformance();
    else restorePerformance();
    stopWatchdog();
    startWatchdog();
}

void AwakeController::reinstallHelper() {
    if (const auto error = PowerHelper::install()) setLastMessage(error->localizedDescription());
    else setLastMessage(T("전원 권한이 설치되었습니다.", "Power permission installed."));
    publish(helperInstalled_, PowerHelper::isInstalled());
}

void AwakeController::uninstallHelper() {
    // Lid-off and the restores must run while the helper still exists; no notice is sent.
    stop();
    if (const auto error = PowerHelper::uninstall()) setLastMessage(error->localizedDescription());
    else setLastMessage(T("전원 권한을 제거했습니다.", "Power permission removed."));
    publish(helperInstalled_, PowerHelper::isInstalled());
}

void AwakeController::refreshSystem() {
    publish(battery_, SystemInfo::battery());
    publish(lidClosed_, SystemInfo::lidClosed());
    publish(thermal_, SystemInfo::thermalState());
}

void AwakeController::turnOffDisplay() { SystemInfo::displaySleepNow(); }

}  // namespace duskwell
