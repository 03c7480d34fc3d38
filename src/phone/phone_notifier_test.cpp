#include "phone/phone_notifier.h"

#include <gtest/gtest.h>

#include <set>

#include "core/settings_keys.h"
#include "phone/phone_notifier_test_access.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using testing::TestEnvironment;
using Command = PhoneNotifier::Command;
using Access = PhoneNotifierTestAccess;

bool fromAlphabet(const std::string& s) {
    return s.find_first_not_of(PhoneNotifier::alphabet) == std::string::npos;
}

// ---- identifiers ----

TEST(PhoneIdentifiers, FirstLaunchGeneratesThemEachMachineItsOwnAndASecondLaunchKeepsThem) {
    std::string otherMachine;
    { TestEnvironment env; otherMachine = PhoneNotifier().subscribeURL(); }
    TestEnvironment env;
    std::string url;
    {
        PhoneNotifier phone;
        const std::string topic = env.settings.string(SettingsKey::phoneTopic).value_or("");
        const std::string control = env.settings.string(SettingsKey::phoneControl).value_or("");
        const std::string secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
        ASSERT_EQ(topic.size(), 29u);
        ASSERT_EQ(control.size(), 35u);
        ASSERT_EQ(secret.size(), 16u);
        EXPECT_EQ(topic.rfind("duskwell-", 0), 0u);
        EXPECT_EQ(control.rfind("duskwell-c-", 0), 0u);
        EXPECT_TRUE(fromAlphabet(topic.substr(9) + control.substr(11) + secret)) << topic << control << secret;
        EXPECT_EQ(phone.topic(), topic);
        EXPECT_EQ(phone.controlTopic(), control);
        url = phone.subscribeURL();
    }
    EXPECT_NE(url, otherMachine);
    EXPECT_EQ(PhoneNotifier().subscribeURL(), url);
}

TEST(PhoneIdentifiers, RandomCharactersCoverTheWholeAlphabetAndNothingElse) {
    TestEnvironment env;
    const std::string sample = Access::random(4000);
    ASSERT_EQ(sample.size(), 4000u);
    EXPECT_TRUE(fromAlphabet(sample));
    EXPECT_EQ(std::set<char>(sample.begin(), sample.end()).size(), PhoneNotifier::alphabet.size());
}

TEST(PhoneIdentifiers, SubscribeURLCarriesTheIdentifiersInTheFragmentMissingOnesEmpty) {
    TestEnvironment env;
    env.settings.setString(SettingsKey::phoneTopic, "duskwell-aaaa");  // no control, no secret
    EXPECT_EQ(PhoneNotifier().subscribeURL(), "https://duskwell.app/phone/#duskwell-aaaa..");
    env.settings.setString(SettingsKey::phoneControl, "duskwell-c-bbbb");
    env.settings.setString(SettingsKey::phoneSecret, "cccc");
    PhoneNotifier phone;
    EXPECT_EQ(phone.subscribeURL(), "https://duskwell.app/phone/#duskwell-aaaa.duskwell-c-bbbb.cccc");
    EXPECT_EQ(PhoneNotifier::subscribeURL(env.settings), phone.subscribeURL());
}

TEST(PhoneIdentifiers, ResetTopicsAnnouncesAndReplacesAll) {
    TestEnvironment env;
    PhoneNotifier phone;
    const std::string before = phone.subscribeURL();
    int announced = 0;
    auto sub = phone.changes().subscribe([&] { ++announced; });
    phone.resetTopics();
    EXPECT_EQ(announced, 1);
    EXPECT_NE(phone.subscribeURL(), before);
    EXPECT_EQ(phone.topic().size(), 29u);
}

// ---- switch and server ----

TEST(PhoneSwitch, EnabledIsReadFromAndWrittenToSettings) {
    TestEnvironment env;
    {
        PhoneNotifier phone;
        EXPECT_FALSE(phone.enabled());
        int announced = 0;
        auto sub = phone.changes().subscribe([&] { ++announced; });
        phone.setEnabled(true);
        EXPECT_EQ(announced, 1);
    }
    EXPECT_TRUE(PhoneNotifier().enabled());
}

TEST(PhoneSwitch, AlertGoesToThePublicServerUnlessOverriddenWithTheRequestTimeout) {
    TestEnvironment env;
    PhoneNotifier phone;
    EXPECT_EQ(Access::server(phone), "https://ntfy.sh");
    env.settings.setString(SettingsKey::phoneServer, "https://ntfy.example.org//");
    phone.setEnabled(true);
    phone.send("Duskwell", "hello", {"tada"});
    phone.send("Duskwell", "bad \xff byte", {});
    ASSERT_EQ(env.http.requests.size(), 2u);
    const auto& r = env.http.requests[0].request;
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.url, "https://ntfy.example.org");
    EXPECT_TRUE(r.headers.empty());
    EXPECT_DOUBLE_EQ(r.timeoutSeconds, 10);
    EXPECT_FALSE(env.http.requests[1].request.body.has_value()) << "text that is not UTF-8 goes without a body";
}

// ---- commands ----

TEST(PhoneCommand, OnlyTheSecretThenOneOfTheFiveLowerCaseWords) {
    const std::string secret = "k3mnpq7rstuvwx2y";
    struct Case {
        std::string text;
        std::optional<Command> command;
    };
    const Case cases[] = {
        {secret + " sleep", Command::sleep}, {secret + "   extend60", Command::extend60},
        {"  " + secret + " stop  ", Command::stop}, {secret + " start", Command::start},
        {secret + " status", Command::status}, {secret + " sleep now", std::nullopt},
        {"K3mnpq7rstuvwx2y sleep", std::nullopt}, {secret + " Sleep", std::nullopt},
        {secret + " STOP", std::nullopt}, {secret + " extend", std::nullopt}, {secret + " toggle", std::nullopt},
        {secret + "\tsleep", std::nullopt}, {secret, std::nullopt},
    };
    for (const auto& k : cases) EXPECT_EQ(PhoneNotifier::authenticate(k.text, secret), k.command) << k.text;
    EXPECT_FALSE(PhoneNotifier::authenticate(" sleep", ""));  // no secret stored: nothing passes
}

TEST(PhoneCommand, PollAnswerKeepsMessageLinesOnly) {
    const std::string secret = "s3cr3tsecr3tabcd";
    const std::string body =
        R"({"id":"a1","time":1,"event":"open","topic":"t"})" "\n"
        "not json\n"
        R"({"id":"a2","time":1,"event":"message","topic":"t","message":"s3cr3tsecr3tabcd status"})" "\n"
        R"({"time":1,"event":"message","topic":"t","message":"s3cr3tsecr3tabcd sleep"})" "\n"
        R"({"id":"a3","time":1,"event":"keepalive"})" "\n"
        R"({"id":"a4","time":1,"event":"message","topic":"t","message":"hello there"})" "\n"
        "{\"id\":\"a5\",\"event\":\"message\",\"title\":\"bad \xc3\x28 byte\",\"message\":\"s3cr3tsecr3tabcd extend60\"}\n"
        R"({"id":7,"event":"message","message":"s3cr3tsecr3tabcd stop"})" "\n";
    const auto parsed = PhoneNotifier::parsePollAnswer(body, secret);
    ASSERT_EQ(parsed.size(), 3u);
    EXPECT_EQ(parsed[0], (PhoneNotifier::PolledMessage{"a2", Command::status}));
    EXPECT_EQ(parsed[1], (PhoneNotifier::PolledMessage{"a4", std::nullopt}));
    EXPECT_EQ(parsed[2], (PhoneNotifier::PolledMessage{"a5", Command::extend60}));
}

TEST(PhonePoll, OnlyOneInFlightSinceTheLaunchSecondAndTheHandlerRunsOnTheMainQueue) {
    TestEnvironment env;
    env.clock.set(dateFromUnix(1'790'000'000.9));
    PhoneNotifier phone;
    phone.setEnabled(true);
    const std::string secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
    std::vector<Command> executed;
    auto handler = [&](Command c) { executed.push_back(c); };

    phone.poll(handler);
    phone.poll(handler);
    ASSERT_EQ(env.http.requests.size(), 1u);
    EXPECT_EQ(env.http.requests[0].request.method, "GET");
    EXPECT_EQ(env.http.requests[0].request.url, "https://ntfy.sh/" + phone.controlTopic() + "/json?poll=1&since=1790000000");

    env.http.respond({200, R"({"id":"m1","event":"message","message":")" + secret + " status\"}\n", {}});
    EXPECT_TRUE(executed.empty());  // not before the main queue runs
    env.dispatcher.runMain();
    EXPECT_EQ(executed, std::vector<Command>{Command::status});
}

}  // namespace
}  // namespace duskwell
