// The one-second tick, its stop rules, the agent scan's completion and local notifications.
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "agents/agent_monitor.h"
#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/clock.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"

namespace duskwell {
namespace {

constexpr std::uint64_t statusEvery = 5;
constexpr std::uint64_t firstUpdateCheck = 10;
constexpr std::uint64_t updateEvery = 21600;
constexpr std::uint64_t fastScanEvery = 5;
constexpr std::uint64_t slowScanEvery = 30;
constexpr std::uint64_t activePollEvery = 10;
constexpr std::uint64_t idlePollEvery = 20;
constexpr std::uint64_t displayCheckEvery = 3;
constexpr int batteryWarningMargin = 10;
constexpr int thermalSerious = 2;
constexpr int thermalCritical = 3;
constexpr int alertPriority = 4;
constexpr bool withActions = true;

}  // namespace

void AwakeController::onTick() {
    publish(now_, services().clock->now());
    if (tick_ == std::numeric_limits<std::uint64_t>::max()) std::abort();
    ++tick_;
    // The lid as known before this tick's readings: the refresh below stores the new
    // state, and a close seen first by the refresh must still count as "just closed".
    const std::optional<bool> lidBefore = lidClosed_;

    if (tick_ % statusEvery == 0) {
        refreshSystem();
        writeStatusFile();
    }
    if (tick_ == firstUpdateCheck || tick_ % updateEvery == 0) checkForUpdate();

    const bool autoActive = isActive_ && activeMode_ == KeepMode::auto_;
    const std::uint64_t scanEvery = (autoActive || popoverVisible_) ? fastScanEvery : slowScanEvery;
    if (tick_ % scanEvery == 0 && !frozen_) scanAgents();

    if (phone_->enabled() && tick_ % (isActive_ ? activePollEvery : idlePollEvery) == 0) {
        std::weak_ptr<int> weak = life_;
        phone_->poll([this, weak](PhoneNotifier::Command command) {
            if (weak.lock()) handlePhone(command);
        });
    }

    if (!isActive_) return;
    if (tick_ >= nextHoldCheck_) checkHold();

    // Lid: lock on close, and keep the internal panel dark while the Mac keeps running.
    const std::optional<bool> lid = SystemInfo::lidClosed();
    if (lid != lidClosed_) publish(lidClosed_, lid);
    if (lid == true) {
        if (lidBefore != true) {
            if (lockOnLidClose_) ScreenLock::lock();
            if (!SystemInfo::displays().hasExternal) SystemInfo::displaySleepNow();
        } else if (tick_ % displayCheckEvery == 0) {
            const DisplaySummary displays = SystemInfo::displays();
            if (!displays.hasExternal && displays.builtinAwake) SystemInfo::displaySleepNow();
        }
    }

    // The stop rules, in their order of precedence; a stop ends the tick.
    if (endDate_ && now_ >= *endDate_) {
        stop(activeMode_ == KeepMode::auto_
                 ? T("최대 시간에 도달했어요. 잠자기합니다.", "Maximum time reached. Going to sleep.")
                 : T("시간이 다 됐어요. 잠자기합니다.", "Time's up. Going to sleep."));
        return;
    }

    const std::optional<int> level = battery_.percent;
    const bool batteryRule = batteryFloor_ >= 1 && battery_.onBattery && level.has_value();

    if (batteryRule && *level <= batteryFloor_ + batteryWarningMargin && *level > batteryFloor_ &&
        !warnedBattery_) {
        warnedBattery_ = true;
        std::string left;
        if (battery_.minutesLeft) {
            const std::string clock = shortClock(*battery_.minutesLeft * 60.0);
            left = T(" · 약 " + clock + " 남음", " · about " + clock + " left");
        }
        const std::string pct = std::to_string(*level);
        const std::string floor = std::to_string(batteryFloor_);
        const std::string message =
            T("배터리 " + pct + "%" + left + ". " + floor +
                  "%가 되면 Duskwell이 멈추고 잠자기해요. 전원을 연결하면 계속 실행돼요.",
              "Battery " + pct + "%" + left + ". At " + floor +
                  "% Duskwell will stop and sleep. Plug in to keep going.");
        // Button ids are our own URLs: a picked one goes through handleURL.
        notify(T("배터리 부족", "Battery getting low"), message,
               {{"duskwell://extend?minutes=30", T("30분 연장", "Extend 30 min")},
                {"duskwell://stop", T("중지", "Stop")}});
        phone_->send(T("🔋 배터리 부족", "🔋 Battery getting low"), message, {}, alertPriority, withActions);
    }

    if (thermal_ == thermalSerious && !warnedHeat_) {
        warnedHeat_ = true;
        phone_->send(TM("🌡️ {machine:이} 뜨거워요", "🌡️ Running hot"),
                     TM("{machine:이} 뜨거워지고 있어요. 통풍이 잘 되게 해 주세요 — 더 뜨거워지면 Duskwell이 자동으로 멈춰요.",
                        "Your {machine} is running hot. Give it some air — Duskwell stops automatically if it gets worse."),
                     {}, alertPriority, withActions);
    }

    if (batteryRule && *level <= batteryFloor_) {
        const std::string pct = std::to_string(*level);
        stop(T("배터리 " + pct + "%. 자동으로 중지했어요.", "Battery " + pct + "%. Stopped automatically."));
        return;
    }

    if (stopOnHeat_ && thermal_ == thermalCritical) {
        stop(TM("{machine:이} 너무 뜨거워졌어요. 자동으로 중지했어요.", "Your {machine} got too hot. Stopped automatically."));
        return;
    }

    if (activeMode_ != KeepMode::auto_) return;
    const std::optional<double> quietLeft = idleRemaining();
    if (!quietLeft) return;
    if (*quietLeft <= AppConfig::idleWarnBefore && !idleWarned_) {
        idleWarned_ = true;
        phone_->send(T("곧 잠자기", "Sleeping soon"),
                     T("모든 AI 작업이 조용해요. 1분 후 잠자기해요.", "All AI tasks are quiet. Sleeping in 1 minute."),
                     {"hourglass"}, alertPriority, withActions);
    }
    if (*quietLeft <= 0) stop(T("모든 AI 작업이 끝났어요. 잠자기합니다.", "All AI tasks finished. Going to sleep."));
}

void AwakeController::scanAgents() {
    std::weak_ptr<int> weak = life_;
    monitor_->scan([this, weak](AgentSnapshot snapshot) {
        if (weak.lock()) handleScan(std::move(snapshot));
    });
}

void AwakeController::handleScan(AgentSnapshot snapshot) {
    if (frozen_) return;
    publish(agents_, std::move(snapshot));
    const AgentSnapshot& s = agents_;
    const int working = s.workingCount();
    if (!isActive_) {
        wasWorking_ = working > 0;
        return;
    }

    if (s.busy()) {
        const Date t = services().clock->now();
        publish(now_, t);
        publish(lastBusy_, t);
        idleWarned_ = false;
    }

    bool finishSent = false;
    for (const SessionInfo& session : s.sessions) {
        const auto before = prevSessions_.find(session.id);
        if (before == prevSessions_.end() || before->second != AgentState::working) continue;
        if (session.state == AgentState::working) continue;
        const std::string kind(session.kind.title());
        phone_->send("✅ " + kind + T(" 완료", " finished"), describe(session, false) + " · " + statusLine(), {},
                     3, withActions);
        finishSent = true;
    }
    prevSessions_.clear();
    for (const SessionInfo& session : s.sessions) prevSessions_.insert_or_assign(session.id, session.state);

    if (activeMode_ == KeepMode::auto_ && wasWorking_ && working == 0 && !finishSent) {
        phone_->send(T("🌙 모든 AI 작업 완료", "🌙 All AI tasks done"),
                     T("조용하면 10분 후 잠자기해요. ", "Sleeping in 10 minutes if quiet. ") + statusLine(), {}, 3,
                     withActions);
    }

    bool waiting = false;
    for (const AgentItem& item : s.items)
        if (item.state == AgentState::waiting) waiting = true;
    if (waiting) {
        if (!notifiedWaiting_) {
            phone_->send(T("확인이 필요해요", "Waiting for you"),
                         T("AI 에이전트가 승인을 기다리고 있어요.", "An AI agent is waiting for your approval."),
                         {"raised_hand"}, alertPriority);
        }
        notifiedWaiting_ = true;
    } else {
        notifiedWaiting_ = false;
    }

    wasWorking_ = working > 0;
}

std::string AwakeController::describe(const SessionInfo& session, bool running) const {
    std::string text(session.kind.title());
    if (session.project && !session.project->empty()) text += " (" + *session.project + ")";
    if (session.start) {
        const double elapsed = secondsBetween(*session.start, now_);
        long long minutes = elapsed > 0 ? static_cast<long long>(elapsed / 60) : 0;
        if (minutes < 1) minutes = 1;
        const std::string n = std::to_string(minutes);
        text += running ? T(" " + n + "분째", " " + n + "m in") : T(" · " + n + "분 걸림", " · took " + n + "m");
    }
    return text;
}

void AwakeController::notify(const std::string& title, const std::string& body,
                             const std::vector<NotificationButton>& buttons) {
    if (!canNotify()) return;
    if (buttons.empty()) services().platform->postNotification(title, body);
    else services().platform->postNotificationWithButtons(title, body, buttons);
}

}  // namespace duskwell
