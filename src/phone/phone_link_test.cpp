#include "phone/phone_link.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/settings_keys.h"
#include "phone/phone_notifier.h"
#include "phone/qr_code.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using testing::TestEnvironment;

std::optional<std::string> draw(const std::string& link) {
    auto code = makeQrCode(link);
    return code ? std::optional<std::string>(renderQrForTerminal(*code, QrStyle::plain)) : std::nullopt;
}

TEST(PhoneLink, NothingBeforeTheAppCreatedTheIdentifiers) {
    TestEnvironment env;
    EXPECT_FALSE(phoneLinkReport(env.settings, PhoneLinkFormat::text, draw).has_value());
    EXPECT_FALSE(phoneLinkReport(env.settings, PhoneLinkFormat::json, draw).has_value());
    EXPECT_FALSE(env.settings.string(SettingsKey::phoneTopic).has_value());  // still nothing stored
}

TEST(PhoneLink, JsonHoldsTheLinkAndTopicsOnly) {
    TestEnvironment env;
    PhoneNotifier phone;
    const auto report = phoneLinkReport(env.settings, PhoneLinkFormat::json, draw);
    ASSERT_TRUE(report.has_value());
    const auto json = nlohmann::json::parse(*report);
    EXPECT_EQ(json.size(), 3u);
    EXPECT_EQ(json["subscribeURL"], phone.subscribeURL());
    EXPECT_EQ(json["topic"], phone.topic());
    EXPECT_EQ(json["controlTopic"], phone.controlTopic());
}

TEST(PhoneLink, TextShowsLinkTopicAndCodeAndTheSecretOnlyInsideTheLink) {
    TestEnvironment env;
    PhoneNotifier phone;
    const std::string secret = env.settings.string(SettingsKey::phoneSecret).value_or("");
    const auto report = phoneLinkReport(env.settings, PhoneLinkFormat::text, draw);
    ASSERT_TRUE(report.has_value());
    EXPECT_NE(report->find("\n" + phone.subscribeURL() + "\n"), std::string::npos);
    EXPECT_NE(report->find("Alert topic: " + phone.topic() + "\n"), std::string::npos);
    EXPECT_NE(report->find("Phone alerts are off"), std::string::npos);
    EXPECT_NE(report->find("\u2588"), std::string::npos);  // the code's blocks
    EXPECT_EQ(report->find(secret), report->find(phone.subscribeURL()) + phone.subscribeURL().size() - secret.size());
    EXPECT_EQ(report->find(secret, report->find(secret) + 1), std::string::npos);

    phone.setEnabled(true);
    EXPECT_EQ(phoneLinkReport(env.settings, PhoneLinkFormat::text, draw)->find("Phone alerts are off"), std::string::npos);
}

}  // namespace
}  // namespace duskwell
