#include "power/system_info.h"

#include <gtest/gtest.h>

#include "testing/fakes.h"

namespace duskwell {
namespace {

PowerSourceDescription adapter() {
    return {{"Type", std::string("UPS")}, {"Power Source State", std::string("AC Power")}};
}

PowerSourceDescription internal(std::int64_t cur, std::int64_t max, const char* state) {
    return {{"Type", std::string("InternalBattery")},
            {"Current Capacity", cur},
            {"Max Capacity", max},
            {"Power Source State", std::string(state)},
            {"Is Charging", false},
            {"Time to Empty", std::int64_t{95}}};
}

TEST(SystemInfoBattery, RoundsHalfAwayAndReadsTheInternalBatteryWhereverItStands) {
    auto b = SystemInfo::batteryFrom(std::vector{adapter(), internal(2, 3, "Battery Power")});
    EXPECT_TRUE(b.hasBattery);
    EXPECT_EQ(b.percent, 67);
    EXPECT_TRUE(b.onBattery);
    EXPECT_EQ(b.minutesLeft, 95);

    EXPECT_EQ(SystemInfo::batteryFrom(std::vector{internal(57, 100, "AC Power")}).percent, 57);
    EXPECT_EQ(SystemInfo::batteryFrom(std::vector{internal(1, 200, "AC Power")}).percent, 1);  // 0.5 -> 1
    // On the adapter the estimate is ignored.
    EXPECT_EQ(SystemInfo::batteryFrom(std::vector{internal(57, 100, "AC Power")}).minutesLeft, std::nullopt);
}

TEST(SystemInfoBattery, NeutralWithoutABatteryAndPartialWithBadCapacity) {
    const BatteryInfo none;
    EXPECT_EQ(SystemInfo::batteryFrom(std::nullopt), none);
    EXPECT_EQ(SystemInfo::batteryFrom(std::vector<PowerSourceDescription>{}), none);
    EXPECT_EQ(SystemInfo::batteryFrom(std::vector{adapter()}), none);

    auto zeroMax = internal(50, 0, "Battery Power");
    zeroMax["Is Charging"] = true;
    auto b = SystemInfo::batteryFrom(std::vector{zeroMax});
    EXPECT_TRUE(b.hasBattery);
    EXPECT_EQ(b.percent, std::nullopt);
    EXPECT_TRUE(b.onBattery);
    EXPECT_TRUE(b.charging);

    // Wrong types count as missing; an estimate of 0 or below is no estimate.
    auto odd = internal(50, 100, "Battery Power");
    odd["Current Capacity"] = 50.0;
    odd["Is Charging"] = std::string("yes");
    odd["Time to Empty"] = std::int64_t{-1};
    b = SystemInfo::batteryFrom(std::vector{odd});
    EXPECT_EQ(b.percent, std::nullopt);
    EXPECT_FALSE(b.charging);
    EXPECT_EQ(b.minutesLeft, std::nullopt);
}

TEST(SystemInfoPmset, BatterySettingComesOnlyFromTheBatterySection) {
    const std::string custom =
        "Battery Power:\n Sleep On Power Button 1\n lowpowermode         1\n powermode            0\n"
        " sleep                1\nAC Power:\n powermode            2\n sleep                0\n";
    EXPECT_EQ(SystemInfo::parseBatterySetting(custom, "lowpowermode"), 1);
    EXPECT_EQ(SystemInfo::parseBatterySetting(custom, "powermode"), 0);
    // Only the first piece is the key; the last piece is the value.
    EXPECT_EQ(SystemInfo::parseBatterySetting(custom, "Sleep"), 1);
    EXPECT_EQ(SystemInfo::parseBatterySetting(custom, "On"), std::nullopt);
    EXPECT_EQ(SystemInfo::parseBatterySetting("AC Power:\n powermode 2\n", "powermode"), std::nullopt);
    EXPECT_EQ(SystemInfo::parseBatterySetting("Battery Power:\n\tpowermode\t\t2\n", "powermode"), std::nullopt)
        << "a tab-indented line is a heading, not a setting";
    EXPECT_EQ(SystemInfo::parseBatterySetting("Battery Power:\n powermode high\n", "powermode"), std::nullopt);
    EXPECT_EQ(SystemInfo::parseBatterySetting("garbage\n\x01\x02\n  \n", "powermode"), std::nullopt);
    EXPECT_EQ(SystemInfo::parseBatterySetting("", "powermode"), std::nullopt);
}

TEST(SystemInfoPmset, SleepDisabledReadsTheFirstMatchingLine) {
    EXPECT_TRUE(SystemInfo::parseSleepDisabled("System-wide power settings:\n SleepDisabled\t\t1\n"));
    EXPECT_FALSE(SystemInfo::parseSleepDisabled("System-wide power settings:\n SleepDisabled\t\t0\n"));
    EXPECT_FALSE(SystemInfo::parseSleepDisabled("Currently in use:\n sleep 1\n"));
    EXPECT_FALSE(SystemInfo::parseSleepDisabled(""));
}

TEST(SystemInfoDisplays, ExternalAndAwakeBuiltinAreToldApart) {
    EXPECT_EQ(SystemInfo::summarizeDisplays(std::nullopt), DisplaySummary{});
    EXPECT_EQ(SystemInfo::summarizeDisplays(std::vector<DisplayInfo>{}), DisplaySummary{});
    EXPECT_EQ(SystemInfo::summarizeDisplays(std::vector{DisplayInfo{true, false, true}}), (DisplaySummary{true, false}));
    EXPECT_EQ(SystemInfo::summarizeDisplays(std::vector{DisplayInfo{true, true, true}, DisplayInfo{false, false, true}}),
              (DisplaySummary{false, true}));
    EXPECT_EQ(SystemInfo::summarizeDisplays(std::vector{DisplayInfo{true, false, false}}), DisplaySummary{});
}

TEST(IdleAssertionTest, AcquireTwiceHoldsOneAndReleaseIsIdempotent) {
    testing::TestEnvironment env;
    IdleAssertion a;
    a.release();
    EXPECT_FALSE(a.held());
    a.acquire();
    a.acquire();
    EXPECT_EQ(env.power.assertionsCreated, 1);
    EXPECT_EQ(env.power.heldAssertions.size(), 1u);
    a.release();
    a.release();
    EXPECT_TRUE(env.power.heldAssertions.empty());
    env.power.assertionsGranted = false;
    a.acquire();
    EXPECT_FALSE(a.held()) << "a refused assertion leaves it free for the next start";
}

}  // namespace
}  // namespace duskwell
