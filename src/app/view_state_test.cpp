#include "app/view_state.h"

#include <gtest/gtest.h>

#include <functional>

#include "app/view_model_testing.h"
#include "testing/controller_fixture.h"

namespace duskwell {
namespace {

using namespace viewtest;
using K = Action::Kind;

using ViewStateLine = testing::ControllerWithHelper;

// What an attached dashboard decodes is exactly what the service built, in every state a
// page differs in: each mode's card, a running period, agents with optional fields set,
// the phone section's extra rows, a message, a privileged operation in progress, Korean.
TEST_F(ViewStateLine, RoundTripsEveryPageState) {
    const std::vector<std::pair<std::string, std::function<void()>>> steps{
        {"idle", [] {}},
        {"timer running", [&] { perform(c, Action::preset(60)); }},
        {"agents", [&] {
             c.setMode(KeepMode::auto_);
             Access::viewsSetAgents(c, snapshot({agent(AgentKind::claude, AgentState::working, 3, true, c.now()),
                                                 agent(AgentKind::codex, AgentState::waiting),
                                                 agent(AgentKind::ollama, AgentState::idle),
                                                 agent(AgentKind::gemini, AgentState::working),
                                                 agent(AgentKind::aider, AgentState::working)}));
         }},
        {"until, busy", [&] {
             c.setMode(KeepMode::until);
             Access::viewsSetBusy(c, true);
         }},
        {"phone on, update, message", [&] {
             Access::viewsSetBusy(c, false);
             c.setPhone(true);
             Access::viewsSetUpdate(c, UpdateInfo{"9.9.9", "https://example.invalid/dl"});
             perform(c, Action::make(K::extend, 5));
             perform(c, Action::batteryFloor(15));
         }},
        {"Korean", [&] { Locale::overrideForTesting(true); }},
    };
    for (const auto& [name, step] : steps) {
        SCOPED_TRACE(name);
        step();
        const ViewState built = makeViewState(c);
        const std::string line = ViewProtocol::encode(built);
        EXPECT_EQ(line.find('\n'), std::string::npos);
        const auto decoded = ViewProtocol::decode(line);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(*decoded, built);
        EXPECT_EQ(popoverFor(*decoded, Screen::settings).settings, built.settings);
        EXPECT_EQ(popoverFor(*decoded, Screen::main).main, built.main);
    }
    Locale::overrideForTesting(std::nullopt);
}

TEST(ViewStateProtocol, RefusesLinesOfAnotherVersionOrShape) {
    for (const char* line : {"", "ok", "{}", "[1,2]", R"({"protocol":1,"main":{}})", R"({"protocol":3})", "{\"protocol\":2"}) {
        EXPECT_FALSE(ViewProtocol::decode(line)) << line;
    }
    // Unknown keys and wrong types read as defaults: a newer service still draws.
    const auto lenient = ViewProtocol::decode(R"({"protocol":2,"extra":1,"main":{"hero":{"headline":7,"detail":"x"}}})");
    ASSERT_TRUE(lenient);
    EXPECT_EQ(lenient->main.hero.headline, "");
    EXPECT_EQ(lenient->main.hero.detail, "x");
}

TEST(ViewStateProtocol, ActionRequestsRoundTripAndRejectWhatNoActionSays) {
    const std::vector<std::pair<Action, std::string>> table{
        {Action::make(K::toggle), "action toggle"},
        {Action::preset(60), "action startPreset 60"},
        {Action::extendBy(30), "action extend 30"},
        {Action::untilTime(23, 45), "action setUntilTime 1425"},
        {Action::selectMode(KeepMode::until), "action setMode until"},
        {Action::integration(AgentKind::claude, false), "action setIntegration claude"},
        {Action::integration(AgentKind::codex, true), "action setIntegration codex on"},
        {Action::connectAgent(AgentKind::gemini), "action connect gemini on"},
        {Action::toggleSwitch(K::setPhone, true), "action setPhone on"},
        {Action::batteryFloor(0), "action setBatteryFloor"},
        {Action::make(K::quit), "action quit"},
    };
    for (const auto& [action, request] : table) {
        EXPECT_EQ(ViewProtocol::actionRequest(action), request);
        EXPECT_EQ(ViewProtocol::parseActionRequest(request), action) << request;
    }
    EXPECT_EQ(ViewProtocol::parseActionRequest("action setPhone off"), Action::toggleSwitch(K::setPhone, false));
    for (const char* bad : {"action", "action ", "action nothing", "action extend ten", "action setMode sometimes",
                            "actions toggle", "toggle", "action extend 99999999999"}) {
        EXPECT_FALSE(ViewProtocol::parseActionRequest(bad)) << bad;
    }
}

}  // namespace
}  // namespace duskwell
