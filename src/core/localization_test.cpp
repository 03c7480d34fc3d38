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

// The Korean particle follows the word: "Mac" ends in a consonant, "컴퓨터" in a vowel.
TEST(Localization, MachinePlaceholdersTakeTheWordAndItsParticle) {
    struct Row {
        Machine::Kind kind;
        bool ko;
        const char* text;
        const char* power;
    };
    const Row rows[] = {
        {Machine::Kind::mac, false, "your Mac, your Mac.", "mac-en"},
        {Machine::Kind::mac, true, "Mac이 Mac을 Mac에서", "mac-ko"},
        {Machine::Kind::computer, false, "your computer, your computer.", "other-en"},
        {Machine::Kind::computer, true, "컴퓨터가 컴퓨터를 컴퓨터에서", "other-ko"},
    };
    for (const auto& r : rows) {
        Machine::overrideForTesting(r.kind);
        Locale::overrideForTesting(r.ko);
        EXPECT_EQ(TM("{machine:이} {machine:을} {machine}에서", "your {machine}, your {machine}."), r.text);
        EXPECT_EQ(TP("mac-ko", "mac-en", "other-ko", "other-en"), r.power);
    }
    Machine::overrideForTesting(std::nullopt);
    Locale::overrideForTesting(std::nullopt);
#ifdef __APPLE__
    EXPECT_EQ(Machine::kind(), Machine::Kind::mac);
#else
    EXPECT_EQ(Machine::kind(), Machine::Kind::computer);
#endif
}

}  // namespace
}  // namespace duskwell
