#include "core/awake_controller.h"

#include <algorithm>
#include <limits>

#include "agents/agent_monitor.h"
#include "core/app_config.h"
#include "core/calendar.h"
#include "core/clock.h"
#include "core/dispatcher.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "power/command_runner.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

SettingsStore& store() { return *services().settings; }

int readInt(const char* key, int fallback, std::int64_t low = std::numeric_limits<int>::min(),
            std::int64_t high = std::numeric_limits<int>::max()) {
    return static_cast<int>(std::clamp<std::int64_t>(store().integer(key).value_or(fallback), low, high));
}
bool readBool(const char* key, bool fallback) { return store().boolean(key).value_or(fallback); }

// The first full hour after `now`, plus three hours.
Date initialUntilDate(Date now) {
    const Date hour = Calendar::nextMatching(now, std::nullopt, 0).value_or(now);
    return addSeconds(hour, 3 * 3600);
}

}  // namespace

AwakeController::AwakeController() {
    const Date start = services().clock->now();
    now_ = start;
    lastBusy_ = start;
    phone_ = std::make_unique<PhoneNotifier>();
    monitor_ = std::make_unique<AgentMonitor>();
    battery_ = SystemInfo::battery();
    lidClosed_ = SystemInfo::lidClosed();
    thermal_ = SystemInfo::thermalState();
    helperInstalled_ = PowerHelper::isInstalled();
    launchAtLogin_ = services().platform->loginItemEnabled();

    store().registerDefaults({
        {SettingsKey::mode, std::int64_t{0}},
        {SettingsKey::selectedMinutes, std::int64_t{60}},
        {SettingsKey::autoCapHours, std::int64_t{8}},
        {SettingsKey::maxPerformance, true},
        {SettingsKey::batteryFloor, std::int64_t{10}},
        {SettingsKey::stopOnHeat, true},
        {SettingsKey::lockOnLidClose, true},
    });
    mode_ = KeepMode::fromRawValue(store().integer(SettingsKey::mode).value_or(0)).value_or(KeepMode::auto_);
    selectedMinutes_ = readInt(SettingsKey::selectedMinutes, 60, 0, AppConfig::maxPeriodMinutes);
    autoCapHours_ = readInt(SettingsKey::autoCapHours, 8, 0, AppConfig::maxPeriodMinutes / 60);
    maxPerformance_ = readBool(SettingsKey::maxPerformance, true);
    batteryFloor_ = readInt(SettingsKey::batteryFloor, 10);
    stopOnHeat_ = readBool(SettingsKey::stopOnHeat, true);
    lockOnLidClose_ = readBool(SettingsKey::lockOnLidClose, true);

    untilDate_ = initialUntilDate(start);

    bag_.push_back(phone_->changes().subscribe([this] { announce(); }));

    recoverPowerSettings();

    refreshIntegrations();
    refreshHookScript();

    refreshCLI();

    std::weak_ptr<int> weak = life_;
    timer_ = services().dispatcher->scheduleRepeating(1.0, [this, weak] {
        if (weak.lock()) onTick();
    });

    services().power->observeThermalState([this, weak](int state) {
        if (weak.lock()) publish(thermal_, state);
    });

    // Runs on the main thread.
    services().platform->setNotificationButtonHandler([this, weak](const std::string& id) {
        if (weak.lock()) handleURL(id);
    });
    if (canNotify()) {
        services().platform->requestNotificationAuthorization();
        refreshPermissions();
    }

    if (!frozen_) scanAgents();
}

AwakeController::~AwakeController() { services().platform->setNotificationButtonHandler({}); }

void AwakeController::setMode(KeepMode mode) {
    publish(mode_, mode);
    store().setInteger(SettingsKey::mode, mode.rawValue());
}

void AwakeController::setSelectedMinutes(int minutes) {
    minutes = std::clamp(minutes, 0, AppConfig::maxPeriodMinutes);
    publish(selectedMinutes_, minutes);
    store().setInteger(SettingsKey::selectedMinutes, minutes);
}

void AwakeController::setUntilDate(Date date) { publish(untilDate_, date); }

void AwakeController::setAutoCapHours(int hours) {
    hours = std::clamp(hours, 0, AppConfig::maxPeriodMinutes / 60);
    publish(autoCapHours_, hours);
    store().setInteger(SettingsKey::autoCapHours, hours);
}

void AwakeController::setMaxPerformance(bool on) {
    publish(maxPerformance_, on);
    store().setBool(SettingsKey::maxPerformance, on);
}

void AwakeController::setBatteryFloor(int percent) {
    publish(batteryFloor_, percent);
    store().setInteger(SettingsKey::batteryFloor, percent);
}

void AwakeController::setStopOnHeat(bool on) {
    publish(stopOnHeat_, on);
    store().setBool(SettingsKey::stopOnHeat, on);
}

void AwakeController::setLockOnLidClose(bool on) {
    publish(lockOnLidClose_, on);
    store().setBool(SettingsKey::lockOnLidClose, on);
}

void AwakeController::setScreen(Screen screen) { publish(screen_, screen); }

void AwakeController::setLastMessage(std::optional<std::string> message) {
    publish(lastMessage_, std::move(message));
}

bool AwakeController::restorePending() {
    return store().boolean(SettingsKey::restoreLid).value_or(false) ||
           store().integer(SettingsKey::restoreLowPower).has_value() ||
           store().integer(SettingsKey::restorePowerMode).has_value();
}

void AwakeController::sleepSoon(double seconds) {
    services().dispatcher->postAfter(seconds, [] {
        runCommand(AppConfig::sleepNowProgram(), {AppConfig::sleepNowArgument()});
    });
}

}  // namespace duskwell
