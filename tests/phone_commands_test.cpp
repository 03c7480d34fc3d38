// Remote commands: PhoneNotifier::poll over real HTTP against the loopback ntfy server.
#include <gtest/gtest.h>

#include "phone_fixture.h"

namespace duskwell::testing {
namespace {

using Command = PhoneNotifier::Command;
using Access = PhoneNotifierTestAccess;

class PhoneCommands : public PhoneFixture {
protected:
    std::vector<std::string> sinces() const {
        std::vector<std::string> out;
        for (const auto& r : pollRequests()) out.push_back(r.target.substr(r.target.find("since=") + 6));
        return out;
    }
    std::vector<Command> executed;
};

TEST_F(PhoneCommands, CommandsSinceLaunchRunInServerOrderAndTheCursorMovesToTheNewest) {
    auto phone = makeNotifier();
    const auto startedAt = Access::startedAt(*phone);
    server.publish(control(), secret() + " sleep", startedAt - 60);  // sent before launch
    server.publish(control(), secret() + " extend60");
    const auto last = server.publish(control(), secret() + " status");
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::extend60, Command::status}));
    EXPECT_EQ(pollRequests().at(0).target, "/" + control() + "/json?poll=1&since=" + std::to_string(startedAt));
    EXPECT_EQ(Access::lastID(*phone), last);

    const auto next = server.publish(control(), secret() + " start");
    pollOnce(*phone, executed);
    pollOnce(*phone, executed);  // nothing new: the cursor stays where it was
    EXPECT_EQ(executed, (std::vector<Command>{Command::extend60, Command::status, Command::start}));
    EXPECT_EQ(sinces(), (std::vector<std::string>{std::to_string(startedAt), last, next}));
    EXPECT_EQ(Access::lastID(*phone), next);
}

// A server without anonymous access: the token goes as "Authorization: Bearer" on the
// publish and on the command poll; without it (or with another) ntfy answers 401, the
// alert reads "Failed" and no command runs.
TEST_F(PhoneCommands, TheAccessTokenTravelsAsABearerHeaderOnEveryRequest) {
    const std::string token = "tk_AgQdq7mVBoFD37zQVN29RhuMzNIz2";
    struct Case {
        const char* what;
        std::optional<std::string> required;  // the server's
        std::optional<std::string> sent;      // the notifier's
        bool accepted;
    };
    const Case cases[] = {
        {"token required and set", token, token, true},
        {"token required, none set", token, std::nullopt, false},
        {"token required, another set", token, "tk_someoneelse", false},
        {"open server, token set anyway", std::nullopt, token, true},
        {"open server, no token", std::nullopt, std::nullopt, true},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        server.requireToken(k.required);
        auto phone = makeNotifier();
        ASSERT_TRUE(phone->setToken(k.sent));
        EXPECT_EQ(phone->hasToken(), k.sent.has_value());
        const std::size_t before = server.requests().size();

        phone->send("Duskwell", "hello", {"tada"});
        ASSERT_TRUE(mainQueue.runUntil([&] { return phone->lastResult().has_value(); }));
        EXPECT_EQ(phone->lastResult(), k.accepted ? "Sent" : "Failed");

        executed.clear();
        server.publish(control(), secret() + " status");
        pollOnce(*phone, executed);
        // (An earlier case's command may come again: each case is a fresh launch.)
        EXPECT_EQ(!executed.empty(), k.accepted);

        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), before + 2);
        for (std::size_t i = before; i < requests.size(); ++i) {
            const auto expected = k.sent ? std::optional<std::string>("Bearer " + *k.sent) : std::nullopt;
            EXPECT_EQ(requests[i].authorization, expected) << requests[i].method << " " << requests[i].target;
        }
    }
    server.requireToken(std::nullopt);
}

TEST_F(PhoneCommands, ForgedMessagesAreIgnoredButRememberedSoARepeatedAnswerRunsNothingTwice) {
    auto phone = makeNotifier();
    const std::string s = secret();
    std::string otherCase = s;
    for (auto& c : otherCase) {
        if (c >= 'a' && c <= 'z') { c = static_cast<char>(c - 'a' + 'A'); break; }
    }
    std::vector<std::string> seen;
    for (const std::string& text : std::vector<std::string>{"wrongsecret12345 sleep", otherCase + " sleep", s + " sleep now", s + " reboot",
                                    s + " Sleep", s, s + "  sleep", " " + s + " status "})
        seen.push_back(server.publish(control(), text));

    server.setIgnoreSince(true);  // every poll returns the whole topic
    pollOnce(*phone, executed);
    pollOnce(*phone, executed);
    EXPECT_EQ(pollRequests().size(), 2u);
    EXPECT_EQ(executed, (std::vector<Command>{Command::sleep, Command::status}));
    EXPECT_EQ(Access::seenIDs(*phone), seen);
}

TEST_F(PhoneCommands, SeenIDsKeepTheNewest200) {
    auto phone = makeNotifier();
    std::vector<std::string> ids;
    for (int i = 0; i < 201; ++i) ids.push_back(server.publish(control(), "note " + std::to_string(i)));
    pollOnce(*phone, executed);
    EXPECT_EQ(Access::seenIDs(*phone), std::vector<std::string>(ids.begin() + 1, ids.end()));
    EXPECT_EQ(Access::lastID(*phone), ids.back());
    EXPECT_TRUE(executed.empty());
}

TEST_F(PhoneCommands, FailedOrTimedOutPollsKeepTheCursorAndTheNextPollAsksAgain) {
    auto phone = makeNotifier(/*timeout=*/0.3);
    const auto first = server.publish(control(), secret() + " status");
    pollOnce(*phone, executed);
    ASSERT_EQ(Access::lastID(*phone), first);

    server.publish(control(), secret() + " extend60");
    server.answerWith(500);
    pollOnce(*phone, executed);
    server.answerWith(429);
    pollOnce(*phone, executed);
    server.answerWith(std::nullopt);
    server.setStalled(true);
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<Command>{Command::status});

    server.setStalled(false);
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::status, Command::extend60}));
    EXPECT_EQ(sinces(), (std::vector<std::string>{std::to_string(Access::startedAt(*phone)), first, first, first, first}));
}

TEST_F(PhoneCommands, APollDueWhileOneIsInFlightIsSkippedNotQueued) {
    auto phone = makeNotifier();
    server.publish(control(), secret() + " status");
    server.setStalled(true);
    auto handler = [this](Command c) { executed.push_back(c); };
    phone->poll(handler);
    ASSERT_TRUE(server.waitForRequests(1, 5));
    phone->poll(handler);  // still in flight: skipped
    EXPECT_FALSE(server.waitForRequests(2, 0.3));

    server.setStalled(false);
    ASSERT_TRUE(mainQueue.runUntil([&] { return !Access::polling(*phone); }));
    EXPECT_EQ(executed, std::vector<Command>{Command::status});
    EXPECT_EQ(pollRequests().size(), 1u);
    EXPECT_EQ(mainQueue.runPending(), 0);  // nothing was queued for later
}

TEST_F(PhoneCommands, SwitchedOffDoesNotPoll) {
    auto phone = makeNotifier();
    phone->setEnabled(false);
    server.publish(control(), secret() + " status");
    phone->poll([&](Command c) { executed.push_back(c); });
    EXPECT_FALSE(Access::polling(*phone));
    EXPECT_FALSE(server.waitForRequests(1, 0.2));
    EXPECT_TRUE(executed.empty());
}

TEST_F(PhoneCommands, AnswersArrivingAfterTheNotifierIsGoneDoNothing) {
    auto phone = makeNotifier();
    server.publish(control(), secret() + " sleep");
    server.setStalled(true);
    bool called = false;
    phone->poll([&](Command) { called = true; });
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(server.waitForRequests(2, 5));
    phone.reset();
    const int before = mainQueue.ran();
    server.setStalled(false);
    // Both completions still hop to the main queue, find the notifier gone and return.
    ASSERT_TRUE(mainQueue.runUntil([&] { return mainQueue.ran() >= before + 2; }));
    EXPECT_FALSE(called);
}

}  // namespace
}  // namespace duskwell::testing
