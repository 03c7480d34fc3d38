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

TEST(PhoneIdentifiers, FirstLaunchGeneratesTopicControlTopicAndSecret) {
    TestEnvironment env;
    PhoneNotifier phone;
    const std::string topic = env.settings.string(SettingsKey::phoneTopic).value_or("");
    const std::string control = env.settings.string(SettingsKey::phoneControl).value_or("");
    const std::string secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
    ASSERT_EQ(topic.size(), 29u);
    ASSERT_EQ(control.size(), 35u);
    ASSERT_EQ(secret.size(), 16u);
    EXPECT_EQ(topic.rfind("duskwell-", 0), 0u);
    EXPECT_EQ(control.rfind("duskwell-c-", 0), 0u);
    EXPECT_TRUE(fromAlphabet(topic.substr(9))) << topic;
    EXPECT_TRUE(fromAlphabet(control.substr(11))) << control;
    EXPECT_TRUE(fromAlphabet(secret)) << secret;
    EXPECT_EQ(phone.topic(), topic);
    EXPECT_EQ(phone.controlTopic(), control);
}

TEST(PhoneIdentifiers, ASecondLaunchKeepsThem) {
    TestEnvironment env;
    std::string topic, control, secret;
    {
        PhoneNotifier first;
        topic = first.topic();
        control = first.controlTopic();
        secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
    }
    PhoneNotifier second;
    EXPECT_EQ(second.topic(), topic);
    EXPECT_EQ(second.controlTopic(), control);
    EXPECT_EQ(env.settings.string(SettingsKey::phoneSecret), secret);
}

TEST(PhoneIdentifiers, EachMachineGetsItsOwn) {
    std::string a, b;
    { TestEnvironment env; PhoneNotifier p; a = p.subscribeURL(); }
    { TestEnvironment env; PhoneNotifier p; b = p.subscribeURL(); }
    EXPECT_NE(a, b);
}

TEST(PhoneIdentifiers, RandomCharactersCoverTheWholeAlphabetAndNothingElse) {
    TestEnvironment env;
    const std::string sample = Access::random(4000);
    ASSERT_EQ(sample.size(), 4000u);
    EXPECT_TRUE(fromAlphabet(sample));
    EXPECT_EQ(std::set<char>(sample.begin(), sample.end()).size(), PhoneNotifier::alphabet.size());
}

TEST(PhoneIdentifiers, SubscribeURLCarriesTheIdentifiersInTheFragment) {
    TestEnvironment env;
    env.settings.setString(SettingsKey::phoneTopic, "duskwell-aaaa");
    env.settings.setString(SettingsKey::phoneControl, "duskwell-c-bbbb");
    env.settings.setString(SettingsKey::phoneSecret, "cccc");
    PhoneNotifier phone;
    EXPECT_EQ(phone.subscribeURL(), "https://duskwell.app/phone/#duskwell-aaaa.duskwell-c-bbbb.cccc");
    EXPECT_EQ(PhoneNotifier::subscribeURL(env.settings), phone.subscribeURL());
}

TEST(PhoneIdentifiers, MissingPiecesBecomeEmptyStrings) {
    TestEnvironment env;
    env.settings.setString(SettingsKey::phoneTopic, "duskwell-aaaa");  // no control, no secret
    PhoneNotifier phone;
    EXPECT_EQ(phone.subscribeURL(), "https://duskwell.app/phone/#duskwell-aaaa..");
    EXPECT_EQ(phone.controlTopic(), "");
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
        EXPECT_EQ(env.settings.boolean(SettingsKey::phoneEnabled), true);
    }
    PhoneNotifier again;
    EXPECT_TRUE(again.enabled());
}

TEST(PhoneSwitch, ServerIsThePublicOneUnlessOverridden) {
    TestEnvironment env;
    PhoneNotifier phone;
    EXPECT_EQ(Access::server(phone), "https://ntfy.sh");
    env.settings.setString(SettingsKey::phoneServer, "https://ntfy.example.org//");
    EXPECT_EQ(Access::server(phone), "https://ntfy.example.org");
}

TEST(PhoneSwitch, AlertGoesToTheServerRootWithTheRequestTimeout) {
    TestEnvironment env;
    env.settings.setString(SettingsKey::phoneServer, "https://ntfy.example.org/");
    PhoneNotifier phone;
    phone.setEnabled(true);
    phone.send("Duskwell", "hello", {"tada"});
    ASSERT_EQ(env.http.requests.size(), 1u);
    const auto& r = env.http.requests[0].request;
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.url, "https://ntfy.example.org");
    EXPECT_TRUE(r.headers.empty());
    EXPECT_DOUBLE_EQ(r.timeoutSeconds, 10);
}

TEST(PhoneSwitch, TextThatIsNotUTF8IsSentWithoutABody) {
    TestEnvironment env;
    PhoneNotifier phone;
    phone.setEnabled(true);
    phone.send("Duskwell", "bad \xff byte", {});
    ASSERT_EQ(env.http.requests.size(), 1u);
    EXPECT_FALSE(env.http.requests[0].request.body.has_value());
}

// ---- commands ----

TEST(PhoneCommand, OnlyTheFiveLowerCaseWords) {
    EXPECT_EQ(Command::fromRawValue("extend60"), Command::extend60);
    EXPECT_EQ(Command::fromRawValue("stop"), Command::stop);
    EXPECT_EQ(Command::fromRawValue("sleep"), Command::sleep);
    EXPECT_EQ(Command::fromRawValue("start"), Command::start);
    EXPECT_EQ(Command::fromRawValue("status"), Command::status);
    for (const char* word : {"Sleep", "STOP", "extend", "extend 60", "", " sleep", "toggle"}) {
        EXPECT_FALSE(Command::fromRawValue(word).has_value()) << word;
    }
    EXPECT_EQ(Command(Command::extend60).rawValue(), "extend60");
    EXPECT_EQ(Command(Command::status).rawValue(), "status");
}

TEST(PhoneCommand, SecretAndWordSplitOnSpaces) {
    const std::string secret = "k3mnpq7rstuvwx2y";
    EXPECT_EQ(PhoneNotifier::authenticate(secret + " sleep", secret), Command::sleep);
    EXPECT_EQ(PhoneNotifier::authenticate(secret + "   extend60", secret), Command::extend60);
    EXPECT_EQ(PhoneNotifier::authenticate("  " + secret + " stop  ", secret), Command::stop);
    EXPECT_FALSE(PhoneNotifier::authenticate(secret + " sleep now", secret));
    EXPECT_FALSE(PhoneNotifier::authenticate("K3mnpq7rstuvwx2y sleep", secret));
    EXPECT_FALSE(PhoneNotifier::authenticate(secret + " Sleep", secret));
    EXPECT_FALSE(PhoneNotifier::authenticate(secret + "\tsleep", secret));
    EXPECT_FALSE(PhoneNotifier::authenticate(secret, secret));
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

TEST(PhonePoll, OnlyOneInFlightAndTheHandlerRunsOnTheMainQueue) {
    TestEnvironment env;
    PhoneNotifier phone;
    phone.setEnabled(true);
    const std::string secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
    std::vector<Command> executed;
    auto handler = [&](Command c) { executed.push_back(c); };

    phone.poll(handler);
    phone.poll(handler);
    ASSERT_EQ(env.http.requests.size(), 1u);
    EXPECT_EQ(env.http.requests[0].request.method, "GET");
    EXPECT_EQ(env.http.requests[0].request.url,
              "https://ntfy.sh/" + phone.controlTopic() + "/json?poll=1&since=" +
                  std::to_string(Access::startedAt(phone)));

    env.http.respond({200, R"({"id":"m1","event":"message","message":")" + secret + " status\"}\n", {}});
    EXPECT_TRUE(executed.empty());  // not before the main queue runs
    env.dispatcher.runMain();
    EXPECT_EQ(executed, std::vector<Command>{Command::status});

    phone.poll(handler);
    ASSERT_EQ(env.http.requests.size(), 2u);
    EXPECT_NE(env.http.requests[1].request.url.find("since=m1"), std::string::npos);
}

TEST(PhonePoll, StartedAtIsTheLaunchSecondTruncated) {
    TestEnvironment env;
    env.clock.set(dateFromUnix(1'790'000'000.9));
    PhoneNotifier phone;
    EXPECT_EQ(Access::startedAt(phone), 1'790'000'000);
}

}  // namespace
}  // namespace duskwell
