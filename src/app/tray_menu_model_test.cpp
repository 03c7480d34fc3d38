#include "app/tray_menu_model.h"

#include <gtest/gtest.h>

#include <set>

#include "app/view_model_testing.h"
#include "testing/controller_fixture.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using TrayMenuModel = testing::ControllerWithHelper;
using namespace viewtest;
using K = Action::Kind;

// "---" for a separator; a disabled entry in brackets.
std::vector<std::string> labels(const TrayMenu& menu) {
    std::vector<std::string> out;
    for (const auto& e : menu.entries) {
        if (e.type == TrayMenuEntry::Type::separator) out.push_back("---");
        else out.push_back(e.enabled ? e.label : "[" + e.label + "]");
    }
    return out;
}

int idOf(const TrayMenu& menu, const std::string& label) {
    for (const auto& e : menu.entries) {
        if (e.label == label) return e.id;
    }
    ADD_FAILURE() << "no entry " << label;
    return -1;
}

TEST_F(TrayMenuModel, FollowsTheQuickMenuWithOpenNamingTheDashboardAndClicksMapBackToActions) {
    inEachLanguage([&](bool ko) {
        const TrayMenu idle = makeTrayMenu(makeQuickMenu(c));
        using V = std::vector<std::string>;
        const V expected = ko ? V{"AI 작업 끝날 때까지", "---", "30분", "1시간", "2시간", "4시간", "8시간", "---",
                                  "화면 끄기", "대시보드 열기…", "---", "Duskwell 종료"}
                              : V{"Until AI tasks finish", "---", "30m", "1h", "2h", "4h", "8h", "---",
                                  "Turn off screen", "Open dashboard…", "---", "Quit Duskwell"};
        EXPECT_EQ(labels(idle), expected);
    });

    const TrayMenu idle = makeTrayMenu(makeQuickMenu(c));
    c.start(KeepMode::timer, 60);
    const TrayMenu active = makeTrayMenu(makeQuickMenu(c));
    EXPECT_EQ(labels(active), (std::vector<std::string>{"[1:00:00 left]", "Stop", "Extend 30 min", "Extend 1 hour",
                                                        "---", "Turn off screen", "Open dashboard…", "---",
                                                        "Quit Duskwell"}));

    struct Case {
        const TrayMenu& menu;
        int id;
        std::optional<Action> action;
    };
    const Case cases[] = {
        {idle, idOf(idle, "Until AI tasks finish"), Action::make(K::startAuto)},
        {idle, idOf(idle, "30m"), Action::preset(30)},
        {idle, idOf(idle, "8h"), Action::preset(480)},
        {idle, idOf(idle, "Open dashboard…"), Action::make(K::openPopover)},
        {idle, idOf(idle, "Quit Duskwell"), Action::make(K::quit)},
        {idle, idle.entries[1].id, std::nullopt},  // a separator
        {idle, 0, std::nullopt},                   // the root
        {idle, 999999, std::nullopt},              // unknown
        {active, idOf(active, "Stop"), Action::make(K::stop)},
        {active, idOf(active, "Extend 1 hour"), Action::extendBy(60)},
        {active, active.entries[0].id, std::nullopt},  // the information line
    };
    for (const Case& t : cases) {
        EXPECT_EQ(t.menu.actionFor(t.id), t.action) << "id " << t.id;
    }

    // Ids are unique, positive (0 is the root) and the same for the same item in both states.
    for (const TrayMenu* m : {&idle, &active}) {
        std::set<int> ids;
        for (const auto& e : m->entries) {
            EXPECT_GT(e.id, 0);
            EXPECT_TRUE(ids.insert(e.id).second) << "duplicate id " << e.id;
        }
    }
    EXPECT_EQ(idOf(idle, "Quit Duskwell"), idOf(active, "Quit Duskwell"));
}

TEST_F(TrayMenuModel, ATickingClockChangesOneLabelAStartOrStopChangesTheLayout) {
    c.start(KeepMode::timer, 60);
    const TrayMenu before = makeTrayMenu(makeQuickMenu(c));
    Access::viewsSetNow(c, addSeconds(c.now(), 1));
    const TrayMenu ticked = makeTrayMenu(makeQuickMenu(c));
    c.stop(std::nullopt);
    const TrayMenu idle = makeTrayMenu(makeQuickMenu(c));

    using Kind = TrayMenuChange::Kind;
    struct Case {
        const TrayMenu& a;
        const TrayMenu& b;
        TrayMenuChange expected;
    };
    const Case cases[] = {
        {before, before, {Kind::none, {}}},
        {before, ticked, {Kind::properties, {before.entries[0].id}}},
        {ticked, idle, {Kind::layout, {}}},
        {idle, before, {Kind::layout, {}}},
    };
    for (const Case& t : cases) {
        EXPECT_EQ(compareTrayMenus(t.a, t.b), t.expected) << labels(t.a)[0] << " -> " << labels(t.b)[0];
    }
}

TEST(TrayItemModel, IconTitleTooltipAndLabelFollowTheStatusItem) {
    struct Case {
        StatusItemModel status;
        TrayItem expected;
    };
    const Case cases[] = {
        {{"moon.stars", std::nullopt, "Duskwell: Idle", "Duskwell"},
         {"weather-clear-night", "Duskwell", "Duskwell: Idle", "", ""}},
        {{"bolt.fill", " 29m", "Duskwell: Running with the lid closed", "Duskwell"},
         {"weather-clear", "Duskwell 29m", "Duskwell: Running with the lid closed", "29m", "29m"}},
        {{"sparkles", " AI", "Duskwell: Running with the lid closed", "Duskwell"},
         {"starred", "Duskwell AI", "Duskwell: Running with the lid closed", "AI", "AI"}},
    };
    for (const Case& t : cases) {
        EXPECT_EQ(makeTrayItem(t.status), t.expected) << t.status.symbol;
    }
}

TEST(TrayMenuLabels, UnderscoresAreDoubledSoHostsDoNotTakeThemForAccessKeys) {
    QuickMenuItem item;
    item.title = "my_agent";
    item.action = Action::make(K::stop);
    EXPECT_EQ(makeTrayMenu({item}).entries.at(0).label, "my__agent");
}

}  // namespace
}  // namespace duskwell
