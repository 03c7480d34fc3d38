#include "app/main_page_model.h"

#include <algorithm>
#include <cmath>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/calendar.h"
#include "core/localization.h"

namespace duskwell {
namespace {

using K = Action::Kind;

Button button(std::string title, std::string symbol, Action action, bool enabled = true,
              ButtonStyle style = ButtonStyle::plain) {
    return Button{std::move(title), std::move(symbol), action, enabled, style};
}

// The period is counting down its quiet grace time (auto mode, agents not busy).
bool quietCountdown(const AwakeController& c) {
    return c.isActive() && c.activeMode() == KeepMode::auto_ && c.idleRemaining().has_value();
}

int workingAgents(const AwakeController& c) {
    return c.isActive() && c.activeMode() == KeepMode::auto_ ? c.agents().workingCount() : 0;
}

std::string sleepsAt(Date when) {
    const std::string clock = Calendar::clockTime(when);
    return T(clock + "에 잠자기", "Sleeps at " + clock);
}

void fillHeadline(const AwakeController& c, HeroCardModel& hero) {
    // Decided once, most specific first:
    // - not running: "Idle", and nothing is keeping the Mac up;
    // - running, but what it set up does not hold: that, plainly, with the first reason;
    // - auto with working agents: their count;
    // - auto counting down its quiet time, or any period in its last minute (the same
    //   minute the "Sleeping soon" phone alert uses): "Sleeping soon" with the clock time;
    // - otherwise "Staying awake" with what ends the period.
    if (!c.isActive()) {
        hero.headline = T("대기 중", "Idle");
        hero.detail = T("모두 조용합니다", "Everything is quiet");
        return;
    }
    if (c.held().state == HoldVerdict::State::broken && !c.held().failing.empty()) {
        hero.headline = HoldCheck::headline();
        hero.detail = HoldCheck::sentence(c.held().failing.front());
        return;
    }
    if (const int n = workingAgents(c); n > 0) {
        const std::string count = std::to_string(n);
        hero.headline = T("에이전트 작업 중", "Agents working");
        hero.detail = T(count + "개 실행 중 · 뚜껑을 닫아도 계속 실행",
                        count + " running · keeps going with the lid closed");
        return;
    }
    if (quietCountdown(c)) {
        hero.headline = T("곧 잠자기", "Sleeping soon");
        hero.detail = sleepsAt(addSeconds(c.now(), *c.idleRemaining()));
        return;
    }
    if (c.activeMode() == KeepMode::auto_) {
        hero.headline = T("깨어 있는 중", "Staying awake");
        hero.detail = T("에이전트가 끝나면 잠들어요", "Sleeps when your agents finish");
        return;
    }
    const auto left = c.remaining();
    if (left && *left <= AppConfig::idleWarnBefore && c.endDate()) {
        hero.headline = T("곧 잠자기", "Sleeping soon");
        hero.detail = sleepsAt(*c.endDate());
        return;
    }
    hero.headline = T("깨어 있는 중", "Staying awake");
    if (c.activeMode() == KeepMode::timer) {
        if (c.endDate() && c.startDate()) {
            // The period's whole length, so an extended timer reads "2h 30m", not "2h".
            const int minutes =
                static_cast<int>(std::lround(secondsBetween(*c.startDate(), *c.endDate()) / 60.0));
            const std::string label = AwakeController::label(minutes);
            hero.detail = T(label + " 동안 깨어 있기", "Stay awake for " + label);
        } else {
            hero.detail = T("직접 멈출 때까지", "Until you stop it");
        }
    } else {
        const std::string clock = Calendar::clockTime(c.endDate().value_or(c.untilDate()));
        hero.detail = T(clock + "까지", "Until " + clock);
    }
}

RingModel makeRing(const AwakeController& c) {
    RingModel ring;
    ring.progress = std::clamp(c.progress(), 0.0, 1.0);
    if (!c.isActive()) {
        ring.symbol = "moon.stars.fill";
    } else if (const int n = workingAgents(c); n > 0) {
        ring.text = std::to_string(n);
        ring.symbol = "sparkles";
        ring.caption = T("작업 중", "working");
    } else if (quietCountdown(c)) {
        ring.text = AwakeController::longClock(*c.idleRemaining());
        ring.caption = T("후 잠자기", "to sleep");
    } else if (auto left = c.remaining()) {
        ring.text = AwakeController::longClock(*left);
        ring.caption = T("남음", "left");
    } else {
        ring.text = "∞";
    }
    return ring;
}

std::string percentText(const BatteryInfo& b) {
    return b.percent ? std::to_string(*b.percent) + "%" : "—";
}

// Level symbols: full above 60 %, half above 20 %, empty below; an unknown level reads half.
std::string batterySymbol(const BatteryInfo& b) {
    if (b.charging) return "battery.100.bolt";
    if (!b.percent) return "battery.50";
    if (*b.percent > 60) return "battery.100";
    if (*b.percent > 20) return "battery.50";
    return "battery.0";
}

std::string agentStateText(const AwakeController& c, const AgentItem& item) {
    switch (item.state.value()) {
        case AgentState::waiting: return T("승인이 필요해요", "needs your approval");
        case AgentState::idle: return T("쉬는 중", "idle");
        case AgentState::working: break;
    }
    // A working row without a start time has only just been seen working.
    const double seconds = item.since ? secondsBetween(*item.since, c.now()) : 0;
    const long minutes = static_cast<long>(std::floor(std::max(0.0, seconds) / 60.0));
    if (minutes < 1) return T("방금 시작", "just started");
    const std::string n = std::to_string(minutes);
    return T(n + "분", n + " min");
}

Pill statePill(AgentState state) {
    switch (state.value()) {
        case AgentState::working: return {T("작업 중", "Working"), "green"};
        case AgentState::waiting: return {T("기다리는 중", "Waiting"), "orange"};
        case AgentState::idle: break;
    }
    return {T("쉬는 중", "Idle"), "gray"};
}

AgentRowModel makeAgentRow(const AwakeController& c, const AgentItem& item) {
    AgentRowModel row;
    row.symbol = std::string(item.kind.symbol());
    row.tint = std::string(item.kind.tint());
    row.title = std::string(item.kind.title());
    if (item.count > 1) row.count = std::to_string(item.count);
    row.subtitle = (item.viaHooks ? T("연결됨", "Connected") : T("감지됨", "Detected")) + " · " +
                   agentStateText(c, item);
    row.status = statePill(item.state);
    return row;
}

bool isIntegrated(const AwakeController& c, AgentKind kind) {
    const auto it = c.integrated().find(kind);
    return it != c.integrated().end() && it->second;
}

TimerCardModel makeTimerCard(const AwakeController& c) {
    TimerCardModel card;
    // Chips start a period: privileged work (the helper may be installed first).
    const bool enabled = !c.busy();
    for (int minutes : AwakeController::presets()) {
        card.chips.push_back(Chip{AwakeController::label(minutes), "", minutes == c.selectedMinutes(),
                                  Action::preset(minutes), enabled});
    }
    card.chips.push_back(Chip{"∞", "", c.selectedMinutes() == 0, Action::preset(0), enabled});
    return card;
}

UntilCardModel makeUntilCard(const AwakeController& c) {
    UntilCardModel card;
    const auto hm = Calendar::hourMinute(c.untilDate());
    card.title = T("이 시각까지 깨어 있기", "Stay awake until");
    card.hour = hm.hour;
    card.minute = hm.minute;
    card.time = Calendar::clockTime(c.untilDate());
    card.caption = TM("그다음 {machine:이} 잠들어요", "Then your {machine} sleeps");
    card.apply = button(T("적용", "Apply"), "", Action::make(K::applyUntil), !c.busy(), ButtonStyle::prominent);
    return card;
}

std::vector<Chip> makeModePicker(const AwakeController& c) {
    std::vector<Chip> segments;
    for (KeepMode m : KeepMode::allCases()) {
        Chip chip;
        switch (m.value()) {
            case KeepMode::auto_: chip.title = T("AI 자동", "AI Auto"); chip.symbol = "sparkles"; break;
            case KeepMode::timer: chip.title = T("타이머", "Timer"); break;
            case KeepMode::until: chip.title = T("시각 지정", "Until"); chip.symbol = "clock"; break;
        }
        chip.selected = m == c.mode();
        chip.action = Action::selectMode(m);
        segments.push_back(std::move(chip));
    }
    return segments;
}

}  // namespace

HeroCardModel makeHeroCard(const AwakeController& c) {
    HeroCardModel hero;
    fillHeadline(c, hero);
    hero.ring = makeRing(c);
    // The main button starts (privileged: may install the helper) or stops; both wait while
    // a privileged operation is in progress.
    if (c.isActive()) {
        hero.mainButton = button(T("중단", "Stop"), "stop.fill", Action::make(K::toggle), !c.busy(),
                                 ButtonStyle::destructive);
    } else {
        hero.mainButton = button(T("시작", "Start"), "play.fill", Action::make(K::toggle), !c.busy(),
                                 ButtonStyle::prominent);
    }
    // Extend row: during a quiet countdown, ten more quiet minutes; otherwise +30m/+1h, but
    // only when the period has an end to move (an unlimited timer or an uncapped auto period
    // has nothing to extend).
    if (quietCountdown(c)) {
        hero.extendRow.push_back(button(T("10분 더 기다리기", "Wait 10 more min"), "", Action::extendBy(10)));
    } else if (c.isActive() && c.endDate()) {
        hero.extendRow.push_back(button(T("+30분", "+30m"), "", Action::extendBy(30)));
        hero.extendRow.push_back(button(T("+1시간", "+1h"), "", Action::extendBy(60)));
    }
    return hero;
}

AgentsCardModel makeAgentsCard(const AwakeController& c) {
    AgentsCardModel card;
    const auto& items = c.agents().items;
    const size_t shown = std::min(items.size(), static_cast<size_t>(kMaxAgentRows));
    for (size_t i = 0; i < shown; ++i) card.rows.push_back(makeAgentRow(c, items[i]));
    if (items.size() > shown) {
        const std::string n = std::to_string(items.size() - shown);
        card.more = T("+" + n + "개 더", "+" + n + " more");
    }
    if (items.empty()) {
        card.emptyTitle = T("실행 중인 AI 작업 없음", "No AI tasks running");
        card.emptyDetail = T("Claude Code, Codex, Ollama… 가 자동으로 여기에 나타나요",
                             "Claude Code, Codex, Ollama… appear here automatically");
    }
    // One hint at a time: the first running kind (in row order, shown or not) that could be
    // tracked precisely through hooks but is not connected yet.
    for (const AgentItem& item : items) {
        if (!item.kind.supportsHooks() || isIntegrated(c, item.kind)) continue;
        const std::string title(item.kind.title());
        card.hint = ConnectHintModel{
            T(title + " 연결하고 정확하게 추적하기", "Connect " + title + " for precise tracking"),
            button(T("연결", "Connect"), "link", Action::connectAgent(item.kind), true, ButtonStyle::prominent)};
        break;
    }
    card.footSymbol = "moon.zzz";
    card.footText = T("10분 동안 조용하면 잠자기", "Sleeps after 10 quiet minutes");
    if (c.autoCapHours() > 0) {
        const std::string h = std::to_string(c.autoCapHours());
        card.cap = T("최대 " + h + "시간", "Max " + h + "h");
    } else {
        card.cap = T("제한 없음", "No limit");
    }
    return card;
}

StatusStripModel makeStatusStrip(const AwakeController& c) {
    StatusStripModel strip;
    const BatteryInfo& b = c.battery();
    StatPillModel& power = strip.power;
    if (!b.hasBattery) {
        power = {"powerplug.fill", T("전원", "Power"), "—", std::nullopt, "gray"};
    } else if (!b.onBattery) {
        power = {b.charging ? "battery.100.bolt" : "powerplug.fill", T("전원", "Power"), percentText(b),
                 std::nullopt, "green"};
        if (b.charging) power.detail = T("충전 중", "Charging");
    } else {
        power = {batterySymbol(b), T("배터리", "Battery"), percentText(b), std::nullopt,
                 b.percent && *b.percent <= 20 ? "red" : "green"};
        if (b.charging) {
            power.detail = T("충전 중", "Charging");
        } else if (b.minutesLeft) {
            const std::string clock = AwakeController::shortClock(*b.minutesLeft * 60.0);
            power.detail = T("약 " + clock + " 남음", "about " + clock + " left");
        }
    }

    const auto lid = c.lidClosed();
    strip.lid = {lid.value_or(false) ? "laptopcomputer.slash" : "laptopcomputer", T("뚜껑", "Lid"),
                 !lid ? "—" : *lid ? T("닫힘", "Closed") : T("열림", "Open"), std::nullopt,
                 lid.value_or(false) ? "brand" : "gray"};

    static const char* const tints[] = {"green", "yellow", "orange", "red"};
    const int level = std::clamp(c.thermal(), 0, 3);
    std::string value;
    switch (level) {
        case 0: value = T("정상", "Normal"); break;
        case 1: value = T("따뜻함", "Warm"); break;
        case 2: value = T("높음", "High"); break;
        default: value = T("위험", "Critical"); break;
    }
    strip.heat = {"thermometer.medium", T("발열", "Heat"), value, std::nullopt, tints[level]};
    return strip;
}

std::vector<FooterItemModel> makeMainFooter(const AwakeController& c) {
    // Conditions: the update line while a newer version is known; "Phone on" while the phone
    // channel is enabled; "Screen off" always (it is useful idle or active, like the quick
    // menu's item); "Permission needed" while the power helper is not installed.
    std::vector<FooterItemModel> footer;
    if (const auto& u = c.update()) {
        footer.push_back({"arrow.down.circle.fill",
                          T("새 버전 " + u->version + " 사용 가능", "Version " + u->version + " is available"),
                          button(T("다운로드", "Download"), "arrow.down.circle.fill", Action::make(K::openUpdate))});
    }
    if (c.phone().enabled()) {
        footer.push_back({"iphone.gen3.radiowaves.left.and.right", T("폰 알림 켜짐", "Phone on"), std::nullopt});
    }
    const std::string off = T("화면 끄기", "Screen off");
    footer.push_back({"display", off, button(off, "display", Action::make(K::turnOffDisplay))});
    if (!c.helperInstalled()) {
        const std::string needed = T("권한 필요", "Permission needed");
        footer.push_back({"chevron.right", needed, button(needed, "chevron.right", Action::make(K::openSettings))});
    }
    return footer;
}

MainPageModel makeMainPage(const AwakeController& c) {
    MainPageModel page;
    page.header = {std::string(AppConfig::name),
                   T("AI 에이전트를 위한 뚜껑 닫힘 유지", "Lid-closed keep-alive for AI agents"),
                   button(T("설정", "Settings"), "gearshape.fill", Action::make(K::openSettings))};
    page.hero = makeHeroCard(c);
    page.modePicker = makeModePicker(c);
    page.card = c.mode();
    switch (c.mode().value()) {
        case KeepMode::auto_: page.agents = makeAgentsCard(c); break;
        case KeepMode::timer: page.timer = makeTimerCard(c); break;
        case KeepMode::until: page.until = makeUntilCard(c); break;
    }
    page.status = makeStatusStrip(c);
    page.footer = makeMainFooter(c);
    return page;
}

}  // namespace duskwell
