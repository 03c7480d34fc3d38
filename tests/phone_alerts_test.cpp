// Alerts from PhoneNotifier::send over real HTTP to the loopback ntfy server.
#include <gtest/gtest.h>

#include <set>

#include "core/localization.h"
#include "phone_fixture.h"

namespace duskwell::testing {
namespace {

using nlohmann::json;

std::set<std::string> keysOf(const json& object) {
    std::set<std::string> keys;
    for (auto it = object.begin(); it != object.end(); ++it) keys.insert(it.key());
    return keys;
}

class PhoneAlerts : public PhoneFixture {
protected:
    bool waitForResult(PhoneNotifier& p, double seconds = 5) {
        return mainQueue.runUntil([&] { return p.lastResult().has_value(); }, seconds);
    }
};

TEST_F(PhoneAlerts, AlertWithActionsCarriesExactlyTheMembersAndBodies) {
    auto phone = makeNotifier();
    phone->send("Duskwell", "Your agents are done.", {"crescent_moon", "zzz"}, 4, /*withActions=*/true);
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Sent");

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].target, "/");  // the root: the topic travels in the JSON

    const json body = json::parse(requests[0].body);
    EXPECT_EQ(keysOf(body), (std::set<std::string>{"topic", "title", "message", "tags", "priority", "actions"}));
    EXPECT_EQ(body["topic"], phone->topic());
    EXPECT_EQ(body["title"], "Duskwell");
    EXPECT_EQ(body["message"], "Your agents are done.");
    EXPECT_EQ(body["tags"], json::array({"crescent_moon", "zzz"}));
    EXPECT_EQ(body["priority"], 4);

    const json& actions = body["actions"];
    ASSERT_EQ(actions.size(), 2u);
    const std::set<std::string> actionKeys{"action", "label", "url", "method", "body", "clear"};
    const std::string controlURL = server.url() + "/" + control();  // the configured "/" is trimmed
    EXPECT_EQ(keysOf(actions[0]), actionKeys);
    EXPECT_EQ(actions[0]["action"], "http");
    EXPECT_EQ(actions[0]["label"], "Extend 1h");
    EXPECT_EQ(actions[0]["url"], controlURL);
    EXPECT_EQ(actions[0]["method"], "POST");
    EXPECT_EQ(actions[0]["body"], secret() + " extend60");
    EXPECT_EQ(actions[0]["clear"], true);
    EXPECT_EQ(keysOf(actions[1]), actionKeys);
    EXPECT_EQ(actions[1]["label"], "Sleep now");
    EXPECT_EQ(actions[1]["url"], controlURL);
    EXPECT_EQ(actions[1]["body"], secret() + " sleep");
    EXPECT_EQ(actions[1]["clear"], true);

    // The server accepted and stored it on the alert topic.
    const auto stored = server.messages(phone->topic());
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]["title"], "Duskwell");
    EXPECT_EQ(stored[0]["id"].get<std::string>().size(), 12u);
}

TEST_F(PhoneAlerts, AlertWithoutActionsHasFiveMembersAndDefaultPriority) {
    auto phone = makeNotifier();
    phone->send("Duskwell", "Extended by 1 hour.", {"white_check_mark"});
    ASSERT_TRUE(waitForResult(*phone));
    const json body = json::parse(server.requests().at(0).body);
    EXPECT_EQ(keysOf(body), (std::set<std::string>{"topic", "title", "message", "tags", "priority"}));
    EXPECT_EQ(body["priority"], 3);
}

TEST_F(PhoneAlerts, ActionButtonBodyPublishedToTheControlTopicIsAPlainTextMessage) {
    // What the phone does when a button is tapped: POST the action's body to its URL.
    auto phone = makeNotifier();
    phone->send("Duskwell", "x", {}, 3, true);
    ASSERT_TRUE(waitForResult(*phone));
    const json action = json::parse(server.requests().at(0).body)["actions"][1];

    HttpRequest tap;
    tap.method = "POST";
    tap.url = action["url"];
    tap.body = action["body"].get<std::string>();
    std::optional<int> status;
    http->send(tap, [&](HttpResponse r) { mainQueue.post([&status, r] { status = r.status; }); });
    ASSERT_TRUE(mainQueue.runUntil([&] { return status.has_value(); }));
    EXPECT_EQ(status, 200);
    const auto onControl = server.messages(control());
    ASSERT_EQ(onControl.size(), 1u);
    EXPECT_EQ(onControl[0]["message"], secret() + " sleep");
}

TEST_F(PhoneAlerts, ServerErrorReadsFailedWithNothingAppended) {
    auto phone = makeNotifier();
    server.answerWith(500);
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Failed");
}

TEST_F(PhoneAlerts, RateLimitedReadsFailed) {
    auto phone = makeNotifier();
    server.answerWith(429);
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Failed");
}

TEST_F(PhoneAlerts, StalledServerTimesOutWithTheTransportsDescription) {
    auto phone = makeNotifier(/*timeout=*/0.3);
    server.setStalled(true);
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Failed: The request timed out.");
}

TEST_F(PhoneAlerts, RefusedConnectionReadsFailedWithTheReason) {
    std::string closedURL;
    {
        NtfyTestServer gone;  // a port that was just free and now has no listener
        closedURL = gone.url();
    }
    env.settings.setString(SettingsKey::phoneServer, closedURL);
    auto phone = makeNotifier();
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Failed: Could not connect to the server.");
}

TEST_F(PhoneAlerts, UnknownHostReadsFailedWithTheReason) {
    env.settings.setString(SettingsKey::phoneServer, "http://duskwell-test.invalid");
    auto phone = makeNotifier();
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(waitForResult(*phone, 15));
    EXPECT_EQ(phone->lastResult(), "Failed: A server with the specified hostname could not be found.");
}

TEST_F(PhoneAlerts, SwitchedOffSendsNothingUnlessForced) {
    auto phone = makeNotifier();
    phone->setEnabled(false);
    int announcements = 0;
    auto sub = phone->changes().subscribe([&] { ++announcements; });

    phone->send("Duskwell", "not forced", {"tada"});
    EXPECT_EQ(mainQueue.runPending(), 0);
    EXPECT_FALSE(phone->lastResult().has_value());
    EXPECT_EQ(announcements, 0);

    // A forced send goes out; it is the only request the server ever saw.
    phone->send("Duskwell", "forced", {"tada"}, 3, false, /*force=*/true);
    ASSERT_TRUE(waitForResult(*phone));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(json::parse(requests[0].body)["message"], "forced");
    EXPECT_EQ(announcements, 1);
}

TEST_F(PhoneAlerts, MainQueueKeepsRunningWhileARequestIsInFlight) {
    auto phone = makeNotifier();
    server.setStalled(true);
    phone->send("Duskwell", "x", {"tada"});  // returns at once
    ASSERT_TRUE(server.waitForRequests(1, 5));

    bool otherWorkRan = false;
    mainQueue.post([&] { otherWorkRan = true; });
    EXPECT_EQ(mainQueue.runPending(), 1);
    EXPECT_TRUE(otherWorkRan);
    EXPECT_FALSE(phone->lastResult().has_value());  // still waiting for the server

    server.setStalled(false);
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Sent");
}

TEST_F(PhoneAlerts, CompletionAfterTheNotifierIsGoneDoesNothing) {
    auto phone = makeNotifier();
    server.setStalled(true);
    phone->send("Duskwell", "x", {"tada"});
    ASSERT_TRUE(server.waitForRequests(1, 5));
    phone.reset();
    const int before = mainQueue.ran();
    server.setStalled(false);
    // The completion still hops to the main queue, finds the notifier gone and returns.
    EXPECT_TRUE(mainQueue.runUntil([&] { return mainQueue.ran() > before; }));
}

TEST_F(PhoneAlerts, KoreanLabelsAndResults) {
    Locale::overrideForTesting(true);
    auto phone = makeNotifier();
    phone->send("Duskwell", "x", {}, 3, true);
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "전송됨");
    const json actions = json::parse(server.requests().at(0).body)["actions"];
    EXPECT_EQ(actions[0]["label"], "1시간 연장");
    EXPECT_EQ(actions[1]["label"], "지금 잠자기");

    server.answerWith(500);
    phone->send("Duskwell", "x", {});
    ASSERT_TRUE(mainQueue.runUntil([&] { return phone->lastResult() != "전송됨"; }));
    EXPECT_EQ(phone->lastResult(), "전송 실패");
    Locale::overrideForTesting(std::nullopt);
}

}  // namespace
}  // namespace duskwell::testing
