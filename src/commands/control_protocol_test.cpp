#include "commands/control_protocol.h"

#include <gtest/gtest.h>

#include "core/awake_controller.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using ControlProtocol::Reply;
using ControlProtocol::ReplyKind;

TEST(ControlProtocolLines, FormatAndParseAreInverse) {
    for (const Reply& r : {Reply{ReplyKind::ok, {}}, Reply{ReplyKind::notHandled, {}},
                           Reply{ReplyKind::error, "Couldn't change power settings."}}) {
        EXPECT_EQ(ControlProtocol::parse(ControlProtocol::format(r) + "\r\n"), r);
    }
    EXPECT_EQ(ControlProtocol::format({ReplyKind::error, "two\nlines"}), "error two lines");
    EXPECT_EQ(ControlProtocol::parse("OK"), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse("okay"), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse(""), std::nullopt);
    EXPECT_EQ(ControlProtocol::parse("error a\x1b[2Jb\rc"), (Reply{ReplyKind::error, "a [2Jb c"}))
        << "no terminal control characters reach the screen";
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

TEST(ControlProtocolAnswer, ExtendWithoutASessionIsRefused) {
    testing::TestEnvironment env;
    AwakeController c;
    EXPECT_EQ(ControlProtocol::answer(c, "duskwell://extend?minutes=30"),
              (Reply{ReplyKind::error, "No session is running."}));
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
