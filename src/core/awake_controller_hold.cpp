// The keep-awake self-check: a few seconds after a start and then every minute while a
// period runs, the system is asked whether what the period set up still holds. The probe
// blocks, so it runs on its own serial queue; the verdict comes back to the main queue.
// While idle nothing runs but one comparison per tick.
#include <string>

#include "core/awake_controller.h"
#include "core/dispatcher.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"

namespace duskwell {
namespace {

constexpr std::uint64_t firstCheckAfter = 3;  // ticks: let the inhibitor and the helper settle
constexpr std::uint64_t checkEvery = 60;
constexpr int alertPriority = 4;
constexpr int highPerformance = 2;

}  // namespace

void AwakeController::beginHoldChecks() {
    ++holdPeriod_;
    nextHoldCheck_ = tick_ + firstCheckAfter;
    holdEpisode_.reset();
    publish(held_, HoldVerdict{});
}

void AwakeController::endHoldChecks() {
    ++holdPeriod_;  // an answer still on its way belongs to the period that ended
    publish(held_, HoldVerdict{});
}

HoldExpectation AwakeController::holdExpectation() const {
    SettingsStore& store = *services().settings;
    HoldExpectation e;
    e.inhibitor = true;
    e.inhibitorGranted = assertion_.held();
    e.lid = store.boolean(SettingsKey::restoreLid).value_or(false);
    // Only what was really changed is expected back: an unchanged profile is the user's.
    if (store.integer(SettingsKey::restorePowerMode)) e.powerMode = highPerformance;
    if (store.integer(SettingsKey::restoreLowPower)) e.lowPowerMode = 0;
    return e;
}

void AwakeController::checkHold() {
    nextHoldCheck_ = tick_ + checkEvery;
    if (holdInFlight_) return;  // a slow bus: the answer still pending counts for this minute
    const HoldExpectation expected = holdExpectation();
    const std::uint64_t period = holdPeriod_;
    HoldProbe* probe = services().hold;
    if (!probe) {
        handleHold(period, expected, HoldObservation{});
        return;
    }
    if (!holdQueue_) holdQueue_ = services().dispatcher->makeSerialQueue("app.duskwell.hold-check");
    holdInFlight_ = true;
    const HoldQuery query = HoldCheck::query(expected, services().platform->processId());
    Dispatcher* main = services().dispatcher;
    std::weak_ptr<int> weak = life_;
    // On the check's queue: only the plain answer crosses back to the main queue.
    holdQueue_->post([this, weak, main, probe, query, expected, period] {
        const HoldObservation seen = probe->observe(query);
        main->post([this, weak, expected, seen, period] {
            if (!weak.lock()) return;
            holdInFlight_ = false;
            handleHold(period, expected, seen);
        });
    });
}

void AwakeController::handleHold(std::uint64_t period, const HoldExpectation& expected,
                                 const HoldObservation& seen) {
    if (period != holdPeriod_ || !isActive_) return;
    const HoldVerdict verdict = HoldCheck::judge(expected, seen);
    const bool changed = verdict != held_;
    publish(held_, verdict);
    if (holdEpisode_.record(verdict)) {
        const std::string title = HoldCheck::headline();
        const std::string body = HoldCheck::alertBody(verdict.failing);
        notify(title, body);
        phone_->send("⚠️ " + title, body, {"warning"}, alertPriority);
    }
    if (changed) writeStatusFile();
}

}  // namespace duskwell
