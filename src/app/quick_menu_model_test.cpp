#include "app/quick_menu_model.h"

#include <gtest/gtest.h>

#include "app/view_model_testing.h"
#include "testing/fakes.h"
#include "testing/controller_fixture.h"

namespace duskwell {
namespace {

using QuickMenuModel = testing::ControllerWithHelper;

using namespace viewtest;
using K = Action::Kind;

// "---" for a separator, the title otherwise.
std::vector<std::string> titles(const std::vector<QuickMenuItem>& menu) {
    std::vector<std::string> out;
    for (const auto& i : menu) out.push_back(i.kind == QuickMenuItem::Kind::separator ? "---" : i.title);
    return out;
}

const QuickMenuItem* find(const std::vector<QuickMenuItem>& menu, const std::string& title) {
    for (const auto& i : menu) {
        if (i.title == title) return &i;
    }
    return nullptr;
}

TEST_F(QuickMenuModel, IdleOffersAutoThenOnePresetPerEntryThenTheShellItems) {
    inEachLanguage([&](bool ko) {
        const auto menu = makeQuickMenu(c);
        if (ko) {
            EXPECT_EQ(titles(menu), (std::vector<std::string>{"AI 작업 끝날 때까지", "---", "30분", "1시간", "2시간",
                                                              "4시간", "8시간", "---", "화면 끄기", "열기…", "---",
                                                              "Duskwell 종료"}));
        } else {
            EXPECT_EQ(titles(menu), (std::vector<std::string>{"Until AI tasks finish", "---", "30m", "1h", "2h", "4h",
                                                              "8h", "---", "Turn off screen", "Open…", "---",
                                                              "Quit Duskwell"}));
        }
        EXPECT_EQ(menu.front().action, Action::make(K::startAuto));
        EXPECT_EQ(menu[3].action, Action::preset(60));
        EXPECT_EQ(menu[6].action, Action::preset(480));
        EXPECT_EQ(menu.back().keyEquivalent, "q");
        EXPECT_EQ(menu.back().action, Action::make(K::quit));
        for (const auto& i : menu) {
            if (i.kind == QuickMenuItem::Kind::item) {
                EXPECT_TRUE(i.enabled()) << i.title;
            }
            if (i.title != menu.back().title) {
                EXPECT_EQ(i.keyEquivalent, "") << i.title;
            }
        }
    });
}

TEST_F(QuickMenuModel, ATimerWithAnEndOffersStopAndBothExtensionsAnUnlimitedOneOnlyStop) {
    c.start(KeepMode::timer, 60);
    inEachLanguage([&](bool ko) {
        const auto menu = makeQuickMenu(c);
        if (ko) {
            EXPECT_EQ(titles(menu), (std::vector<std::string>{"남은 시간 1:00:00", "중단하기", "30분 연장", "1시간 연장",
                                                              "---", "화면 끄기", "열기…", "---", "Duskwell 종료"}));
        } else {
            EXPECT_EQ(titles(menu), (std::vector<std::string>{"1:00:00 left", "Stop", "Extend 30 min", "Extend 1 hour",
                                                              "---", "Turn off screen", "Open…", "---",
                                                              "Quit Duskwell"}));
        }
        EXPECT_FALSE(menu[0].enabled()) << "the information line is shown disabled";
        EXPECT_EQ(menu[1].action, Action::make(K::stop));
        EXPECT_EQ(menu[2].action, Action::extendBy(30));
        EXPECT_EQ(menu[3].action, Action::extendBy(60));
    });
    // An unlimited timer has nothing to extend.
    c.start(KeepMode::timer, 0);
    const auto menu = makeQuickMenu(c);
    EXPECT_EQ(titles(menu), (std::vector<std::string>{"Running without limit", "Stop", "---", "Turn off screen",
                                                      "Open…", "---", "Quit Duskwell"}));
}

TEST_F(QuickMenuModel, AutoHasNoExtendItemsEvenWithItsCap) {
    c.start(KeepMode::auto_, std::nullopt);
    ASSERT_TRUE(c.endDate().has_value()) << "8 h cap by default";
    Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::working, 2)}));
    inEachLanguage([&](bool ko) {
        const auto menu = makeQuickMenu(c);
        EXPECT_EQ(menu[0].title, pick(ko, "2 AI tasks running", "AI 작업 2개 진행 중"));
        EXPECT_EQ(find(menu, pick(ko, "Extend 30 min", "30분 연장")), nullptr);
    });

    // Quiet: the line counts down to sleep.
    Access::viewsSetAgents(c, snapshot({}));
    Access::viewsSetNow(c, addSeconds(c.now(), 75));
    inEachLanguage([&](bool ko) {
        EXPECT_EQ(makeQuickMenu(c)[0].title, pick(ko, "Sleeping in 8:45", "8:45 후 잠자기"));
    });
}

}  // namespace
}  // namespace duskwell
