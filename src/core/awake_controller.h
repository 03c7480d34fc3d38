#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agents/agent_kind.h"
#include "agents/agent_snapshot.h"
#include "core/date.h"
#include "core/hold_check.h"
#include "core/keep_mode.h"
#include "core/observable.h"
#include "core/platform.h"
#include "phone/phone_notifier.h"
#include "power/system_info.h"

namespace duskwell {

class AgentMonitor;
class ChildProcess;
class SerialQueue;
class TimerHandle;

struct UpdateInfo {
    std::string version;
    std::string url;
    bool operator==(const UpdateInfo&) const = default;
};

// The one controller of the process: published state, settings, the keep-awake period,
// the one-second tick and its stop rules. Main thread only. Every published change is
// announced through `changes()` before it lands.
class AwakeController {
public:
    AwakeController();
    ~AwakeController();
    AwakeController(const AwakeController&) = delete;
    AwakeController& operator=(const AwakeController&) = delete;

    Observable& changes() { return changes_; }

    // --- published state ---
    bool isActive() const { return isActive_; }
    KeepMode activeMode() const { return activeMode_; }
    std::optional<Date> startDate() const { return startDate_; }
    std::optional<Date> endDate() const { return endDate_; }
    Date now() const { return now_; }
    bool busy() const { return busy_; }
    const std::optional<std::string>& lastMessage() const { return lastMessage_; }
    Screen screen() const { return screen_; }
    const AgentSnapshot& agents() const { return agents_; }
    Date lastBusy() const { return lastBusy_; }
    const std::map<AgentKind, bool>& integrated() const { return integrated_; }
    const BatteryInfo& battery() const { return battery_; }
    std::optional<bool> lidClosed() const { return lidClosed_; }
    int thermal() const { return thermal_; }
    bool helperInstalled() const { return helperInstalled_; }
    bool perfApplied() const { return perfApplied_; }
    std::optional<bool> notificationsAllowed() const { return notificationsAllowed_; }
    bool launchAtLogin() const { return launchAtLogin_; }
    const std::optional<UpdateInfo>& update() const { return update_; }
    // Whether what the running period set up still holds (checked a few seconds after a
    // start, then every minute); unknown while idle or when the system cannot be asked.
    const HoldVerdict& held() const { return held_; }

    // --- persisted settings (setters write through) ---
    KeepMode mode() const { return mode_; }
    void setMode(KeepMode mode);
    int selectedMinutes() const { return selectedMinutes_; }
    void setSelectedMinutes(int minutes);
    Date untilDate() const { return untilDate_; }
    void setUntilDate(Date date);  // not persisted
    int autoCapHours() const { return autoCapHours_; }
    void setAutoCapHours(int hours);
    bool maxPerformance() const { return maxPerformance_; }
    void setMaxPerformance(bool on);
    int batteryFloor() const { return batteryFloor_; }
    void setBatteryFloor(int percent);
    bool stopOnHeat() const { return stopOnHeat_; }
    void setStopOnHeat(bool on);
    bool lockOnLidClose() const { return lockOnLidClose_; }
    void setLockOnLidClose(bool on);

    void setScreen(Screen screen);
    void setLastMessage(std::optional<std::string> message);
    bool popoverVisible() const { return popoverVisible_; }
    void setPopoverVisible(bool visible) { popoverVisible_ = visible; }
    bool frozen() const { return frozen_; }
    void setFrozen(bool frozen) { frozen_ = frozen; }

    PhoneNotifier& phone() { return *phone_; }
    const PhoneNotifier& phone() const { return *phone_; }
    const IdleAssertion& assertion() const { return assertion_; }
    std::uint64_t tick() const { return tick_; }
    bool watchdogRunning() const { return watchdog_ != nullptr; }

    // --- session lifecycle ---
    void start(std::optional<KeepMode> mode = std::nullopt, std::optional<int> minutes = std::nullopt);
    void stop(std::optional<std::string> reason = std::nullopt);
    void extend(int minutes);
    void toggle();
    Date nextOccurrence(Date of) const;
    std::optional<double> remaining() const;
    std::optional<double> idleRemaining() const;
    double progress() const;

    // --- status texts ---
    std::optional<std::string> menuBarTitle() const;
    static std::string shortClock(double seconds);
    static std::string longClock(double seconds);
    static std::string label(int minutes);
    // Minutes offered by the quick menu and the timer card, in order.
    static const std::vector<int>& presets();

    // --- update check, permissions, login item ---
    void checkForUpdate();
    static bool isNewer(const std::string& a, const std::string& than);
    static bool canNotify();
    void refreshPermissions();
    void setLaunchAtLogin(bool on);
    void openSettings(const std::string& pane);

    // --- power ---
    void setPerformance(bool on);
    void reinstallHelper();
    void uninstallHelper();
    void refreshSystem();
    static void turnOffDisplay();

    // --- agent hooks ---
    void refreshIntegrations();
    void setIntegration(AgentKind kind, bool on);

    // --- phone ---
    void setPhone(bool on);
    // The self-hosted ntfy server (empty: the public one) and its access token (nothing:
    // none). False, with nothing changed, when the value is not acceptable.
    bool setPhoneServer(const std::string& url);
    bool setPhoneToken(const std::optional<std::string>& token);

    // --- command surfaces ---
    bool cliInstalled() const;
    void installCLI();
    bool handleURL(const std::string& url);
    // `ifChanged` skips a write when nothing shown changed and the last write is recent;
    // `always` is the final write on the way out.
    enum class StatusWrite { ifChanged, always };
    void writeStatusFile(StatusWrite when = StatusWrite::ifChanged);
    std::string statusLine() const;
    std::optional<std::string> waitingText() const;
    std::string describe(const SessionInfo& session, bool running) const;

    // Launch recovery: gives back what an earlier run changed and did not restore (lid
    // sleep first, then performance) and calls off that run's watchdog. Needs no
    // controller: duskwelld --restore runs it after the service ended, however it ended.
    static void recoverPowerSettings();

private:
    friend struct AwakeControllerTestAccess;

    // `end`, but no further out than the longest period from now.
    static Date cappedEnd(Date end);

    // Announces, then assigns; nothing is announced when the value does not change.
    template <class V>
    void publish(V& field, V value) {
        if (field == value) return;
        changes_.announce();
        field = std::move(value);
    }
    void announce() { changes_.announce(); }

    void onTick();
    void scanAgents();
    void handleScan(AgentSnapshot snapshot);
    void handlePhone(PhoneNotifier::Command command);
    void notify(const std::string& title, const std::string& body,
                const std::vector<NotificationButton>& buttons = {});
    void applyPerformance();
    void restorePerformance();
    void startWatchdog();
    void stopWatchdog();
    void refreshHookScript();     // reinstalls the hook program when any agent is connected
    void refreshCLI();            // reinstalls the terminal command without a greeting
    void sleepSoon(double seconds);  // system sleep after a delay, on the main queue
    static bool restorePending();
    // The keep-awake self-check (awake_controller_hold.cpp).
    void beginHoldChecks();
    void endHoldChecks();
    void checkHold();
    HoldExpectation holdExpectation() const;
    void handleHold(std::uint64_t period, const HoldExpectation& expected, const HoldObservation& seen);

    Observable changes_;
    std::shared_ptr<int> life_ = std::make_shared<int>(0);  // callbacks hold it weakly

    // published
    bool isActive_ = false;
    KeepMode activeMode_ = KeepMode::auto_;
    std::optional<Date> startDate_;
    std::optional<Date> endDate_;
    Date now_;
    bool busy_ = false;
    std::optional<std::string> lastMessage_;
    Screen screen_ = Screen::main;
    AgentSnapshot agents_;
    Date lastBusy_;
    std::map<AgentKind, bool> integrated_;
    BatteryInfo battery_;
    std::optional<bool> lidClosed_;
    int thermal_ = 0;
    bool helperInstalled_ = false;
    bool perfApplied_ = false;
    std::optional<bool> notificationsAllowed_;
    bool launchAtLogin_ = false;
    std::optional<UpdateInfo> update_;
    HoldVerdict held_;
    KeepMode mode_ = KeepMode::auto_;
    int selectedMinutes_ = 60;
    Date untilDate_;
    int autoCapHours_ = 8;
    bool maxPerformance_ = true;
    int batteryFloor_ = 10;
    bool stopOnHeat_ = true;
    bool lockOnLidClose_ = true;

    // not published
    std::unique_ptr<PhoneNotifier> phone_;
    bool popoverVisible_ = false;
    bool frozen_ = false;
    IdleAssertion assertion_;
    std::unique_ptr<AgentMonitor> monitor_;
    std::uint64_t tick_ = 0;
    std::unique_ptr<ChildProcess> watchdog_;
    bool idleWarned_ = false;
    bool wasWorking_ = false;
    bool notifiedWaiting_ = false;
    std::map<std::string, AgentState> prevSessions_;
    bool warnedBattery_ = false;
    bool warnedHeat_ = false;
    std::string lastStatusJSON_;  // without its "written" time
    std::optional<Date> lastStatusWritten_;
    std::vector<Subscription> bag_;
    std::unique_ptr<TimerHandle> timer_;
    // self-check: the tick of the next check, the period it belongs to (answers of an
    // earlier period are dropped), whether one is on the queue, and the episode's alert
    std::uint64_t nextHoldCheck_ = 0;
    std::uint64_t holdPeriod_ = 0;
    bool holdInFlight_ = false;
    HoldEpisode holdEpisode_;
    std::unique_ptr<SerialQueue> holdQueue_;  // last: joined first, while the rest still exists
};

}  // namespace duskwell
