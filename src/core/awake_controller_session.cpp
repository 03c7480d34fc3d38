// The keep-awake period: start, stop, extend, toggle and the quantities derived from it.
#include <algorithm>
#include <cmath>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/calendar.h"
#include "core/clock.h"
#include "core/localization.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "power/command_runner.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

SettingsStore& store() { return *services().settings; }
Date currentDate() { return services().clock->now(); }

}  // namespace

void AwakeController::start(std::optional<KeepMode> modeArg, std::optional<int> minutesArg) {
    if (busy_) return;
    const KeepMode mode = modeArg.value_or(mode_);
    const int minutes = minutesArg.value_or(selectedMinutes_);

    // The lid-closed keep-awake needs the helper; the first start installs it (a password
    // prompt that blocks, so the buttons show `busy` meanwhile).
    if (!PowerHelper::isInstalled()) {
        publish(busy_, true);
        if (const auto error = PowerHelper::install()) {
            setLastMessage(error->localizedDescription());
            publish(helperInstalled_, false);
            publish(busy_, false);
            return;
        }
        publish(helperInstalled_, PowerHelper::isInstalled());
        if (!helperInstalled_) {
            setLastMessage(T("권한을 확인하지 못했습니다.", "Couldn't verify the permission."));
            publish(busy_, false);
            return;
        }
        publish(busy_, false);
    }

    // A running period already holds every means; a second start only re-aims it.
    if (!isActive_) {
        if (!PowerHelper::run({"lid-on"})) {
            setLastMessage(T("전원 설정을 바꾸지 못했습니다.", "Couldn't change power settings."));
            return;
        }
        // Recorded before anything relies on it, so a crash is repaired at the next launch.
        store().setBool(SettingsKey::restoreLid, true);
        applyPerformance();
        assertion_.acquire();
        startWatchdog();
        beginHoldChecks();
    }

    const Date begin = currentDate();
    std::optional<Date> end;
    switch (mode.value()) {
        case KeepMode::auto_:
            if (autoCapHours_ >= 1) end = addSeconds(begin, std::min(autoCapHours_ * 60, AppConfig::maxPeriodMinutes) * 60.0);
            break;
        case KeepMode::timer:
            if (minutes >= 1) end = addSeconds(begin, std::min(minutes, AppConfig::maxPeriodMinutes) * 60.0);
            break;
        case KeepMode::until:
            end = nextOccurrence(untilDate_);
            break;
    }

    publish(isActive_, true);
    publish(now_, begin);
    publish(startDate_, std::optional<Date>(begin));
    publish(activeMode_, mode);
    publish(lastBusy_, begin);
    idleWarned_ = false;
    warnedBattery_ = false;
    warnedHeat_ = false;
    publish(endDate_, end);
    setLastMessage(std::nullopt);

    refreshSystem();
    if (!frozen_) scanAgents();

    if (phone_->enabled()) {
        const std::string promise = mode == KeepMode::auto_
            ? T("AI 작업이 끝나면 알려드릴게요.", "I'll let you know when your AI tasks finish.")
            : T("시간이 다 되면 알려드릴게요.", "I'll let you know when time is up.");
        phone_->send(T("Duskwell 시작됨", "Duskwell started"),
                     TM("뚜껑을 닫아도 {machine:이} 계속 실행돼요. ", "Your {machine} keeps running with the lid closed. ") + promise,
                     {"crescent_moon"});
    }
}

void AwakeController::stop(std::optional<std::string> reason) {
    const bool lidChanged = store().boolean(SettingsKey::restoreLid).value_or(false);
    if (!isActive_ && !lidChanged) return;

    if (!reason && isActive_ && phone_->enabled()) {
        phone_->send(T("Duskwell 중지됨", "Duskwell stopped"),
                     TM("수동으로 중지했어요. {machine:이} 평소처럼 잠자기해요.", "Stopped manually. Your {machine} will sleep normally."),
                     {"zzz"});
    }

    // Everything is given back even when a step fails: a failed "lid-off" is logged by
    // the helper call, and the key is cleared all the same (no retry loop at every stop).
    PowerHelper::run({"lid-off"});
    restorePerformance();
    store().setBool(SettingsKey::restoreLid, false);
    assertion_.release();
    stopWatchdog();
    endHoldChecks();

    publish(isActive_, false);
    publish(startDate_, std::optional<Date>());
    publish(endDate_, std::optional<Date>());

    if (!reason) return;
    setLastMessage(*reason);
    notify(std::string(AppConfig::name), *reason);
    phone_->send(std::string(AppConfig::name), *reason, {"zzz"});
    // An automatic stop with the lid shut would otherwise leave the Mac running until the
    // idle timer fires; a manual stop only hands control back.
    if (SystemInfo::lidClosed() == true)
        runCommand(AppConfig::sleepNowProgram(), {AppConfig::sleepNowArgument()});
}

Date AwakeController::cappedEnd(Date end) {
    return std::min(end, addSeconds(currentDate(), AppConfig::maxPeriodMinutes * 60.0));
}

void AwakeController::extend(int minutes) {
    if (!isActive_) return;
    if (endDate_) {
        publish(endDate_, std::optional<Date>(cappedEnd(addSeconds(*endDate_, minutes * 60.0))));
        return;
    }
    // An uncapped auto period has no end to move: restart its quiet countdown instead. A
    // capped one moves its cap above and leaves the countdown alone, on purpose.
    if (activeMode_ == KeepMode::auto_) {
        const Date t = currentDate();
        publish(now_, t);
        publish(lastBusy_, t);
        idleWarned_ = false;
    }
}

void AwakeController::toggle() {
    if (isActive_) stop();
    else start();
}

Date AwakeController::nextOccurrence(Date of) const {
    const auto hm = Calendar::hourMinute(of);
    return Calendar::nextMatching(currentDate(), hm.hour, hm.minute).value_or(of);
}

std::optional<double> AwakeController::remaining() const {
    if (!endDate_) return std::nullopt;
    return std::max(0.0, secondsBetween(now_, *endDate_));
}

std::optional<double> AwakeController::idleRemaining() const {
    if (!isActive_ || activeMode_ != KeepMode::auto_ || agents_.busy()) return std::nullopt;
    return std::max(0.0, AppConfig::idleGrace - secondsBetween(lastBusy_, now_));
}

double AwakeController::progress() const {
    if (!isActive_) return 0;
    if (activeMode_ == KeepMode::auto_) {
        const auto idle = idleRemaining();
        if (!idle) return 1;
        return std::min(1.0, *idle / AppConfig::idleGrace);
    }
    if (!startDate_ || !endDate_) return 1;
    const double total = secondsBetween(*startDate_, *endDate_);
    if (total <= 0) return 0;
    const double p = secondsBetween(*startDate_, now_) / total;
    if (std::isnan(p) || p < 0) return 0;
    return std::min(1.0, p);
}

}  // namespace duskwell
