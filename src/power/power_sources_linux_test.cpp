#ifdef __linux__
#include "power/power_sources_linux.h"

#include <gtest/gtest.h>
#include <filesystem>

#include "power/system_info.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::writeFile;

// A fake machine: sysfs, procfs and programs below a temporary root.
class FakeRoot : public ::testing::Test {
protected:
    // UPower would otherwise answer before the fake tree: the system bus points nowhere here.
    testing::EnvScope noBus{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/duskwell-test-bus"};
    testing::TestEnvironment env;  // installs the scripted command runner
    testing::TempDir root;
    LinuxPowerSources power{root.path()};

    void supply(const std::string& name, std::map<std::string, std::string> attributes) {
        for (const auto& [k, v] : attributes)
            writeFile(root.path() + "/sys/class/power_supply/" + name + "/" + k, v + "\n");
    }
    BatteryInfo battery() { return SystemInfo::batteryFrom(power.powerSources()); }
};

// --- batteries ---

// One machine per row: its supplies' attributes and the battery reading expected of them.
TEST_F(FakeRoot, BatteriesAreReadFromTheirSupplyAttributes) {
    using Attributes = std::map<std::string, std::string>;
    struct Case {
        const char* what;
        std::vector<std::pair<std::string, Attributes>> supplies;
        std::optional<int> percent, minutesLeft;
        bool onBattery, charging, hasBattery = true;
    };
    const Attributes full{{"type", "Battery"}, {"status", "Full"}, {"capacity", "100"}, {"energy_now", "50000000"}, {"power_now", "0"}};
    const Case cases[] = {
        {"discharging: 30 Wh at 10 W", {{"AC", {{"type", "Mains"}, {"online", "0"}}},
          {"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "57"}, {"energy_now", "30000000"}, {"power_now", "10000000"}}}},
         57, 180, true, false},
        // "ACAD" sorts before the battery, "ZMAINS" after it.
        {"adapter listed first", {{"ACAD", {{"type", "Mains"}, {"online", "1"}}}, {"BAT1", full}}, 100, std::nullopt, false, false},
        {"adapter listed last", {{"ZMAINS", {{"type", "Mains"}, {"online", "1"}}}, {"BAT1", full}}, 100, std::nullopt, false, false},
        {"charging counts as adapter power", {{"BAT0", {{"type", "Battery"}, {"status", "Charging"}, {"capacity", "40"}}},
          {"USB-C", {{"type", "USB_PD"}, {"online", "1"}}}}, 40, std::nullopt, false, true},
        {"not charging, no adapter online", {{"AC", {{"type", "Mains"}, {"online", "0"}}},
          {"BAT0", {{"type", "Battery"}, {"status", "Not charging"}, {"capacity", "80"}}}}, 80, std::nullopt, true, false},
        {"energy counters; 2/3 rounds up; a negative draw is still a draw",
         {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"energy_now", "20000000"}, {"energy_full", "30000000"}, {"power_now", "-5000000"}}}},
         67, 240, true, false},
        {"charge counters", {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"charge_now", "2500000"}, {"charge_full", "5000000"}, {"current_now", "1250000"}}}},
         50, 120, true, false},
        {"garbage leaves the values out, not the battery",
         {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "lots"}, {"energy_now", "12abc"}, {"energy_full", ""}, {"power_now", "999999999999999999999999"}}}},
         std::nullopt, std::nullopt, true, false},
        {"capacity out of range: the counters; full without an adapter is battery power",
         {{"BAT0", {{"type", "Battery"}, {"status", "Full"}, {"capacity", "250"}, {"energy_now", "1"}, {"energy_full", "4"}}}},
         25, std::nullopt, true, false},
        {"a desktop with only an adapter", {{"AC", {{"type", "Mains"}, {"online", "1"}}}}, std::nullopt, std::nullopt, false, false, false},
        {"peripheral and absent batteries are not the machine's",
         {{"hidpp_battery_0", {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "5"}, {"status", "Discharging"}}},
          {"BAT1", {{"type", "Battery"}, {"present", "0"}}}},
         std::nullopt, std::nullopt, false, false, false},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.what);
        fs::remove_all(root.path() + "/sys");
        for (const auto& [name, attributes] : k.supplies) supply(name, attributes);
        const auto b = battery();
        EXPECT_EQ(b.hasBattery, k.hasBattery);
        EXPECT_EQ(b.percent, k.percent);
        EXPECT_EQ(b.minutesLeft, k.minutesLeft);
        EXPECT_EQ(b.onBattery, k.onBattery);
        EXPECT_EQ(b.charging, k.charging);
    }
}

TEST_F(FakeRoot, UnreadableAttributeIsTreatedAsMissing) {
    supply("BAT0", {{"type", "Battery"}, {"status", "Discharging"}});
    // A folder where a file should be cannot be read as text, even by root.
    fs::create_directories(root.path() + "/sys/class/power_supply/BAT0/capacity");
    const auto b = battery();
    EXPECT_TRUE(b.hasBattery);
    EXPECT_EQ(b.percent, std::nullopt);
}

TEST_F(FakeRoot, NoPowerSupplyFolderMeansTheListCannotBeRead) {
    EXPECT_EQ(power.powerSources(), std::nullopt);
    supply("AC", {{"type", "Mains"}, {"online", "1"}});
    EXPECT_EQ(power.powerSources(), std::vector<PowerSourceDescription>{});
}

// --- lid ---

TEST_F(FakeRoot, LidStateIsReadFromAcpi) {
    EXPECT_EQ(power.lidClosed(), std::nullopt);  // a desktop: no lid
    writeFile(root.path() + "/proc/acpi/button/lid/LID0/state", "state:      closed\n");
    EXPECT_EQ(power.lidClosed(), true);
    writeFile(root.path() + "/proc/acpi/button/lid/LID0/state", "state:      open\n");
    EXPECT_EQ(power.lidClosed(), false);
    writeFile(root.path() + "/proc/acpi/button/lid/LID0/state", "state:      ajar\n");
    EXPECT_EQ(power.lidClosed(), std::nullopt);
}

// --- thermal ---

class Thermal : public FakeRoot {
protected:
    void zone(int n, long temp, std::vector<std::pair<std::string, long>> trips) {
        const std::string dir = root.path() + "/sys/class/thermal/thermal_zone" + std::to_string(n);
        writeFile(dir + "/temp", std::to_string(temp) + "\n");
        for (size_t i = 0; i < trips.size(); ++i) {
            writeFile(dir + "/trip_point_" + std::to_string(i) + "_type", trips[i].first + "\n");
            writeFile(dir + "/trip_point_" + std::to_string(i) + "_temp", std::to_string(trips[i].second) + "\n");
        }
    }
};

TEST_F(Thermal, EachTripTypeReachedRaisesTheLevel) {
    const std::vector<std::pair<std::string, long>> trips{
        {"active", 50000}, {"passive", 80000}, {"hot", 95000}, {"critical", 105000}};
    EXPECT_EQ(power.thermalState(), 0);  // no zones: nominal
    zone(0, 60000, trips);
    EXPECT_EQ(power.thermalState(), 0);  // active trips only run fans
    zone(0, 80000, trips);
    EXPECT_EQ(power.thermalState(), 1);
    zone(0, 96000, trips);
    EXPECT_EQ(power.thermalState(), 2);
    zone(0, 105000, trips);
    EXPECT_EQ(power.thermalState(), 3);
}

TEST_F(Thermal, TheHottestZoneWinsAndUnsetTripsAreIgnored) {
    zone(0, 40000, {{"critical", 0}, {"passive", 90000}});  // a 0 trip is "not set"
    zone(1, 91000, {{"passive", 90000}});
    EXPECT_EQ(power.thermalState(), 1);
    writeFile(root.path() + "/sys/class/thermal/thermal_zone1/temp", "hot\n");
    EXPECT_EQ(power.thermalState(), 0);
}

// --- lid sleep and power profiles ---

TEST_F(FakeRoot, SleepDisabledFollowsTheHelpersLogindDropIn) {
    const std::string conf = root.path() + "/run/systemd/logind.conf.d/duskwell.conf";
    EXPECT_FALSE(power.sleepDisabled());
    writeFile(conf, "[Login]\nHandleLidSwitch = ignore\nHandleLidSwitchExternalPower=ignore\n");
    EXPECT_TRUE(power.sleepDisabled());
    writeFile(conf, "[Login]\n#HandleLidSwitch=ignore\nHandleLidSwitch=suspend\n");
    EXPECT_FALSE(power.sleepDisabled());
    writeFile(conf, "[Login]\nHandleLidSwitchDocked=ignore\n");
    EXPECT_FALSE(power.sleepDisabled());
}

TEST(PowerProfiles, ProfileNamesMapToBatterySettings) {
    struct Row {
        const char* profile;
        const char* key;
        std::optional<int> value;
    };
    const Row rows[] = {
        {"power-saver", "lowpowermode", 1}, {"power-saver", "powermode", 1},
        {"performance", "lowpowermode", 0}, {"performance", "powermode", 2},
        {"balanced", "powermode", 0},       {"balanced", "sleep", std::nullopt},
        {"Performance", "powermode", std::nullopt},  // names are exact
    };
    for (const Row& r : rows) EXPECT_EQ(profileSetting(r.profile, r.key), r.value) << r.profile << " " << r.key;
}

// UPower's display device read as the battery list, and what the controller makes of it.
TEST(UPowerBattery, DisplayDeviceBecomesOneInternalBattery) {
    UPowerReading desktop;  // no battery present: an empty list, not an unreadable one
    EXPECT_TRUE(describeUPower(desktop).empty());

    UPowerReading laptop;
    laptop.batteryPresent = true;
    laptop.onBattery = true;
    laptop.percent = 41.6;
    laptop.secondsToEmpty = 5400;
    BatteryInfo b = SystemInfo::batteryFrom(describeUPower(laptop));
    EXPECT_EQ(b.percent, 42);
    EXPECT_TRUE(b.onBattery);
    EXPECT_EQ(b.minutesLeft, 90);

    laptop.onBattery = false;
    laptop.charging = true;
    b = SystemInfo::batteryFrom(describeUPower(laptop));
    EXPECT_FALSE(b.onBattery);
    EXPECT_EQ(b.minutesLeft, std::nullopt);  // time to empty only counts on battery
}

}  // namespace
}  // namespace duskwell
#endif
