#include "core/localization.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

TEST(Localization, OnlyTheFirstTagCountsAndOnlyAsAPrefix) {
    EXPECT_TRUE(Locale::isKoreanFor({"ko-KR", "en-US"}));
    EXPECT_FALSE(Locale::isKoreanFor({"en-US", "ko-KR"}));
    EXPECT_TRUE(Locale::isKoreanFor({"ko"}));
    EXPECT_TRUE(Locale::isKoreanFor({"ko_KR.UTF-8"}));
    EXPECT_FALSE(Locale::isKoreanFor({}));
    EXPECT_FALSE(Locale::isKoreanFor({"en-KO"}));
    EXPECT_FALSE(Locale::isKoreanFor({"KO-kr"}));
    EXPECT_FALSE(Locale::isKoreanFor({"C"}));
}

TEST(Localization, TPicksByTheLanguage) {
    Locale::overrideForTesting(true);
    EXPECT_EQ(T("대기 중", "Idle"), "대기 중");
    Locale::overrideForTesting(false);
    EXPECT_EQ(T("대기 중", "Idle"), "Idle");
    Locale::overrideForTesting(std::nullopt);
}

}  // namespace
}  // namespace duskwell
