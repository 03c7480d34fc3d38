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
using ::testing::IsEmpty;
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

struct QuietLog {
    SystemLog::SinkScope scope{[](const std::string&) {}};
};

// --- performance mode ---

// Only what differs from low power off and power mode 2 is changed, recorded first, and
// given back as it was.
TEST(PerformanceMode, ChangesRecordsAndRestoresOnlyWhatDiffers) {
    struct Case {
        int lowPower, powerMode;
        std::vector<std::string> applied, restored;
    };
    const Case cases[] = {
        {0, 2, {}, {}},
        {0, 0, {"powermode 2"}, {"powermode 0"}},
        {1, 1, {"lowpower 0", "powermode 2"}, {"lowpower 1", "powermode 1"}},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::Message() << "lowpowermode " << k.lowPower << ", powermode " << k.powerMode);
        TestEnvironment env;
        env.installHelper();
        env.power.batterySettings = {{"lowpowermode", k.lowPower}, {"powermode", k.powerMode}};
        AwakeController c;
        env.commands.clear();

        Access::applyPerformance(c);
        Access::applyPerformance(c);  // already applied: nothing more
        EXPECT_TRUE(c.perfApplied());
        EXPECT_EQ(helperVerbs(env), k.applied);
        const bool changesLowPower = k.lowPower == 1, changesMode = k.powerMode != 2;
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

TEST(PerformanceMode, OffInTheSettingsChangesNothing) {
    TestEnvironment env;
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 1}, {"powermode", 0}};
    AwakeController c;
    c.setMaxPerformance(false);
    env.commands.clear();
    Access::applyPerformance(c);
    EXPECT_FALSE(c.perfApplied());
    EXPECT_THAT(helperVerbs(env), IsEmpty());
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
}

TEST(PerformanceMode, AFailedRestoreStillDropsItsKey) {
    TestEnvironment env;
    QuietLog quiet;
    env.installHelper();
    AwakeController c;
    env.settings.setInteger(SettingsKey::restorePowerMode, 1);
    env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " powermode", CommandResult{1, "no"});
    Access::restorePerformance(c);
    EXPECT_FALSE(env.settings.integer(SettingsKey::restorePowerMode).has_value());
}

TEST(PerformanceToggle, TurningItOnDuringASessionAppliesAndRestartsTheWatchdogWithTheRestores) {
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
    env.commands.clear();

    c.setPerformance(true);
    EXPECT_TRUE(c.maxPerformance());
    EXPECT_EQ(env.settings.boolean(SettingsKey::maxPerformance), true);
    EXPECT_THAT(helperVerbs(env), ElementsAre("lowpower 0", "powermode 2"));
    ASSERT_EQ(env.commands.spawned().size(), 1u);
    EXPECT_THAT(env.commands.spawned()[0].call.args,
                ElementsAre("-c", watchdogFor(env, {"lowpower 1", "powermode 0"})));
    EXPECT_TRUE(c.watchdogRunning());
}

TEST(PerformanceToggle, TurningItOffDuringASessionRestoresAtOnceAndTheNewWatchdogHasNoRestores) {
    TestEnvironment env;
    env.installHelper();
    env.power.batterySettings = {{"lowpowermode", 0}, {"powermode", 0}};
    AwakeController c;
    Access::setActive(c, true);
    Access::applyPerformance(c);
    Access::startWatchdog(c);
    ASSERT_EQ(env.commands.spawned().size(), 1u);
    EXPECT_THAT(env.commands.spawned()[0].call.args, ElementsAre("-c", watchdogFor(env, {"powermode 0"})));
    const auto firstTerminated = env.commands.spawned()[0].terminated;

    c.setPerformance(false);
    EXPECT_TRUE(*firstTerminated) << "the old watchdog carries stale restore lines";
    EXPECT_THAT(helperVerbs(env), ElementsAre("powermode 2", "powermode 0"));
    ASSERT_EQ(env.commands.spawned().size(), 2u);
    EXPECT_THAT(env.commands.spawned()[1].call.args, ElementsAre("-c", watchdogFor(env, {})));
    EXPECT_FALSE(*env.commands.spawned()[1].terminated);
    EXPECT_FALSE(c.perfApplied());
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

TEST_F(Watchdog, StopTerminatesAndForgetsIt) {
    Access::startWatchdog(c);
    ASSERT_TRUE(c.watchdogRunning());
    Access::stopWatchdog(c);
    EXPECT_FALSE(c.watchdogRunning());
    EXPECT_TRUE(*env.commands.spawned()[0].terminated);
    Access::stopWatchdog(c);  // none left: nothing happens
    EXPECT_EQ(env.commands.spawned().size(), 1u);
}

TEST_F(Watchdog, ALaunchFailureLeavesNoWatchdog) {
    env.commands.spawnFails = true;
    Access::startWatchdog(c);
    EXPECT_FALSE(c.watchdogRunning());
}

// --- launch recovery ---

TEST(LaunchRecovery, LeftoversGetOneLidOffAndTheRecordedRestores) {
    TestEnvironment env;
    env.installHelper();
    env.settings.setBool(SettingsKey::restoreLid, true);
    env.settings.setInteger(SettingsKey::restoreLowPower, 1);
    env.settings.setInteger(SettingsKey::restorePowerMode, 0);
    AwakeController c;
    EXPECT_THAT(helperVerbs(env), ElementsAre("lid-off", "lowpower 1", "powermode 0"));
    EXPECT_EQ(env.settings.boolean(SettingsKey::restoreLid), false);
    EXPECT_FALSE(env.settings.integer(SettingsKey::restoreLowPower).has_value());
    EXPECT_FALSE(env.settings.integer(SettingsKey::restorePowerMode).has_value());
    EXPECT_FALSE(c.perfApplied());
}

TEST(LaunchRecovery, ARestoreValueAloneAlsoTriggersIt) {
    TestEnvironment env;
    env.installHelper();
    env.settings.setInteger(SettingsKey::restorePowerMode, 1);
    AwakeController c;
    EXPECT_THAT(helperVerbs(env), ElementsAre("lid-off", "powermode 1"));
    EXPECT_EQ(env.settings.boolean(SettingsKey::restoreLid), false);
}

TEST(LaunchRecovery, WithoutAWorkingHelperTheLidKeyIsClearedAndTheValuesStay) {
    TestEnvironment env;
    env.installHelper();
    env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " version", CommandResult{1, "password required"});
    env.settings.setBool(SettingsKey::restoreLid, true);
    env.settings.setInteger(SettingsKey::restoreLowPower, 1);
    env.settings.setInteger(SettingsKey::restorePowerMode, 0);
    AwakeController c;
    EXPECT_THAT(helperVerbs(env), IsEmpty());
    EXPECT_EQ(env.settings.boolean(SettingsKey::restoreLid), false);
    EXPECT_EQ(env.settings.integer(SettingsKey::restoreLowPower), 1);
    EXPECT_EQ(env.settings.integer(SettingsKey::restorePowerMode), 0);
    EXPECT_FALSE(c.helperInstalled());
}

TEST(LaunchRecovery, ACleanLaunchSendsAndWritesNothing) {
    TestEnvironment env;
    env.installHelper();
    AwakeController c;
    EXPECT_THAT(helperVerbs(env), IsEmpty());
    EXPECT_FALSE(env.settings.boolean(SettingsKey::restoreLid).has_value()) << "nothing to recover, nothing written";
    EXPECT_TRUE(c.helperInstalled());
}

// --- installing and removing the helper from the settings screen ---

TEST(HelperActions, ReinstallReportsSuccessAndMirrorsTheFreshState) {
    TestEnvironment env;
    env.platform.resources["duskwell-power"] = "/app/duskwell-power";
    env.platform.onAdminScript = [&](const std::string&) { env.installHelper(); };
    AwakeController c;
    ASSERT_FALSE(c.helperInstalled());
    c.reinstallHelper();
    EXPECT_EQ(c.lastMessage(), "Power permission installed.");
    EXPECT_TRUE(c.helperInstalled());
}

TEST(HelperActions, ReinstallShowsTheErrorText) {
    TestEnvironment env;
    env.platform.resources["duskwell-power"] = "/app/duskwell-power";
    env.platform.adminResult = {AdminOutcome::cancelled, {}};
    AwakeController c;
    c.reinstallHelper();
    EXPECT_EQ(c.lastMessage(), "Permission setup was cancelled.");
    EXPECT_FALSE(c.helperInstalled());
}

TEST(HelperActions, UninstallSendsLidOffBeforeRemovingAndReportsIt) {
    TestEnvironment env;
    env.installHelper();
    std::vector<std::string> verbsAtPrompt;
    env.platform.onAdminScript = [&](const std::string&) {
        verbsAtPrompt = helperVerbs(env);
        std::filesystem::remove(env.helperFile());
    };
    AwakeController c;
    ASSERT_TRUE(c.helperInstalled());
    c.uninstallHelper();
    ASSERT_FALSE(verbsAtPrompt.empty());
    EXPECT_EQ(verbsAtPrompt.back(), "lid-off");
    EXPECT_EQ(c.lastMessage(), "Power permission removed.");
    EXPECT_FALSE(c.helperInstalled());
}

TEST(HelperActions, UninstallFailureShowsItsText) {
    TestEnvironment env;
    env.installHelper();
    env.platform.adminResult = {AdminOutcome::failed, "rm: busy"};
    AwakeController c;
    c.uninstallHelper();
    EXPECT_EQ(c.lastMessage(), "Permission setup failed: rm: busy");
    EXPECT_TRUE(c.helperInstalled());
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

TEST(SystemReadings, TurnOffDisplaySendsTheDisplayToSleep) {
    TestEnvironment env;
    AwakeController::turnOffDisplay();
    EXPECT_EQ(env.power.displaySleeps, 1);
}

}  // namespace
}  // namespace duskwell
