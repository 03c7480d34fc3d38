#include "core/awake_controller.h"

#include <gtest/gtest.h>

#include "core/awake_controller_test_support.h"
#include "core/settings_keys.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using testing::localTime;
using testing::TestEnvironment;

TEST(AwakeControllerSettings, FreshInstallReadsTheRegisteredDefaults) {
    TestEnvironment env;
    AwakeController c;
    EXPECT_EQ(c.mode(), KeepMode::auto_);
    EXPECT_EQ(c.selectedMinutes(), 60);
    EXPECT_EQ(c.autoCapHours(), 8);
    EXPECT_TRUE(c.maxPerformance());
    EXPECT_EQ(c.batteryFloor(), 10);
    EXPECT_TRUE(c.stopOnHeat());
    EXPECT_TRUE(c.lockOnLidClose());
    EXPECT_FALSE(c.isActive());
    EXPECT_EQ(c.screen(), Screen::main);
    // Only the phone's identifiers are written, once, on the first launch.
    auto stored = env.settings.stored();
    for (const char* key : {SettingsKey::phoneTopic, SettingsKey::phoneControl, SettingsKey::phoneSecret}) {
        EXPECT_EQ(stored.erase(key), 1u) << key;
    }
    EXPECT_TRUE(stored.empty()) << "defaults are registered, never written";
}

TEST(AwakeControllerSettings, SettersWriteThroughAndAnnounceOnlyRealChanges) {
    TestEnvironment env;
    int announced = 0;
    {
        AwakeController c;
        auto sub = c.changes().subscribe([&] { ++announced; });
        c.setBatteryFloor(0);
        c.setMode(KeepMode::until);
        c.setSelectedMinutes(90);
        c.setAutoCapHours(0);
        c.setMaxPerformance(false);
        c.setStopOnHeat(false);
        c.setLockOnLidClose(false);
        EXPECT_EQ(announced, 7);
        c.setBatteryFloor(0);
        EXPECT_EQ(announced, 7);
    }
    EXPECT_EQ(env.settings.integer(SettingsKey::batteryFloor), 0);
    EXPECT_EQ(env.settings.integer(SettingsKey::mode), 2);
    EXPECT_EQ(env.settings.integer(SettingsKey::selectedMinutes), 90);
    EXPECT_EQ(env.settings.boolean(SettingsKey::maxPerformance), false);
    AwakeController again;
    EXPECT_EQ(again.batteryFloor(), 0);
    EXPECT_EQ(again.mode(), KeepMode::until);
    EXPECT_EQ(again.autoCapHours(), 0);
    EXPECT_FALSE(again.stopOnHeat());
    EXPECT_FALSE(again.lockOnLidClose());
}

TEST(AwakeControllerSettings, AStoredModeOutOfRangeReadsAsAuto) {
    TestEnvironment env;
    for (const auto& [stored, mode] : {std::pair{7, KeepMode::auto_}, {-1, KeepMode::auto_}, {1, KeepMode::timer}}) {
        env.settings.setInteger(SettingsKey::mode, stored);
        EXPECT_EQ(AwakeController().mode(), mode) << stored;
    }
}

TEST(AwakeControllerSettings, UntilDateIsTheNextFullHourPlusThree) {
    TestEnvironment env;
    env.clock.set(localTime(10, 20));
    EXPECT_EQ(AwakeController().untilDate(), localTime(14, 0));
    env.clock.set(localTime(10, 59, 59));
    EXPECT_EQ(AwakeController().untilDate(), localTime(14, 0));
    env.clock.set(localTime(11, 0, 0));  // exactly on the hour: the next one
    EXPECT_EQ(AwakeController().untilDate(), localTime(15, 0));
    env.clock.set(localTime(23, 30));
    EXPECT_EQ(AwakeController().untilDate(), localTime(3, 0, 0, 23));
}

TEST(AwakeControllerConstruction, ReadsTheFirstReadingsAndStartsTheTickThatDiesWithIt) {
    TestEnvironment env;
    env.power.setBattery(42, true, 80);
    env.power.lid = false;
    env.power.thermal = 1;
    {
        AwakeController c;
        EXPECT_EQ(c.battery().percent, 42);
        EXPECT_EQ(c.lidClosed(), false);
        EXPECT_EQ(c.thermal(), 1);
        EXPECT_EQ(env.dispatcher.liveTimers(), 1u);
        ASSERT_TRUE(env.power.thermalObserver);
        env.power.thermalObserver(3);
        EXPECT_EQ(c.thermal(), 3);
    }
    EXPECT_EQ(env.dispatcher.liveTimers(), 0u);
}

}  // namespace
}  // namespace duskwell
