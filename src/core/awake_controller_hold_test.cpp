#include <gtest/gtest.h>

#include "app/main_page_model.h"
#include "core/awake_controller_test_support.h"
#include "core/settings_keys.h"

namespace duskwell {
namespace {

using testing::phoneAlertsTitled;
using testing::TestEnvironment;
using State = HoldVerdict::State;
using nlohmann::json;

const std::string kAlert = "⚠️ Keep-awake isn't holding";

HoldObservation holding() { return {true, true, std::nullopt, std::nullopt}; }
HoldObservation inhibitorGone() { return {false, true, std::nullopt, std::nullopt}; }
HoldObservation lidBack() { return {true, false, std::nullopt, std::nullopt}; }
HoldObservation unknown() { return {}; }

struct Period {
    Period() {
        env.installHelper();
        c = std::make_unique<AwakeController>();
        c->setPhone(true);
        c->start(KeepMode::timer, 60);
    }
    void seconds(int n) {
        for (int i = 0; i < n; ++i) env.dispatcher.tickSecond();
    }
    json status() const {
        return json::parse(testing::readFile(AppConfig::statusFile()).value_or("{}"), nullptr, false);
    }
    size_t alerts() const { return phoneAlertsTitled(env.http, kAlert).size(); }
    TestEnvironment env;
    std::unique_ptr<AwakeController> c;
};

// One period, minute by minute: every surface follows the verdict, and the alert goes out
// once per failure episode.
TEST(HoldCheck, SurfacesFollowTheVerdictAndAlertOncePerEpisode) {
    struct Step {
        const char* what;
        HoldObservation answer;
        State state;
        json held;      // status.json "held", null when absent
        json reasons;   // status.json "heldReasons", null when absent
        size_t alerts;  // phone alerts so far
    };
    const Step steps[] = {
        {"holds", holding(), State::holds, true, nullptr, 0},
        {"inhibitor missing", inhibitorGone(), State::broken, false, json::array({"inhibitor"}), 1},
        {"still missing a minute later", inhibitorGone(), State::broken, false, json::array({"inhibitor"}), 1},
        {"cannot be asked", unknown(), State::unknown, nullptr, nullptr, 1},
        {"missing again, never held in between", inhibitorGone(), State::broken, false, json::array({"inhibitor"}), 1},
        {"recovers", holding(), State::holds, true, nullptr, 1},
        {"fails again", lidBack(), State::broken, false, json::array({"lid"}), 2},
    };
    Period p;
    bool first = true;
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        p.env.hold.answer = s.answer;
        p.seconds(first ? 3 : 60);
        first = false;
        EXPECT_EQ(p.c->held().state, s.state);
        const json doc = p.status();
        EXPECT_EQ(doc.contains("held") ? doc["held"] : json(nullptr), s.held) << doc.dump();
        EXPECT_EQ(doc.contains("heldReasons") ? doc["heldReasons"] : json(nullptr), s.reasons);
        EXPECT_EQ(p.alerts(), s.alerts);
        const bool broken = s.state == State::broken;
        EXPECT_EQ(p.c->statusLine().rfind("Not holding: ", 0) == 0, broken) << p.c->statusLine();
        EXPECT_EQ(makeHeroCard(*p.c).headline == "Keep-awake isn't holding", broken);
    }
    const auto sent = phoneAlertsTitled(p.env.http, kAlert);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0]["message"], "The system isn't holding Duskwell's sleep block, so it may sleep when left idle.");
    EXPECT_EQ(sent[1]["message"], "Sleep on lid close is switched on again, so closing the lid may put it to sleep.");
    EXPECT_EQ(p.c->statusLine(), "Not holding: lid sleep is on · 54m left");
    EXPECT_EQ(makeHeroCard(*p.c).detail, sent[1]["message"]);

    // Stopping forgets the verdict; the next period starts a new episode.
    p.c->stop();
    EXPECT_EQ(p.c->held().state, State::unknown);
    p.c->start(KeepMode::timer, 60);
    p.seconds(3);
    EXPECT_EQ(p.alerts(), 3u);
}

// What is asked, and when: a few seconds after the start, then every minute; nothing while
// idle.
TEST(HoldCheck, AsksOnlyWhatThePeriodSetUpAndOnlyWhileItRuns) {
    Period p;
    p.seconds(2);
    EXPECT_TRUE(p.env.hold.queries.empty()) << "too early";
    p.seconds(1);
    ASSERT_EQ(p.env.hold.queries.size(), 1u);
    const HoldQuery q = p.env.hold.queries.front();
    EXPECT_EQ(q.pid, 4242);
    EXPECT_TRUE(q.inhibitor);
    EXPECT_TRUE(q.lid);
    EXPECT_FALSE(q.profile) << "the profile was already the wanted one";
    p.seconds(59);
    EXPECT_EQ(p.env.hold.queries.size(), 1u);
    p.seconds(1);
    EXPECT_EQ(p.env.hold.queries.size(), 2u);
    p.c->stop();
    p.seconds(300);
    EXPECT_EQ(p.env.hold.queries.size(), 2u) << "idle: nothing asked";
    EXPECT_FALSE(p.status().contains("held"));
}

// A refused inhibitor fails without asking; a changed profile fails once we set one.
TEST(HoldCheck, RefusedInhibitorAndChangedProfile) {
    struct Case {
        const char* what;
        bool granted;
        int powerModeBefore;
        HoldObservation answer;
        std::vector<HoldItem> failing;
        bool asksInhibitor, asksProfile;
    };
    const Case cases[] = {
        {"inhibitor refused", false, 2, holding(), {HoldItem::inhibitor}, false, false},
        {"profile changed back", true, 0, {true, true, 0, std::nullopt}, {HoldItem::profile}, true, true},
        {"profile kept", true, 0, {true, true, 2, std::nullopt}, {}, true, true},
        {"profile unreadable", true, 0, {true, true, std::nullopt, std::nullopt}, {}, true, true},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        TestEnvironment env;
        env.installHelper();
        env.power.assertionsGranted = k.granted;
        env.power.batterySettings = {{"lowpowermode", 0}, {"powermode", k.powerModeBefore}};
        env.hold.answer = k.answer;
        AwakeController c;
        c.start(KeepMode::timer, 60);
        for (int i = 0; i < 3; ++i) env.dispatcher.tickSecond();
        ASSERT_EQ(env.hold.queries.size(), 1u);
        EXPECT_EQ(env.hold.queries[0].inhibitor, k.asksInhibitor);
        EXPECT_EQ(env.hold.queries[0].profile, k.asksProfile);
        EXPECT_EQ(c.held().failing, k.failing);
        EXPECT_EQ(c.held().state, k.failing.empty() ? State::holds : State::broken);
    }
}

// An answer that arrives after its period ended is dropped, also when a new one started.
TEST(HoldCheck, AnAnswerFromAnEndedPeriodIsDropped) {
    Period p;
    p.env.hold.answer = inhibitorGone();
    p.seconds(2);
    p.env.clock.advance(1);
    p.env.dispatcher.fireTimers();  // the check is queued, not yet run
    p.c->stop();
    p.c->start(KeepMode::timer, 60);
    p.env.dispatcher.runBackground();
    EXPECT_EQ(p.c->held().state, State::unknown);
    EXPECT_EQ(p.alerts(), 0u);
}

}  // namespace
}  // namespace duskwell
