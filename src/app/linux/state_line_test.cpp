#include "state_line.h"

#include <gtest/gtest.h>

#include "core/awake_controller.h"
#include "core/localization.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

TEST(StateLine, ShowsModeBatteryLidAndHeatAsReadAtStart) {
    testing::TestEnvironment env;
    env.power.setBattery(57, /*onBattery=*/true, 95);
    env.power.lid = false;
    env.power.thermal = 2;
    env.settings.setInteger("mode", 1);
    AwakeController c;
    EXPECT_EQ(stateLine(c), "mode timer · idle · battery 57%, on battery, 1:35 left · lid open · heat serious");
}

TEST(StateLine, DesktopWithoutBatteryOrLid) {
    testing::TestEnvironment env;
    AwakeController c;
    EXPECT_EQ(stateLine(c), "mode auto · idle · no battery · no lid · heat nominal");
}

TEST(StateLine, KoreanTextsWhenTheLanguageIsKorean) {
    testing::TestEnvironment env;
    Locale::overrideForTesting(true);
    env.power.setBattery(80, /*onBattery=*/false, std::nullopt, /*charging=*/true);
    env.power.lid = true;
    AwakeController c;
    EXPECT_EQ(stateLine(c), "모드 auto · 쉬는 중 · 배터리 80%, 충전 중 · 덮개 닫힘 · 발열 정상");
}

}  // namespace
}  // namespace duskwell
