// Remote commands: PhoneNotifier::poll over real HTTP against the loopback ntfy server.
#include <gtest/gtest.h>

#include "phone_fixture.h"

namespace duskwell::testing {
namespace {

using Command = PhoneNotifier::Command;
using Access = PhoneNotifierTestAccess;

class PhoneCommands : public PhoneFixture {
protected:
    std::string since(const NtfyTestServer::Request& r) const {
        const auto at = r.target.find("since=");
        return at == std::string::npos ? "" : r.target.substr(at + 6);
    }
};

TEST_F(PhoneCommands, FirstPollAsksSinceLaunchAndIgnoresOlderCommands) {
    auto phone = makeNotifier();
    const auto startedAt = Access::startedAt(*phone);
    server.publish(control(), secret() + " sleep", startedAt - 60);  // sent before launch
    server.publish(control(), secret() + " status");

    std::vector<Command> executed;
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<Command>{Command::status});
    const auto polls = pollRequests();
    ASSERT_EQ(polls.size(), 1u);
    EXPECT_EQ(polls[0].target, "/" + control() + "/json?poll=1&since=" + std::to_string(startedAt));
}

TEST_F(PhoneCommands, CommandsRunInServerOrderAndTheCursorMovesToTheNewest) {
    auto phone = makeNotifier();
    server.publish(control(), secret() + " extend60");
    const auto last = server.publish(control(), secret() + " status");
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::extend60, Command::status}));
    EXPECT_EQ(Access::lastID(*phone), last);

    const auto next = server.publish(control(), secret() + " start");
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::extend60, Command::status, Command::start}));
    EXPECT_EQ(since(pollRequests().at(1)), last);
    EXPECT_EQ(Access::lastID(*phone), next);

    // Nothing new: the cursor stays where it was.
    pollOnce(*phone, executed);
    EXPECT_EQ(executed.size(), 3u);
    EXPECT_EQ(Access::lastID(*phone), next);
}

TEST_F(PhoneCommands, ACommandReturnedByTwoPollsRunsOnce) {
    auto phone = makeNotifier();
    server.setIgnoreSince(true);  // every poll returns the whole topic
    server.publish(control(), secret() + " extend60");
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    pollOnce(*phone, executed);
    EXPECT_EQ(pollRequests().size(), 2u);
    EXPECT_EQ(executed, std::vector<Command>{Command::extend60});
}

TEST_F(PhoneCommands, ForgedMessagesAreIgnoredButRememberedAsSeen) {
    auto phone = makeNotifier();
    const std::string s = secret();
    std::string otherCase = s;
    for (auto& c : otherCase) {
        if (c >= 'a' && c <= 'z') { c = static_cast<char>(c - 'a' + 'A'); break; }
    }
    std::vector<std::string> forged = {
        server.publish(control(), "wrongsecret12345 sleep"),
        server.publish(control(), otherCase + " sleep"),
        server.publish(control(), s + " sleep now"),
        server.publish(control(), s + " reboot"),
        server.publish(control(), s + " Sleep"),
        server.publish(control(), s),
    };
    const auto twoSpaces = server.publish(control(), s + "  sleep");
    const auto padded = server.publish(control(), " " + s + " status ");

    server.setIgnoreSince(true);
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::sleep, Command::status}));

    std::vector<std::string> expectedSeen = forged;
    expectedSeen.push_back(twoSpaces);
    expectedSeen.push_back(padded);
    EXPECT_EQ(Access::seenIDs(*phone), expectedSeen);

    pollOnce(*phone, executed);  // the same messages again: nothing runs
    EXPECT_EQ(executed.size(), 2u);
}

TEST_F(PhoneCommands, SeenIDsKeepTheNewest200) {
    auto phone = makeNotifier();
    std::vector<std::string> ids;
    for (int i = 0; i < 201; ++i) ids.push_back(server.publish(control(), "note " + std::to_string(i)));
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    const auto& seen = Access::seenIDs(*phone);
    ASSERT_EQ(seen.size(), 200u);
    EXPECT_EQ(seen, std::vector<std::string>(ids.begin() + 1, ids.end()));
    EXPECT_EQ(Access::lastID(*phone), ids.back());
    EXPECT_TRUE(executed.empty());
}

TEST_F(PhoneCommands, FailedPollKeepsTheCursorAndTheNextPollAsksAgain) {
    auto phone = makeNotifier();
    const auto first = server.publish(control(), secret() + " status");
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    ASSERT_EQ(Access::lastID(*phone), first);

    server.publish(control(), secret() + " extend60");
    server.answerWith(500);
    pollOnce(*phone, executed);
    server.answerWith(429);
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<Command>{Command::status});

    server.answerWith(std::nullopt);
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, (std::vector<Command>{Command::status, Command::extend60}));

    const auto polls = pollRequests();
    ASSERT_EQ(polls.size(), 4u);
    EXPECT_EQ(since(polls[1]), first);
    EXPECT_EQ(since(polls[2]), first);
    EXPECT_EQ(since(polls[3]), first);
}

TEST_F(PhoneCommands, TimedOutPollIsRetriedFromTheSameCursor) {
    auto phone = makeNotifier(/*timeout=*/0.3);
    server.publish(control(), secret() + " start");
    server.setStalled(true);
    std::vector<Command> executed;
    pollOnce(*phone, executed);
    EXPECT_TRUE(executed.empty());
    EXPECT_FALSE(Access::lastID(*phone).has_value());

    server.setStalled(false);
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<Command>{Command::start});
    const auto polls = pollRequests();
    ASSERT_EQ(polls.size(), 2u);
    EXPECT_EQ(since(polls[0]), std::to_string(Access::startedAt(*phone)));
    EXPECT_EQ(since(polls[1]), since(polls[0]));
}

TEST_F(PhoneCommands, APollDueWhileOneIsInFlightIsSkippedNotQueued) {
    auto phone = makeNotifier();
    server.publish(control(), secret() + " status");
    server.setStalled(true);
    std::vector<Command> executed;
    auto handler = [&executed](Command c) { executed.push_back(c); };
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
    std::vector<Command> executed;
    phone->poll([&](Command c) { executed.push_back(c); });
    EXPECT_FALSE(Access::polling(*phone));
    EXPECT_FALSE(server.waitForRequests(1, 0.2));
    EXPECT_TRUE(executed.empty());
}

TEST_F(PhoneCommands, HandlerIsNotCalledWhenTheNotifierIsGone) {
    auto phone = makeNotifier();
    server.publish(control(), secret() + " sleep");
    server.setStalled(true);
    bool called = false;
    phone->poll([&](Command) { called = true; });
    ASSERT_TRUE(server.waitForRequests(1, 5));
    phone.reset();
    const int before = mainQueue.ran();
    server.setStalled(false);
    ASSERT_TRUE(mainQueue.runUntil([&] { return mainQueue.ran() > before; }));
    EXPECT_FALSE(called);
}

TEST_F(PhoneCommands, PlainPublishToTheControlTopicOverHttpIsPolledBack) {
    // The path the phone's action button takes: a text body POSTed to /<control topic>.
    auto phone = makeNotifier();
    HttpRequest tap;
    tap.method = "POST";
    tap.url = server.url() + "/" + control();
    tap.body = secret() + " extend60";
    std::optional<int> status;
    http->send(tap, [&](HttpResponse r) { mainQueue.post([&status, r] { status = r.status; }); });
    ASSERT_TRUE(mainQueue.runUntil([&] { return status.has_value(); }));
    ASSERT_EQ(status, 200);

    std::vector<Command> executed;
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<Command>{Command::extend60});
}

}  // namespace
}  // namespace duskwell::testing
