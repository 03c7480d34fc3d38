#include <gtest/gtest.h>

#include <algorithm>

#include "core/awake_controller_test_support.h"
#include "core/localization.h"

namespace duskwell {
namespace {

using testing::phoneAlerts;
using testing::sleepNowLine;
using testing::TestEnvironment;
using Access = AwakeControllerTestAccess;
using Command = PhoneNotifier::Command;

size_t sleeps(const TestEnvironment& env) {
    const auto lines = env.commands.lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), sleepNowLine()));
}

// The controller with the phone on; `reply()` is the last alert it published.
struct Phone {
    Phone() {
        c = std::make_unique<AwakeController>();
        c->setPhone(true);
    }
    nlohmann::json reply() const {
        auto all = phoneAlerts(env.http);
        return all.empty() ? nlohmann::json() : all.back();
    }
    size_t sent() const { return phoneAlerts(env.http).size(); }
    TestEnvironment env;
    std::unique_ptr<AwakeController> c;
};

void expectReply(const nlohmann::json& j, const std::string& message, const std::string& tag) {
    EXPECT_EQ(j.value("title", ""), "Duskwell");
    EXPECT_EQ(j.value("message", ""), message);
    EXPECT_EQ(j["tags"], nlohmann::json::array({tag}));
    EXPECT_EQ(j.value("priority", 0), 3);
    EXPECT_FALSE(j.contains("actions"));
}

TEST(PhoneCommands, ExtendWhileIdleOnlyRepliesWhileATimerRunsAddsExactlyOneHour) {
    Phone p;
    Access::phoneCommand(*p.c, Command::extend60);
    EXPECT_FALSE(p.c->isActive());
    expectReply(p.reply(), "Not running right now.", "information_source");

    p.env.installHelper();
    p.c->start(KeepMode::timer, 30);
    const Date end = *p.c->endDate();
    p.env.clock.advance(10);
    Access::phoneCommand(*p.c, Command::extend60);
    EXPECT_EQ(p.c->endDate(), addSeconds(end, 3600));
    expectReply(p.reply(), "Extended by 1 hour. " + p.c->statusLine(), "white_check_mark");
    p.c->stop();
}

TEST(PhoneCommands, StartWarnsWithoutTheHelperOtherwiseStartsAnAutoPeriodOnce) {
    Phone p;
    p.c->setMode(KeepMode::timer);
    Access::phoneCommand(*p.c, Command::start);
    EXPECT_FALSE(p.c->isActive());
    EXPECT_TRUE(p.env.platform.adminScripts.empty()) << "no password prompt from the phone";
    expectReply(p.reply(), "Install the power permission on your computer first.", "warning");

    p.env.installHelper();
    Access::phoneCommand(*p.c, Command::start);
    EXPECT_EQ(p.c->activeMode(), KeepMode::auto_);
    EXPECT_EQ(p.c->mode(), KeepMode::auto_);
    EXPECT_EQ(p.reply().value("title", ""), "Duskwell started") << "start's own notice, no extra reply";
    Access::phoneCommand(*p.c, Command::start);
    expectReply(p.reply(), "Already running. " + p.c->statusLine(), "information_source");
    p.c->stop();
}

TEST(PhoneCommands, StopWhileIdleStillSleepsAfterThreeSeconds) {
    Phone p;
    Access::phoneCommand(*p.c, Command::stop);
    expectReply(p.reply(), "Putting your computer to sleep.", "zzz");
    EXPECT_EQ(sleeps(p.env), 0u);
    p.env.clock.advance(2.9);
    p.env.dispatcher.runDue();
    EXPECT_EQ(sleeps(p.env), 0u);
    p.env.clock.advance(0.1);
    p.env.dispatcher.runDue();
    EXPECT_EQ(sleeps(p.env), 1u);
}

// The phone's replies and the start/stop alerts name the machine: "Mac" only on the Mac.
TEST(PhoneCommands, AlertsNameTheMachineInBothLanguagesOnBothPlatforms) {
    struct Row {
        Machine::Kind kind;
        bool ko;
        const char* sleeping;    // stop while idle
        const char* permission;  // start without the helper
        const char* started;     // the start alert, up to its promise
        const char* stopped;     // a manual stop
    };
    const Row rows[] = {
        {Machine::Kind::mac, false, "Putting your Mac to sleep.", "Install the power permission on your Mac first.",
         "Your Mac keeps running with the lid closed. ", "Stopped manually. Your Mac will sleep normally."},
        {Machine::Kind::mac, true, "Mac을 잠자기합니다.", "Mac에서 처음 한 번 권한 설치가 필요해요.",
         "뚜껑을 닫아도 Mac이 계속 실행돼요. ", "수동으로 중지했어요. Mac이 평소처럼 잠자기해요."},
        {Machine::Kind::computer, false, "Putting your computer to sleep.",
         "Install the power permission on your computer first.", "Your computer keeps running with the lid closed. ",
         "Stopped manually. Your computer will sleep normally."},
        {Machine::Kind::computer, true, "컴퓨터를 잠자기합니다.", "컴퓨터에서 처음 한 번 권한 설치가 필요해요.",
         "뚜껑을 닫아도 컴퓨터가 계속 실행돼요. ", "수동으로 중지했어요. 컴퓨터가 평소처럼 잠자기해요."},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.kind == Machine::Kind::mac ? "mac " : "computer ") + (r.ko ? "ko" : "en"));
        Phone p;
        Machine::overrideForTesting(r.kind);
        Locale::overrideForTesting(r.ko);
        Access::phoneCommand(*p.c, Command::stop);
        EXPECT_EQ(p.reply().value("message", ""), r.sleeping);
        Access::phoneCommand(*p.c, Command::start);
        EXPECT_EQ(p.reply().value("message", ""), r.permission);
        p.env.installHelper();
        p.c->start(KeepMode::timer, 30);
        EXPECT_EQ(p.reply().value("message", "").rfind(r.started, 0), 0u) << p.reply().value("message", "");
        p.c->stop();
        EXPECT_EQ(p.reply().value("message", ""), r.stopped);
    }
}

TEST(PhoneCommands, SleepWhileRunningStopsWithAReasonThenSleeps) {
    Phone p;
    p.env.installHelper();
    p.env.power.lid = false;
    p.c->start(KeepMode::timer, 30);
    Access::phoneCommand(*p.c, Command::sleep);
    EXPECT_FALSE(p.c->isActive());
    EXPECT_EQ(p.c->lastMessage(), "Sleep requested from your phone.");
    const auto last = p.reply();
    EXPECT_EQ(last.value("title", ""), "Duskwell");
    EXPECT_EQ(last.value("message", ""), "Sleep requested from your phone.") << "the stop's own notice";
    EXPECT_EQ(sleeps(p.env), 0u) << "lid open: nothing at once";
    p.env.clock.advance(3);
    p.env.dispatcher.runDue();
    EXPECT_EQ(sleeps(p.env), 1u);
}

TEST(PhoneCommands, StatusCarriesButtonsOnlyWhileRunningAndRepliesInKorean) {
    Phone p;
    Access::phoneCommand(*p.c, Command::status);
    auto j = p.reply();
    EXPECT_EQ(j.value("title", ""), "Duskwell status");
    EXPECT_EQ(j.value("message", ""), p.c->statusLine());
    EXPECT_EQ(j["tags"], nlohmann::json::array({"bar_chart"}));
    EXPECT_FALSE(j.contains("actions"));

    p.env.installHelper();
    p.c->start(KeepMode::timer, 30);
    Access::phoneCommand(*p.c, Command::status);
    j = p.reply();
    EXPECT_EQ(j.value("title", ""), "Duskwell status");
    ASSERT_TRUE(j.contains("actions"));
    EXPECT_EQ(j["actions"].size(), 2u);
    p.c->stop();

    Locale::overrideForTesting(true);
    Access::phoneCommand(*p.c, Command::status);
    EXPECT_EQ(p.reply().value("title", ""), "Duskwell 상태");
    Access::phoneCommand(*p.c, Command::extend60);
    EXPECT_EQ(p.reply().value("message", ""), "지금은 실행 중이 아니에요.");
    Locale::overrideForTesting(std::nullopt);
}

TEST(PhoneSwitch, OffMeansNothingIsSentOrPolled) {
    Phone p;
    p.c->setPhone(false);
    EXPECT_FALSE(p.c->phone().enabled());
    for (int i = 0; i < 40; ++i) p.env.dispatcher.tickSecond();
    Access::phoneCommand(*p.c, Command::status);
    EXPECT_EQ(p.sent(), 0u);
    EXPECT_TRUE(std::none_of(p.env.http.requests.begin(), p.env.http.requests.end(), [](const auto& r) {
        return r.request.url.find("/json?poll=1") != std::string::npos;
    }));
}

}  // namespace
}  // namespace duskwell
