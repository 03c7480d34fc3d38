#include "commands/control_protocol.h"

#include <gtest/gtest.h>

#include "core/awake_controller.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using ControlProtocol::Reply;
using ControlProtocol::ReplyKind;

TEST(ControlProtocolLines, FormatAndParseAreInverse) {
    for (const Reply& r : {Reply{ReplyKind::ok, {}}, Reply{ReplyKind::ok, R"({"battery-floor":20})"},
                           Reply{ReplyKind::notHandled, {}}, Reply{ReplyKind::error, "Couldn't change power settings."}}) {
        EXPECT_EQ(ControlProtocol::parse(ControlProtocol::format(r) + "\r\n"), r);
    }
    EXPECT_EQ(ControlProtocol::format({ReplyKind::error, "two\nlines"}), "error two lines");
    EXPECT_EQ(ControlProtocol::parse("OK"), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse("okay"), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse(""), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse("error a\x1b[2Jb\rc"), (Reply{ReplyKind::error, "a [2Jb c"}))
        << "no terminal control characters reach the screen";
    EXPECT_EQ(ControlProtocol::parse("ok a\x1b[2J"), (Reply{ReplyKind::ok, "a [2J"}));
}

TEST(ControlProtocolLines, ClockTimesAreHoursAndMinutesOfOneDay) {
    using HM = std::optional<std::pair<int, int>>;
    const std::vector<std::pair<std::string, HM>> table{
        {"00:00", std::pair{0, 0}}, {"9:05", std::pair{9, 5}}, {"23:59", std::pair{23, 59}},
        {"24:00", std::nullopt},    {"12:60", std::nullopt},   {"9:5", std::nullopt},
        {"123:00", std::nullopt},   {":30", std::nullopt},     {"12:3a", std::nullopt},
        {"-1:00", std::nullopt},    {"12.30", std::nullopt},   {"", std::nullopt},
    };
    for (const auto& [text, expected] : table) EXPECT_EQ(ControlProtocol::parseClock(text), expected) << text;
}

TEST(ControlProtocolLines, RequestsAreSingleBoundedPrintableLines) {
    EXPECT_TRUE(ControlProtocol::acceptableRequest("duskwell://start?mode=timer&minutes=90"));
    EXPECT_TRUE(ControlProtocol::acceptableRequest("ping"));
    EXPECT_FALSE(ControlProtocol::acceptableRequest(""));
    EXPECT_FALSE(ControlProtocol::acceptableRequest("duskwell://stop\r"));
    EXPECT_FALSE(ControlProtocol::acceptableRequest(std::string(4097, 'x')));
    EXPECT_TRUE(ControlProtocol::acceptableRequest(std::string(4096, 'x')));
}

TEST(ControlProtocolAnswer, HandledRoutesAnswerOkAndUnknownOnesNotHandled) {
    testing::TestEnvironment env;
    env.installHelper();
    AwakeController c;
    EXPECT_EQ(ControlProtocol::answer(c, "ping"), (Reply{ReplyKind::ok, {}}));
    EXPECT_FALSE(c.isActive()) << "ping changes nothing";
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://start?mode=timer&minutes=5").kind, ReplyKind::ok);
    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://extend?minutes=5").kind, ReplyKind::ok);
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://STOP").kind, ReplyKind::notHandled);
    EXPECT_TRUE(c.isActive());
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://stop").kind, ReplyKind::ok);
    EXPECT_FALSE(c.isActive());
}

TEST(ControlProtocolAnswer, ExtendWithoutASessionOrWithoutAnEndIsRefused) {
    testing::TestEnvironment env;
    env.installHelper();
    AwakeController c;
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://extend?minutes=30"),
              (Reply{ReplyKind::error, "No session is running."}));
    ASSERT_EQ(ControlProtocol::answer(c, "duskwell://start?mode=timer&minutes=0").kind, ReplyKind::ok);
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://extend?minutes=30").kind, ReplyKind::error);
    EXPECT_FALSE(c.endDate()) << "still without an end";
}

TEST(ControlProtocolAnswer, SettingsRequestsGoThroughTheController) {
    testing::TestEnvironment env;
    AwakeController c;
    EXPECT_EQ(ControlProtocol::answer(c, "version"), (Reply{ReplyKind::ok, std::to_string(ControlProtocol::version)}));
    EXPECT_EQ(ControlProtocol::answer(c, "config set timer-minutes 25"), (Reply{ReplyKind::ok, R"({"timer-minutes":25})"}));
    EXPECT_EQ(c.selectedMinutes(), 25);
    EXPECT_EQ(ControlProtocol::answer(c, "config set mode until"), (Reply{ReplyKind::ok, R"({"mode":"until"})"}));
    EXPECT_EQ(c.mode(), KeepMode::until);
    EXPECT_EQ(ControlProtocol::answer(c, "config set lock-on-lid-close off").kind, ReplyKind::ok);
    EXPECT_FALSE(c.lockOnLidClose());
    EXPECT_EQ(ControlProtocol::answer(c, "config set battery-floor 7").kind, ReplyKind::error);
    EXPECT_EQ(c.batteryFloor(), 10) << "a refused value changes nothing";
    EXPECT_EQ(ControlProtocol::answer(c, "config set phone.server \"\"").kind, ReplyKind::ok);
    EXPECT_EQ(ControlProtocol::answer(c, "config frob").kind, ReplyKind::notHandled);
    EXPECT_EQ(ControlProtocol::answer(c, "phone on").kind, ReplyKind::ok);
    EXPECT_TRUE(c.phone().enabled());
}

TEST(ControlProtocolAnswer, AStartThatFailsCarriesTheControllersReason) {
    testing::TestEnvironment env;  // no helper installed, and the password prompt is dismissed
    env.platform.adminResult = {AdminOutcome::cancelled, {}};
    AwakeController c;
    const Reply reply = ControlProtocol::answer(c, "duskwell://start?mode=timer&minutes=5");
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(reply.kind, ReplyKind::error);
    ASSERT_TRUE(c.lastMessage());
    EXPECT_EQ(reply.text, *c.lastMessage());
}

}  // namespace
}  // namespace duskwell
