#include "app/main_page_model.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "app/popover_model.h"
#include "app/view_model_testing.h"
#include "testing/controller_fixture.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using namespace viewtest;
using K = Action::Kind;

std::vector<std::string> titles(const std::vector<Button>& buttons) {
    std::vector<std::string> out;
    for (const auto& b : buttons) out.push_back(b.title);
    return out;
}

std::vector<std::string> texts(const std::vector<FooterItemModel>& footer) {
    std::vector<std::string> out;
    for (const auto& f : footer) out.push_back(f.text);
    return out;
}

// A running period needs the helper: every page here is of a controller that has it.
using MainPageModel = testing::ControllerWithHelper;

TEST_F(MainPageModel, IdleShowsTheIdleHeroTheSelectedModeAndOnlyItsCard) {
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.header.name, "Duskwell");
        EXPECT_EQ(p.header.tagline, pick(ko, "Lid-closed keep-alive for AI agents", "AI 에이전트를 위한 뚜껑 닫힘 유지"));
        EXPECT_EQ(p.header.gear.symbol, "gearshape.fill");
        EXPECT_EQ(p.header.gear.action, Action::make(K::openSettings));

        EXPECT_EQ(p.hero.headline, pick(ko, "Idle", "대기 중"));
        EXPECT_EQ(p.hero.detail, pick(ko, "Everything is quiet", "모두 조용합니다"));
        EXPECT_EQ(p.hero.ring.symbol, "moon.stars.fill");
        EXPECT_EQ(p.hero.ring.text, "");
        EXPECT_DOUBLE_EQ(p.hero.ring.progress, 0);
        EXPECT_EQ(p.hero.mainButton.title, pick(ko, "Start", "시작"));
        EXPECT_TRUE(p.hero.mainButton.enabled);
        EXPECT_EQ(p.hero.mainButton.action, Action::make(K::toggle));
        EXPECT_TRUE(p.hero.extendRow.empty());

        ASSERT_EQ(p.modePicker.size(), 3u);
        EXPECT_EQ(p.modePicker[0].title, pick(ko, "AI Auto", "AI 자동"));
        EXPECT_EQ(p.modePicker[0].symbol, "sparkles");
        EXPECT_EQ(p.modePicker[1].title, pick(ko, "Timer", "타이머"));
        EXPECT_EQ(p.modePicker[2].symbol, "clock");
        EXPECT_TRUE(p.modePicker[0].selected);
        EXPECT_FALSE(p.modePicker[1].selected);
        EXPECT_EQ(p.modePicker[2].action, Action::selectMode(KeepMode::until));

        ASSERT_TRUE(p.agents.has_value());
        EXPECT_FALSE(p.timer.has_value());
        EXPECT_FALSE(p.until.has_value());
        EXPECT_TRUE(p.agents->rows.empty());
        EXPECT_EQ(p.agents->emptyTitle, pick(ko, "No AI tasks running", "실행 중인 AI 작업 없음"));
        EXPECT_EQ(p.agents->emptyDetail, pick(ko, "Claude Code, Codex, Ollama… appear here automatically",
                                              "Claude Code, Codex, Ollama… 가 자동으로 여기에 나타나요"));
        EXPECT_FALSE(p.agents->hint.has_value());
        EXPECT_EQ(p.agents->footSymbol, "moon.zzz");
        EXPECT_EQ(p.agents->footText, pick(ko, "Sleeps after 10 quiet minutes", "10분 동안 조용하면 잠자기"));
        EXPECT_EQ(p.agents->cap, pick(ko, "Max 8h", "최대 8시간"));
    });
}

TEST_F(MainPageModel, ATimerWithAnEndShowsItsLengthItsCountdownAndBothExtensions) {
    c.setMode(KeepMode::timer);
    c.setSelectedMinutes(120);
    c.start(KeepMode::timer, 120);
    Access::viewsSetNow(c, addSeconds(c.now(), 1800));
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.hero.headline, pick(ko, "Staying awake", "깨어 있는 중"));
        EXPECT_EQ(p.hero.detail, pick(ko, "Stay awake for 2h", "2시간 동안 깨어 있기"));
        EXPECT_EQ(p.hero.ring.text, "1:30:00");
        EXPECT_EQ(p.hero.ring.caption, pick(ko, "left", "남음"));
        EXPECT_DOUBLE_EQ(p.hero.ring.progress, 0.25);
        EXPECT_EQ(p.hero.mainButton.title, pick(ko, "Stop", "중단"));
        EXPECT_EQ(titles(p.hero.extendRow), (std::vector<std::string>{pick(ko, "+30m", "+30분"), pick(ko, "+1h", "+1시간")}));
        EXPECT_EQ(p.hero.extendRow[0].action, Action::extendBy(30));
        EXPECT_EQ(p.hero.extendRow[1].action, Action::extendBy(60));

        ASSERT_TRUE(p.timer.has_value());
        EXPECT_FALSE(p.agents.has_value());
        std::vector<std::string> chips;
        for (const auto& chip : p.timer->chips) chips.push_back(chip.title + (chip.selected ? "*" : ""));
        EXPECT_EQ(chips, ko ? (std::vector<std::string>{"30분", "1시간", "2시간*", "4시간", "8시간", "∞"})
                            : (std::vector<std::string>{"30m", "1h", "2h*", "4h", "8h", "∞"}));
        EXPECT_EQ(p.timer->chips[2].action, Action::preset(120));
        EXPECT_EQ(p.timer->chips[5].action, Action::preset(0));
    });
    // An extended timer reads its whole new length.
    c.extend(30);
    EXPECT_EQ(makeMainPage(c).hero.detail, "Stay awake for 2h 30m");
}

TEST_F(MainPageModel, AnUnlimitedTimerShowsInfinityAndNoExtendRow) {
    c.setMode(KeepMode::timer);
    c.setSelectedMinutes(0);
    c.start(KeepMode::timer, 0);
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.hero.detail, pick(ko, "Until you stop it", "직접 멈출 때까지"));
        EXPECT_EQ(p.hero.ring.text, "∞");
        EXPECT_EQ(p.hero.ring.caption, "");
        EXPECT_TRUE(p.hero.extendRow.empty());
        ASSERT_TRUE(p.timer.has_value());
        EXPECT_TRUE(p.timer->chips.back().selected) << "the ∞ chip stands for 0 minutes";
        EXPECT_FALSE(p.timer->chips.front().selected);
    });
}

TEST_F(MainPageModel, AutoWithTwoAgentsWorkingCountsThemInHeroRingAndRows) {
    const Date t0 = c.now();
    c.start(KeepMode::auto_, std::nullopt);
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::working, 1, true, addSeconds(t0, -12 * 60 - 5)),
                                        agent(AgentKind::codex, AgentState::working, 1, false, addSeconds(t0, -20))}));
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.hero.headline, pick(ko, "Agents working", "에이전트 작업 중"));
        EXPECT_EQ(p.hero.detail, pick(ko, "2 running · keeps going with the lid closed",
                                      "2개 실행 중 · 뚜껑을 닫아도 계속 실행"));
        EXPECT_EQ(p.hero.ring.text, "2");
        EXPECT_EQ(p.hero.ring.symbol, "sparkles");
        EXPECT_EQ(p.hero.ring.caption, pick(ko, "working", "작업 중"));
        EXPECT_DOUBLE_EQ(p.hero.ring.progress, 1.0);
        ASSERT_TRUE(p.agents.has_value());
        ASSERT_EQ(p.agents->rows.size(), 2u);
        const auto& claude = p.agents->rows[0];
        EXPECT_EQ(claude.title, "Claude Code");
        EXPECT_EQ(claude.symbol, "asterisk");
        EXPECT_EQ(claude.tint, "claude");
        EXPECT_FALSE(claude.count.has_value());
        EXPECT_EQ(claude.subtitle, pick(ko, "Connected · 12 min", "연결됨 · 12분"));
        EXPECT_EQ(claude.status.text, pick(ko, "Working", "작업 중"));
        EXPECT_EQ(p.agents->rows[1].subtitle, pick(ko, "Detected · just started", "감지됨 · 방금 시작"));
        EXPECT_FALSE(p.agents->emptyTitle.has_value());
    });
}

TEST_F(MainPageModel, AutoBusyWithNobodyWorkingStaysAwakeUntilTheCap) {
    c.start(KeepMode::auto_, std::nullopt);
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::waiting, 3, true)}));
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.hero.headline, pick(ko, "Staying awake", "깨어 있는 중"));
        EXPECT_EQ(p.hero.detail, pick(ko, "Sleeps when your agents finish", "에이전트가 끝나면 잠들어요"));
        EXPECT_EQ(p.hero.ring.text, "8:00:00");
        EXPECT_EQ(titles(p.hero.extendRow), (std::vector<std::string>{pick(ko, "+30m", "+30분"), pick(ko, "+1h", "+1시간")}));
        const auto& row = p.agents->rows.at(0);
        EXPECT_EQ(row.count, "3");
        EXPECT_EQ(row.subtitle, pick(ko, "Connected · needs your approval", "연결됨 · 승인이 필요해요"));
        EXPECT_EQ(row.status.text, pick(ko, "Waiting", "기다리는 중"));
        EXPECT_EQ(row.status.tint, "orange");
    });
}

TEST_F(MainPageModel, AutoQuietCountdownOffersTenMoreMinutesAndCountsToSleep) {
    c.start(KeepMode::auto_, std::nullopt);
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::ollama, AgentState::idle)}));
    Access::viewsSetNow(c, addSeconds(c.now(), 120));
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        EXPECT_EQ(p.hero.headline, pick(ko, "Sleeping soon", "곧 잠자기"));
        EXPECT_EQ(p.hero.detail, pick(ko, "Sleeps at 10:30", "10:30에 잠자기"));
        EXPECT_EQ(p.hero.ring.text, "8:00");
        EXPECT_EQ(p.hero.ring.caption, pick(ko, "to sleep", "후 잠자기"));
        EXPECT_DOUBLE_EQ(p.hero.ring.progress, 0.8);
        ASSERT_EQ(p.hero.extendRow.size(), 1u);
        EXPECT_EQ(p.hero.extendRow[0].title, pick(ko, "Wait 10 more min", "10분 더 기다리기"));
        EXPECT_EQ(p.hero.extendRow[0].action, Action::extendBy(10));
        EXPECT_EQ(p.agents->rows.at(0).subtitle, pick(ko, "Detected · idle", "감지됨 · 쉬는 중"));
        EXPECT_EQ(p.agents->rows.at(0).status.text, pick(ko, "Idle", "쉬는 중"));
    });
}

TEST_F(MainPageModel, ATimerInItsLastMinuteIsSleepingSoon) {
    c.start(KeepMode::timer, 30);
    Access::viewsSetNow(c, addSeconds(c.now(), 30 * 60 - 45));
    const auto p = makeMainPage(c);
    EXPECT_EQ(p.hero.headline, "Sleeping soon");
    EXPECT_EQ(p.hero.detail, "Sleeps at 10:50");
    EXPECT_EQ(p.hero.ring.text, "0:45");
}

TEST_F(MainPageModel, UntilCardShowsThePickerTimeAndApply) {
    c.setMode(KeepMode::until);
    inEachLanguage([&](bool ko) {
        const auto p = makeMainPage(c);
        ASSERT_TRUE(p.until.has_value());
        EXPECT_FALSE(p.agents.has_value());
        EXPECT_EQ(p.until->title, pick(ko, "Stay awake until", "이 시각까지 깨어 있기"));
        EXPECT_EQ(p.until->hour, 14);
        EXPECT_EQ(p.until->minute, 0);
        EXPECT_EQ(p.until->time, "14:00");
        EXPECT_EQ(p.until->apply.title, pick(ko, "Apply", "적용"));
        EXPECT_EQ(p.until->apply.action, Action::make(K::applyUntil));
    });
    c.start(KeepMode::until, std::nullopt);
    inEachLanguage([&](bool ko) { EXPECT_EQ(makeMainPage(c).hero.detail, pick(ko, "Until 14:00", "14:00까지")); });
}

TEST_F(MainPageModel, RowsBeyondTheLimitAreSummedUpInOneMoreLine) {
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::working), agent(AgentKind::codex, AgentState::working),
                                        agent(AgentKind::aider, AgentState::idle), agent(AgentKind::goose, AgentState::idle),
                                        agent(AgentKind::ollama, AgentState::idle), agent(AgentKind::vllm, AgentState::idle)}));
    inEachLanguage([&](bool ko) {
        const auto card = makeAgentsCard(c);
        ASSERT_EQ(card.rows.size(), static_cast<size_t>(kMaxAgentRows));
        EXPECT_EQ(card.rows.back().title, "Goose");
        EXPECT_EQ(card.more, pick(ko, "+2 more", "+2개 더"));
    });
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::idle), agent(AgentKind::codex, AgentState::idle),
                                        agent(AgentKind::aider, AgentState::idle), agent(AgentKind::goose, AgentState::idle)}));
    EXPECT_EQ(makeAgentsCard(c).rows.size(), 4u);
    EXPECT_FALSE(makeAgentsCard(c).more.has_value());
}

TEST_F(MainPageModel, AHookCapableAgentRunningUnconnectedGetsTheConnectHint) {
    // A local model runner cannot be connected: no hint.
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::ollama, AgentState::working)}));
    EXPECT_FALSE(makeAgentsCard(c).hint.has_value());

    Access::viewsSetAgents(c, snapshot({agent(AgentKind::ollama, AgentState::working),
                                        agent(AgentKind::codex, AgentState::idle)}));
    Access::viewsSetIntegrated(c, AgentKind::codex, false);
    inEachLanguage([&](bool ko) {
        const auto card = makeAgentsCard(c);
        ASSERT_TRUE(card.hint.has_value());
        EXPECT_EQ(card.hint->text, pick(ko, "Connect Codex for precise tracking", "Codex 연결하고 정확하게 추적하기"));
        EXPECT_EQ(card.hint->connect.title, pick(ko, "Connect", "연결"));
        EXPECT_EQ(card.hint->connect.symbol, "link");
        EXPECT_EQ(card.hint->connect.action, Action::connectAgent(AgentKind::codex));
        EXPECT_EQ(card.rows.at(1).subtitle, pick(ko, "Detected · idle", "감지됨 · 쉬는 중"));
    });

    // Connected: the hint goes; once the hook reports the session, the row reads "Connected".
    Access::viewsSetIntegrated(c, AgentKind::codex, true);
    EXPECT_FALSE(makeAgentsCard(c).hint.has_value());
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::codex, AgentState::working, 1, true, c.now())}));
    EXPECT_EQ(makeAgentsCard(c).rows.at(0).subtitle, "Connected · just started");
}

TEST_F(MainPageModel, ACapOfZeroHoursReadsNoLimit) {
    c.setAutoCapHours(0);
    inEachLanguage([&](bool ko) { EXPECT_EQ(makeAgentsCard(c).cap, pick(ko, "No limit", "제한 없음")); });
    c.setAutoCapHours(12);
    EXPECT_EQ(makeAgentsCard(c).cap, "Max 12h");
}

TEST_F(MainPageModel, PowerPillWithoutBatteryOnMainsAndOnBattery) {
    inEachLanguage([&](bool ko) {  // the fake machine has no battery
        const auto s = makeStatusStrip(c);
        EXPECT_EQ(s.power.title, pick(ko, "Power", "전원"));
        EXPECT_EQ(s.power.value, "—");
        EXPECT_EQ(s.power.symbol, "powerplug.fill");
    });
    env.power.setBattery(45, true, 125);
    c.refreshSystem();
    inEachLanguage([&](bool ko) {
        const auto s = makeStatusStrip(c);
        EXPECT_EQ(s.power.title, pick(ko, "Battery", "배터리"));
        EXPECT_EQ(s.power.value, "45%");
        EXPECT_EQ(s.power.symbol, "battery.50");
        EXPECT_EQ(s.power.detail, pick(ko, "about 2:05 left", "약 2:05 남음"));
    });
    env.power.setBattery(12, true);
    c.refreshSystem();
    EXPECT_EQ(makeStatusStrip(c).power.symbol, "battery.0");
    EXPECT_FALSE(makeStatusStrip(c).power.detail.has_value()) << "no time left known";
    env.power.setBattery(80, false, std::nullopt, true);
    c.refreshSystem();
    inEachLanguage([&](bool ko) {
        const auto s = makeStatusStrip(c);
        EXPECT_EQ(s.power.title, pick(ko, "Power", "전원"));
        EXPECT_EQ(s.power.value, "80%");
        EXPECT_EQ(s.power.symbol, "battery.100.bolt");
        EXPECT_EQ(s.power.detail, pick(ko, "Charging", "충전 중"));
    });
}

TEST_F(MainPageModel, LidPillReadsClosedOpenOrUnknown) {
    EXPECT_EQ(makeStatusStrip(c).lid.value, "—");
    env.power.lid = true;
    c.refreshSystem();
    inEachLanguage([&](bool ko) {
        const auto s = makeStatusStrip(c);
        EXPECT_EQ(s.lid.title, pick(ko, "Lid", "뚜껑"));
        EXPECT_EQ(s.lid.value, pick(ko, "Closed", "닫힘"));
        EXPECT_EQ(s.lid.symbol, "laptopcomputer.slash");
    });
    env.power.lid = false;
    c.refreshSystem();
    EXPECT_EQ(makeStatusStrip(c).lid.value, "Open");
}

TEST_F(MainPageModel, HeatPillNamesEachThermalState) {
    const std::vector<std::string> en{"Normal", "Warm", "High", "Critical"};
    const std::vector<std::string> ko{"정상", "따뜻함", "높음", "위험"};
    inEachLanguage([&](bool korean) {
        for (int level = 0; level <= 3; ++level) {
            Access::viewsSetThermal(c, level);
            const auto s = makeStatusStrip(c);
            EXPECT_EQ(s.heat.value, korean ? ko[level] : en[level]) << level;
            EXPECT_EQ(s.heat.title, pick(korean, "Heat", "발열"));
            EXPECT_EQ(s.heat.symbol, "thermometer.medium");
        }
    });
}

TEST_F(MainPageModel, FooterShowsUpdatePhoneScreenOffAndPermissionWhenTheyApply) {
    Access::viewsSetHelperInstalled(c, true);
    EXPECT_EQ(texts(makeMainFooter(c)), (std::vector<std::string>{"Screen off"}));
    EXPECT_EQ(makeMainFooter(c)[0].button->action, Action::make(K::turnOffDisplay));

    Access::viewsSetHelperInstalled(c, false);
    Access::viewsSetUpdate(c, UpdateInfo{"1.4.2", "https://duskwell.app/download"});
    c.phone().setEnabled(true);
    inEachLanguage([&](bool ko) {
        const auto footer = makeMainFooter(c);
        EXPECT_EQ(texts(footer), ko ? (std::vector<std::string>{"새 버전 1.4.2 사용 가능", "폰 알림 켜짐", "화면 끄기", "권한 필요"})
                                    : (std::vector<std::string>{"Version 1.4.2 is available", "Phone on", "Screen off",
                                                                "Permission needed"}));
        EXPECT_EQ(footer[0].button->title, pick(ko, "Download", "다운로드"));
        EXPECT_EQ(footer[0].button->action, Action::make(K::openUpdate));
        EXPECT_EQ(footer[1].symbol, "iphone.gen3.radiowaves.left.and.right");
        EXPECT_FALSE(footer[1].button.has_value());
        EXPECT_EQ(footer[3].symbol, "chevron.right");
        EXPECT_EQ(footer[3].button->action, Action::make(K::openSettings));
    });
}

TEST_F(MainPageModel, BusyDisablesEveryControlThatStartsAPeriod) {
    c.setMode(KeepMode::timer);
    Access::viewsSetHelperInstalled(c, false);  // the permission button too
    Access::viewsSetBusy(c, true);
    auto p = makeMainPage(c);
    EXPECT_FALSE(p.hero.mainButton.enabled);
    for (const auto& chip : p.timer->chips) EXPECT_FALSE(chip.enabled) << chip.title;
    for (const auto& f : p.footer) EXPECT_TRUE(f.button->enabled) << f.text << " is not privileged";
    c.setMode(KeepMode::until);
    EXPECT_FALSE(makeMainPage(c).until->apply.enabled);

    Access::viewsSetBusy(c, false);
    p = makeMainPage(c);
    EXPECT_TRUE(p.hero.mainButton.enabled);
    EXPECT_TRUE(p.until->apply.enabled);
}

// The Mac shell rebuilds the popover only when its model changed, and updates the ring in
// place when nothing else did: a quiet second must leave the model equal, whatever the page
// shows must make it differ, and a running period's second must touch only the ring.
TEST_F(MainPageModel, PopoverModelDiffersExactlyWhenThePageWouldChange) {
    enum class Change { none, ringOnly, page };
    struct Step {
        const char* what;
        std::function<void()> run;
        Change change;
    };
    const std::vector<Step> steps = {
        {"a quiet second while idle", [&] { env.dispatcher.tickSecond(); }, Change::none},
        {"opening the settings page", [&] { c.setScreen(Screen::settings); }, Change::page},
        {"a quiet second on the settings page", [&] { env.dispatcher.tickSecond(); }, Change::none},
        {"back to the main page", [&] { c.setScreen(Screen::main); }, Change::page},
        {"choosing the timer mode", [&] { c.setMode(KeepMode::timer); }, Change::page},
        {"starting a 30-minute period", [&] { c.start(KeepMode::timer, 30); }, Change::page},
        {"a second of the running period", [&] { env.dispatcher.tickSecond(); }, Change::ringOnly},
        {"extending it", [&] { c.extend(30); }, Change::page},
        {"stopping it", [&] { c.stop(); }, Change::page},
    };
    auto before = makePopoverModel(c);
    EXPECT_EQ(before, makePopoverModel(c));
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.run();
        const auto after = makePopoverModel(c);
        EXPECT_EQ(after != before, step.change != Change::none);
        EXPECT_EQ(onlyRingTicked(before, after), step.change == Change::ringOnly);
        // Only the page on screen is built.
        EXPECT_EQ(after.main.has_value(), after.screen == Screen::main);
        EXPECT_EQ(after.settings.has_value(), after.screen == Screen::settings);
        before = after;
    }
}

}  // namespace
}  // namespace duskwell
