// Alerts from PhoneNotifier::send over real HTTP to the loopback ntfy server.
#include <gtest/gtest.h>

#include <functional>

#include "core/localization.h"
#include "phone_fixture.h"

namespace duskwell::testing {
namespace {

using nlohmann::json;

class PhoneAlerts : public PhoneFixture {
protected:
    bool waitForResult(PhoneNotifier& p, double seconds = 5) {
        return mainQueue.runUntil([&] { return p.lastResult().has_value(); }, seconds);
    }
    json sentBody(size_t i = 0) const { return json::parse(server.requests().at(i).body); }
};

TEST_F(PhoneAlerts, AlertCarriesExactlyItsMembersAndATappedButtonIsPolledBackAsACommand) {
    auto phone = makeNotifier();
    phone->send("Duskwell", "Your agents are done.", {"crescent_moon", "zzz"}, 4, /*withActions=*/true);
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "Sent");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].target, "/");  // the root: the topic travels in the JSON

    const std::string controlURL = server.url() + "/" + control();  // the configured "/" is trimmed
    auto action = [&](const char* label, const char* word) {
        return json{{"action", "http"}, {"label", label}, {"url", controlURL},
                    {"method", "POST"}, {"body", secret() + " " + word}, {"clear", true}};
    };
    const json body = sentBody();
    EXPECT_EQ(body, (json{{"topic", phone->topic()}, {"title", "Duskwell"}, {"message", "Your agents are done."},
                          {"tags", {"crescent_moon", "zzz"}}, {"priority", 4},
                          {"actions", {action("Extend 1h", "extend60"), action("Sleep now", "sleep")}}}));
    const auto stored = server.messages(phone->topic());
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]["id"].get<std::string>().size(), 12u);

    // What the phone does when "Sleep now" is tapped: POST the action's body, as plain text, to its URL.
    HttpRequest tap;
    tap.method = "POST";
    tap.url = body["actions"][1]["url"];
    tap.body = body["actions"][1]["body"].get<std::string>();
    std::optional<int> status;
    http->send(tap, [&](HttpResponse r) { mainQueue.post([&status, r] { status = r.status; }); });
    ASSERT_TRUE(mainQueue.runUntil([&] { return status.has_value(); }));
    EXPECT_EQ(status, 200);
    std::vector<PhoneNotifier::Command> executed;
    pollOnce(*phone, executed);
    EXPECT_EQ(executed, std::vector<PhoneNotifier::Command>{PhoneNotifier::Command::sleep});
}

TEST_F(PhoneAlerts, AlertWithoutActionsHasFiveMembersAndDefaultPriority) {
    auto phone = makeNotifier();
    phone->send("Duskwell", "Extended by 1 hour.", {"white_check_mark"});
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(sentBody(), (json{{"topic", phone->topic()}, {"title", "Duskwell"}, {"message", "Extended by 1 hour."},
                                {"tags", {"white_check_mark"}}, {"priority", 3}}));
}

TEST_F(PhoneAlerts, EachKindOfFailureReadsAsItsOwnResult) {
    std::string closedURL;
    {
        NtfyTestServer gone;  // a port that was just free and now has no listener
        closedURL = gone.url();
    }
    struct Case {
        const char* what;
        std::function<void()> setUp;
        double timeout, wait;
        std::string result;
    };
    const Case cases[] = {
        {"server error: nothing appended", [this] { server.answerWith(500); }, 5, 5, "Failed"},
        {"rate limited", [this] { server.answerWith(429); }, 5, 5, "Failed"},
        {"stalled", [this] { server.setStalled(true); }, 0.3, 5, "Failed: The request timed out."},
        {"refused", [&] { env.settings.setString(SettingsKey::phoneServer, closedURL); }, 5, 5,
         "Failed: Could not connect to the server."},
        {"unknown host",
         [this] { env.settings.setString(SettingsKey::phoneServer, "http://duskwell-test.invalid"); }, 5,
         15, "Failed: A server with the specified hostname could not be found."},
    };
    for (const auto& k : cases) {
        k.setUp();
        auto phone = makeNotifier(k.timeout);
        phone->send("Duskwell", "x", {"tada"});
        ASSERT_TRUE(waitForResult(*phone, k.wait)) << k.what;
        EXPECT_EQ(phone->lastResult(), k.result) << k.what;
        server.answerWith(std::nullopt);
        server.setStalled(false);
        env.settings.setString(SettingsKey::phoneServer, server.url() + "/");
    }
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
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(sentBody()["message"], "forced");
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

TEST_F(PhoneAlerts, KoreanLabelsAndResults) {
    Locale::overrideForTesting(true);
    auto phone = makeNotifier();
    phone->send("Duskwell", "x", {}, 3, true);
    ASSERT_TRUE(waitForResult(*phone));
    EXPECT_EQ(phone->lastResult(), "전송됨");
    const json actions = sentBody()["actions"];
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
