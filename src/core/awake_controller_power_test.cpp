#include "testing/awake_controller_test_access.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/settings_keys.h"
#include "power/power_helper.h"
#include "power/system_log.h"
#include "testing/fakes.h"
#include "testing/controller_fixture.h"

namespace duskwell {

namespace {

using Watchdog = testing::ControllerTest;

using ::testing::ElementsAre;
using Access = AwakeControllerTestAccess;
using testing::TestEnvironment;

// The helper verbs sent through sudo, without the "version" probes: "lid-off", "powermode 2".
std::vector<std::string> helperVerbs(const TestEnvironment& env) {
    const std::string prefix = "/usr/bin/sudo -n " + env.helperFile() + " ";
    std::vector<std::string> out;
    for (const auto& line : env.commands.lines())
        if (line.rfind(prefix, 0) == 0 && line != prefix + "version") out.push_back(line.substr(prefix.size()));
    return out;
}

// The script of the watchdog started last (its token is the one in the token file).
std::string watchdogFor(const TestEnvironment& env, const std::vector<std::string>& restores) {
    const std::string call = "\n'/usr/bin/sudo' -n '" + env.helperFile() + "' ";
    const std::string token = testing::readFile(AppConfig::watchdogToken()).value_or("missing");
    EXPECT_EQ(token.size(), 32u);
    std::string script = "while /bin/kill -0 4242 2>/dev/null; do /bin/sleep 3; done\n[ \"$(/bin/cat '" +
                         AppConfig::watchdogToken() + "' 2>/dev/null)\" = '" + token + "' ] || exit 0" + call +
                         "lid-off";
    for (const auto& r : restores) script += call + r;
    return script;
}

// --- performance mode ---

// Only what differs from low power off and power mode 2 is changed, recorded first, and
// given back as it was.
TEST(PerformanceMode, ChangesRecordsAndRestoresOnlyWhatDiffers) {
    struct Case {
        bool on;
        int lowPower, powerMode;
        std::vector<std::string> applied, restored;
    };
    const Case cases[] = {
        {true, 0, 2, {}, {}},
        {true, 0, 0, {"powermode 2"}, {"powermode 0"}},
        {true, 1, 1, {"lowpower 0", "powermode 2"}, {"lowpower 1", "powermode 1"}},
        {false, 1, 0, {}, {}},  // off in the settings: nothing changes
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::Message() << "on " << k.on << ", lowpowermode " << k.lowPower << ", powermode " << k.powerMode);
        TestEnvironment env;
        env.installHelper();
        env.power.batterySettings = {{"lowpowermode", k.lowPower}, {"powermode", k.powerMode}};
        AwakeController c;
        c.setMaxPerformance(k.on);
        env.commands.clear();

        Access::applyPerformance(c);
        Access::applyPerformance(c);  // already applied: nothing more
        EXPECT_EQ(c.perfApplied(), k.on);
        EXPECT_EQ(helperVerbs(env), k.applied);
        const bool changesLowPower = k.on && k.lowPower == 1, changesMode = k.on && k.powerMode != 2;
        EXPECT_EQ(env.settings.integer(SettingsKey::restoreLowPower),
                  changesLowPower ? std::optional<std::int64_t>(1) : std::nullopt) << "stored before it is relied on";
        EXPECT_EQ(env.settings.integer(SettingsKey::restorePowerMode),
                  changesMode ? std::optional<std::int64_t>(k.powerMode) : std::nullopt);

        Access::restorePerformance(c);
        EXPECT_FALSE(c.perfApplied());
        auto all = k.applied;
        all.insert(all.end(), k.restored.begin(), k.restored.end());
        EXPECT_EQ(helperVerbs(env), all);
        EXPECT_FALSE(env.settings.integer(SettingsKey::restoreLowPower).has_value());
        EXPECT_FALSE(env.settings.integer(SettingsKey::restorePowerMode).has_value());
    }
}

TEST(PerformanceMode, AFailedChangeIsLoggedButNotRecordedSoNotRestored) {
    TestEnvironment env;
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 1}, {"powermode", 0}};
    AwakeController c;
    std::vector<std::string> log;
    SystemLog::SinkScope capture([&](const std::string& line) { log.push_back(line); });
    env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " powermode", CommandResult{1, "refused\n"});
    env.commands.clear();

    Access::applyPerformance(c);
    EXPECT_TRUE(c.perfApplied());
    EXPECT_EQ(env.settings.integer(SettingsKey::restoreLowPower), 1);
    EXPECT_FALSE(env.settings.integer(SettingsKey::restorePowerMode).has_value());
    EXPECT_THAT(log, ElementsAre("Duskwell helper [\"powermode\", \"2\"] 실패: refused"));

    Access::restorePerformance(c);
    EXPECT_THAT(helperVerbs(env), ElementsAre("lowpower 0", "powermode 2", "lowpower 1"));

    // A restore that fails still drops its key: it is not retried forever.
    env.settings.setInteger(SettingsKey::restorePowerMode, 1);
    Access::restorePerformance(c);
    EXPECT_FALSE(env.settings.integer(SettingsKey::restorePowerMode).has_value());
}

// Each switch during a session restarts the watchdog, so that it never restores stale values.
TEST(PerformanceToggle, DuringASessionOnAppliesOffRestoresAtOnceAndTheWatchdogFollows) {
    TestEnvironment env;
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 1}, {"powermode", 0}};
    env.settings.setBool(SettingsKey::maxPerformance, false);
    AwakeController c;
    Access::setActive(c, true);
    Access::startWatchdog(c);  // as start does, with performance off
    ASSERT_EQ(env.commands.spawned().size(), 1u);
    EXPECT_EQ(env.commands.spawned()[0].call.path, "/bin/sh");
    EXPECT_THAT(env.commands.spawned()[0].call.args, ElementsAre("-c", watchdogFor(env, {})));

    c.setPerformance(true);
    EXPECT_TRUE(c.maxPerformance());
    EXPECT_EQ(env.settings.boolean(SettingsKey::maxPerformance), true);
    EXPECT_THAT(helperVerbs(env), ElementsAre("lowpower 0", "powermode 2"));
    ASSERT_EQ(env.commands.spawned().size(), 2u);
    EXPECT_TRUE(*env.commands.spawned()[0].terminated);
    EXPECT_THAT(env.commands.spawned()[1].call.args,
                ElementsAre("-c", watchdogFor(env, {"lowpower 1", "powermode 0"})));

    c.setPerformance(false);
    EXPECT_TRUE(*env.commands.spawned()[1].terminated) << "the old watchdog carries stale restore lines";
    EXPECT_THAT(helperVerbs(env), ElementsAre("lowpower 0", "powermode 2", "lowpower 1", "powermode 0"));
    ASSERT_EQ(env.commands.spawned().size(), 3u);
    EXPECT_THAT(env.commands.spawned()[2].call.args, ElementsAre("-c", watchdogFor(env, {})));
    EXPECT_FALSE(*env.commands.spawned()[2].terminated);
    EXPECT_FALSE(c.perfApplied());
    EXPECT_TRUE(c.watchdogRunning());
}

TEST(PerformanceToggle, WhileIdleOnlyTheSettingChanges) {
    TestEnvironment env;
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 1}, {"powermode", 0}};
    AwakeController c;
    env.commands.clear();
    c.setPerformance(false);
    c.setPerformance(true);
    EXPECT_TRUE(env.commands.calls().empty());
    EXPECT_TRUE(env.commands.spawned().empty());
    EXPECT_FALSE(c.perfApplied());
    EXPECT_EQ(env.settings.boolean(SettingsKey::maxPerformance), true);
}

TEST_F(Watchdog, StopTerminatesAndForgetsItAndALaunchFailureLeavesNone) {
    Access::startWatchdog(c);
    ASSERT_TRUE(c.watchdogRunning());
    Access::stopWatchdog(c);
    EXPECT_FALSE(c.watchdogRunning());
    EXPECT_TRUE(*env.commands.spawned()[0].terminated);
    Access::stopWatchdog(c);  // none left: nothing happens
    EXPECT_EQ(env.commands.spawned().size(), 1u);
    env.commands.spawnFails = true;
    Access::startWatchdog(c);
    EXPECT_FALSE(c.watchdogRunning());
}

// --- launch recovery ---

TEST(LaunchRecovery, LeftoversGetOneLidOffAndTheRecordedRestoresOnlyThroughAWorkingHelper) {
    struct Case {
        const char* what;
        bool lid, helperWorks;
        std::optional<std::int64_t> lowPower, powerMode;
        std::vector<std::string> verbs;
        std::optional<bool> lidAfter;
    };
    const Case cases[] = {
        {"all three", true, true, 1, 0, {"lid-off", "lowpower 1", "powermode 0"}, false},
        {"a restore value alone", false, true, std::nullopt, 1, {"lid-off", "powermode 1"}, false},
        {"no working helper: the values stay", true, false, 1, 0, {}, false},
        {"a clean launch writes nothing", false, true, std::nullopt, std::nullopt, {}, std::nullopt},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        TestEnvironment env;
        env.installHelper();
        if (!k.helperWorks)
            env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " version", CommandResult{1, "password required"});
        if (k.lid) env.settings.setBool(SettingsKey::restoreLid, true);
        if (k.lowPower) env.settings.setInteger(SettingsKey::restoreLowPower, *k.lowPower);
        if (k.powerMode) env.settings.setInteger(SettingsKey::restorePowerMode, *k.powerMode);
        AwakeController c;
        EXPECT_EQ(helperVerbs(env), k.verbs);
        EXPECT_EQ(env.settings.boolean(SettingsKey::restoreLid), k.lidAfter);
        const auto kept = [&](std::optional<std::int64_t> v) { return k.helperWorks ? std::nullopt : v; };
        EXPECT_EQ(env.settings.integer(SettingsKey::restoreLowPower), kept(k.lowPower));
        EXPECT_EQ(env.settings.integer(SettingsKey::restorePowerMode), kept(k.powerMode));
        EXPECT_EQ(c.helperInstalled(), k.helperWorks);
        EXPECT_FALSE(c.perfApplied());
    }
}

// --- installing and removing the helper from the settings screen ---

TEST(HelperActions, ReinstallAndUninstallReportTheirOutcomeAndMirrorTheFreshState) {
    struct Case {
        const char* what;
        bool installed, uninstall;
        AdminResult admin;
        std::string message;
        bool installedAfter;
    };
    const Case cases[] = {
        {"reinstall", false, false, {AdminOutcome::succeeded, {}}, "Power permission installed.", true},
        {"reinstall cancelled", false, false, {AdminOutcome::cancelled, {}}, "Permission setup was cancelled.", false},
        {"uninstall", true, true, {AdminOutcome::succeeded, {}}, "Power permission removed.", false},
        {"uninstall failed", true, true, {AdminOutcome::failed, "rm: busy"}, "Permission setup failed: rm: busy", true},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        TestEnvironment env;
        env.platform.resources["duskwell-power"] = "/app/duskwell-power";
        if (k.installed) env.installHelper();
        env.platform.adminResult = k.admin;
        std::vector<std::string> verbsAtPrompt;
        env.platform.onAdminScript = [&](const std::string&) {
            verbsAtPrompt = helperVerbs(env);
            if (k.admin.outcome != AdminOutcome::succeeded) return;
            if (k.uninstall) std::filesystem::remove(env.helperFile());
            else env.installHelper();
        };
        AwakeController c;
        ASSERT_EQ(c.helperInstalled(), k.installed);
        k.uninstall ? c.uninstallHelper() : c.reinstallHelper();
        EXPECT_EQ(c.lastMessage(), k.message);
        EXPECT_EQ(c.helperInstalled(), k.installedAfter);
        if (k.uninstall) {
            EXPECT_EQ(verbsAtPrompt, std::vector<std::string>{"lid-off"}) << "lid sleep given back first";
        }
    }
}

// --- readings ---

TEST(SystemReadings, RefreshPublishesEachChangedReading) {
    TestEnvironment env;
    AwakeController c;
    int announced = 0;
    auto sub = c.changes().subscribe([&] { ++announced; });
    c.refreshSystem();
    EXPECT_EQ(announced, 0) << "nothing changed";

    env.power.setBattery(57, true, 90);
    env.power.lid = true;
    env.power.thermal = 2;
    c.refreshSystem();
    EXPECT_EQ(announced, 3);
    EXPECT_EQ(c.battery().percent, 57);
    EXPECT_EQ(c.battery().minutesLeft, 90);
    EXPECT_EQ(c.lidClosed(), true);
    EXPECT_EQ(c.thermal(), 2);
}

}  // namespace
}  // namespace duskwell
