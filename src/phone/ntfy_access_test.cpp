#include "phone/ntfy_access.h"

#include <gtest/gtest.h>

#include "core/settings_keys.h"
#include "phone/phone_notifier.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

TEST(NtfyAccess, ServerAddressesAreAnHttpRootOrNothing) {
    struct Row {
        const char* text;
        std::optional<std::string> stored;
    };
    const Row rows[] = {
        {"https://ntfy.example.com", "https://ntfy.example.com"},
        {"HTTPS://ntfy.example.com//", "https://ntfy.example.com"},
        {"http://127.0.0.1:8080/", "http://127.0.0.1:8080"},
        {"https://[::1]:443", "https://[::1]:443"},
        {"https://my_host.lan", "https://my_host.lan"},
        {"ntfy.example.com", std::nullopt},
        {"ftp://ntfy.example.com", std::nullopt},
        {"https://", std::nullopt},
        {"https://ntfy.example.com/topic", std::nullopt},
        {"https://ntfy.example.com?x=1", std::nullopt},
        {"https://ntfy.example.com#x", std::nullopt},
        {"https://user:pw@ntfy.example.com", std::nullopt},
        {"https://ntfy example.com", std::nullopt},
        {"https://ntfy.example.com:0", std::nullopt},
        {"https://ntfy.example.com:65536", std::nullopt},
        {"https://ntfy.example.com:", std::nullopt},
        {"https://-ntfy.example.com", std::nullopt},
        {"https://[::1", std::nullopt},
        {"https://ntfy.example.com\n", std::nullopt},
    };
    for (const auto& r : rows) EXPECT_EQ(NtfyAccess::normalizedServer(r.text), r.stored) << r.text;
}

TEST(NtfyAccess, TokensAreVisibleAsciiOnly) {
    EXPECT_TRUE(NtfyAccess::validToken("tk_AgQdq7mVBoFD37zQVN29RhuMzNIz2"));
    EXPECT_TRUE(NtfyAccess::validToken(std::string(256, 'a')));
    for (const std::string& bad : {std::string(), std::string(257, 'a'), std::string("tk 1"), std::string("tk\r\nX: 1"),
                                  std::string("tk\t1"), std::string("t\xc3\xa9")})
        EXPECT_FALSE(NtfyAccess::validToken(bad)) << bad;
}

// The link carries the server after "@" when it is not the public one; the token, never.
TEST(NtfyAccess, TheSubscribeLinkNamesASelfHostedServerButNeverTheToken) {
    testing::TestEnvironment env;
    PhoneNotifier phone;
    const std::string plain = phone.subscribeURL();
    EXPECT_EQ(plain.find('@'), std::string::npos);

    EXPECT_FALSE(phone.setServer("https://ntfy.example.com/path"));
    EXPECT_EQ(phone.subscribeURL(), plain) << "a refused address changes nothing";
    EXPECT_TRUE(phone.setServer("https://ntfy.example.com:8443/"));
    EXPECT_TRUE(phone.setToken("tk_secret_token_value"));
    EXPECT_FALSE(phone.setToken("tk with blank"));
    EXPECT_TRUE(phone.hasToken());
    EXPECT_EQ(phone.subscribeURL(), plain + "@https://ntfy.example.com:8443");
    EXPECT_EQ(env.settings.string(SettingsKey::phoneServer), "https://ntfy.example.com:8443");
    EXPECT_EQ(env.settings.string(SettingsKey::phoneToken), "tk_secret_token_value");

    EXPECT_TRUE(phone.setServer(""));
    EXPECT_TRUE(phone.setToken(std::nullopt));
    EXPECT_EQ(phone.subscribeURL(), plain);
    EXPECT_FALSE(env.settings.string(SettingsKey::phoneServer).has_value());
    EXPECT_FALSE(phone.hasToken());
}

}  // namespace
}  // namespace duskwell
