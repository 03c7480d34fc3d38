#include <gtest/gtest.h>

#include "core/awake_controller_test_support.h"
#include "core/localization.h"

namespace duskwell {
namespace {

using testing::TestEnvironment;

TEST(IsNewer, ComparesNumberByNumberIgnoringEmptyAndNonNumericPieces) {
    EXPECT_TRUE(AwakeController::isNewer("1.10", "1.9"));
    EXPECT_FALSE(AwakeController::isNewer("1.9", "1.10"));
    EXPECT_FALSE(AwakeController::isNewer("1.2", "1.2.0"));
    EXPECT_FALSE(AwakeController::isNewer("1.2.0", "1.2"));
    EXPECT_TRUE(AwakeController::isNewer("1.2.1", "1.2"));
    EXPECT_FALSE(AwakeController::isNewer("", "0"));
    EXPECT_TRUE(AwakeController::isNewer("0.0.1", ""));
    EXPECT_TRUE(AwakeController::isNewer("2", "1.99.99"));
    // Empty and non-numeric pieces are ignored.
    EXPECT_FALSE(AwakeController::isNewer("2.0-beta", "2")) << "2.0-beta compares as 2";
    EXPECT_TRUE(AwakeController::isNewer("2.0-beta", "1.9"));
    EXPECT_FALSE(AwakeController::isNewer("1..2", "1.2"));
    EXPECT_FALSE(AwakeController::isNewer("v3.1", "1")) << "v3 is no number: it compares as 1";
}

// Answers the update check with `body` and lets the main queue run.
std::optional<UpdateInfo> feedAnswer(const std::string& body, int status = 200) {
    TestEnvironment env;
    AwakeController c;
    c.checkForUpdate();
    if (env.http.pending.empty()) return std::nullopt;
    EXPECT_EQ(env.http.pending.front().request.method, "GET");
    EXPECT_EQ(env.http.pending.front().request.url, AppConfig::versionFeedURL());
    env.http.respond({status, body, std::nullopt});
    env.dispatcher.runMain();
    return c.update();
}

TEST(UpdateCheck, MalformedOrOlderFeedsChangeNothing) {
    EXPECT_EQ(feedAnswer(R"({"version":99,"url":"https://duskwell.app/d"})"), std::nullopt) << "number";
    EXPECT_EQ(feedAnswer("<html>not json</html>"), std::nullopt);
    EXPECT_EQ(feedAnswer(R"({"version":"99.0"})"), std::nullopt) << "no url";
    EXPECT_EQ(feedAnswer(R"({"version":"99.0","url":"not a url"})"), std::nullopt);
    EXPECT_EQ(feedAnswer(R"({"version":"99.0","url":42})"), std::nullopt);
    EXPECT_EQ(feedAnswer(R"(["99.0","https://duskwell.app"])"), std::nullopt) << "not an object";
    EXPECT_EQ(feedAnswer(R"({"version":"0.0.1","url":"https://duskwell.app/d"})"), std::nullopt) << "older";
    EXPECT_EQ(feedAnswer(R"({"version":")" + AppConfig::version() + R"(","url":"https://duskwell.app/d"})"),
              std::nullopt)
        << "equal";
    EXPECT_EQ(feedAnswer(R"({"version":"99.0","url":"https://duskwell.app/d"})", 404), std::nullopt);
    EXPECT_EQ(feedAnswer("", 200), std::nullopt);
}

TEST(UpdateCheck, ANewerVersionIsShownAndAFailedCheckKeepsIt) {
    TestEnvironment env;
    AwakeController c;
    c.checkForUpdate();
    env.http.respond({200, R"({"version":"99.1.0","url":"https://duskwell.app/download","notes":"x"})", std::nullopt});
    env.dispatcher.runMain();
    ASSERT_TRUE(c.update().has_value());
    EXPECT_EQ(c.update()->url, "https://duskwell.app/download");
    c.checkForUpdate();
    env.http.respond({std::nullopt, "", std::string("timed out")});
    env.dispatcher.runMain();
    EXPECT_EQ(c.update()->version, "99.1.0");
}

TEST(UpdateCheck, AnAnswerAfterTheControllerIsGoneIsDropped) {
    TestEnvironment env;
    {
        AwakeController c;
        c.checkForUpdate();
    }
    env.dispatcher.runMain();
    env.http.respond({200, R"({"version":"99.0","url":"https://duskwell.app/d"})", std::nullopt});
    EXPECT_EQ(env.dispatcher.runMain(), 1) << "the hop to main happens and does nothing";
}

TEST(Permissions, ProvisionalCountsAsAllowedDeniedAndUndecidedDoNot) {
    TestEnvironment env;
    env.platform.bundle = true;
    AwakeController c;
    EXPECT_EQ(env.platform.authorizationRequests, 1);
    const std::pair<NotificationPermission, bool> cases[] = {
        {NotificationPermission::provisional, true},
        {NotificationPermission::denied, false},
        {NotificationPermission::authorized, true},
        {NotificationPermission::notDetermined, false},
    };
    for (const auto& [permission, allowed] : cases) {
        env.platform.permission = permission;
        c.refreshPermissions();
        env.dispatcher.runMain();
        EXPECT_EQ(c.notificationsAllowed(), std::optional<bool>(allowed));
    }
}

TEST(Permissions, RefreshReadsTheHelperAndTheLoginItemAndWithoutABundleAsksNothing) {
    TestEnvironment env;
    AwakeController c;
    c.refreshPermissions();
    env.dispatcher.runMain();
    EXPECT_EQ(env.platform.authorizationRequests, 0);
    EXPECT_EQ(c.notificationsAllowed(), std::nullopt);
    EXPECT_FALSE(c.helperInstalled());
    env.installHelper();
    env.platform.loginItem = true;
    c.refreshPermissions();
    EXPECT_TRUE(c.helperInstalled());
    EXPECT_TRUE(c.launchAtLogin());

    c.setFrozen(true);
    env.platform.loginItem = false;
    c.refreshPermissions();
    EXPECT_TRUE(c.launchAtLogin()) << "frozen: no live changes";
}

TEST(LoginItem, TheSwitchShowsTheRealStateAndFailuresAreReported) {
    TestEnvironment env;
    AwakeController c;
    c.setLaunchAtLogin(true);
    EXPECT_TRUE(c.launchAtLogin());
    EXPECT_EQ(c.lastMessage(), std::nullopt);

    env.platform.loginItemError = "Operation not permitted";
    c.setLaunchAtLogin(false);
    EXPECT_EQ(c.lastMessage(), "Login item failed: Operation not permitted");
    EXPECT_TRUE(c.launchAtLogin()) << "still registered";
}

TEST(OpenSettings, OpensThePaneThePlatformHas) {
    TestEnvironment env;
    AwakeController c;
    c.openSettings("notifications");
    c.openSettings("login");
    c.openSettings("elsewhere");
#ifdef __APPLE__
    ASSERT_EQ(env.platform.openedURLs.size(), 2u);
    EXPECT_EQ(env.platform.openedURLs[0],
              "x-apple.systempreferences:com.apple.Notifications-Settings.extension?id=app.duskwell.Duskwell");
    EXPECT_EQ(env.platform.openedURLs[1], "x-apple.systempreferences:com.apple.LoginItems-Settings.extension");
#else
    EXPECT_TRUE(env.platform.openedURLs.empty()) << "no shared address for these panes on Linux";
#endif
}

}  // namespace
}  // namespace duskwell
