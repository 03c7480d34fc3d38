#include "commands/url.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

TEST(URLParse, SplitsSchemeHostAndQueryItemsAsWritten) {
    const auto url = URL::parse("duskwell://start?mode=timer&minutes=90");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->scheme, "duskwell");
    EXPECT_EQ(url->host, "start");
    EXPECT_EQ(url->queryItems, (std::vector<QueryItem>{{"mode", "timer"}, {"minutes", "90"}}));
    EXPECT_EQ(URL::parse("duskwell://STOP")->host, "STOP") << "letter case is kept for the exact match";
}

TEST(URLParse, TheFirstItemWithTheExactNameWinsAndANameWithoutValueIsAbsent) {
    const auto url = URL::parse("duskwell://start?Minutes=5&minutes=30&minutes=45&mode&mode=timer");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->queryValue("minutes"), "30");
    EXPECT_EQ(url->queryValue("mode"), std::nullopt) << "the first 'mode' has no value";
    EXPECT_EQ(URL::parse("duskwell://extend?minutes=")->queryValue("minutes"), "") << "empty is a value";
}

TEST(URLParse, DecodesPercentEscapesButKeepsPlusSigns) {
    const auto url = URL::parse("duskwell://start?mode=ti%6Der&minutes=%2B5&note=a+b%20c");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->queryValue("mode"), "timer");
    EXPECT_EQ(url->queryValue("minutes"), "+5");
    EXPECT_EQ(url->queryValue("note"), "a+b c");
}

TEST(URLParse, AQueryThatCannotBeDecodedCountsAsNoQueryAtAll) {
    const auto url = URL::parse("duskwell://start?mode=timer&minutes=9%G0");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->host, "start");
    EXPECT_TRUE(url->queryItems.empty());
    EXPECT_TRUE(URL::parse("duskwell://start?minutes=5%")->queryItems.empty());
}

TEST(URLParse, HostIsAbsentWithoutAnAuthority) {
    EXPECT_EQ(URL::parse("duskwell:start")->host, std::nullopt);
    EXPECT_EQ(URL::parse("duskwell:///start")->host, std::nullopt);
    EXPECT_EQ(URL::parse("duskwell://")->host, std::nullopt);
    EXPECT_EQ(URL::parse("duskwell://extend/?minutes=5#frag")->host, "extend");
    EXPECT_EQ(URL::parse("duskwell://extend/?minutes=5#frag")->queryValue("minutes"), "5");
}

TEST(URLParse, RejectsTextWithoutAValidScheme) {
    EXPECT_FALSE(URL::parse("start"));
    EXPECT_FALSE(URL::parse("://start"));
    EXPECT_FALSE(URL::parse("1dusk://start"));
    EXPECT_FALSE(URL::parse("dusk well://start"));
}

TEST(URLEncode, RoundTripsThroughDecoding) {
    const std::string raw = "a b&c=d/é%";
    const std::string encoded = URL::percentEncode(raw);
    EXPECT_EQ(encoded.find_first_of(" &=/%\xC3", 0), encoded.find('%')) << encoded;
    EXPECT_EQ(URL::percentDecode(encoded), raw);
    EXPECT_EQ(URL::percentEncode("timer-90_x.~"), "timer-90_x.~");
}

}  // namespace
}  // namespace duskwell
