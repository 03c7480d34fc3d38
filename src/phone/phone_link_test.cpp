#include "phone/phone_link.h"

#include <gtest/gtest.h>

#include "phone/phone_notifier.h"
#include "phone/qr_code.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using testing::TestEnvironment;

std::optional<std::string> draw(const std::string& link) {
    auto code = makeQrCode(link);
    return code ? std::optional<std::string>(renderQrForTerminal(*code, QrStyle::plain)) : std::nullopt;
}

// What `duskwell phone` prints is checked end to end with the real program; here, what
// the program cannot reach from a fresh home: the code drawn and alerts switched on.
TEST(PhoneLink, TextDrawsTheCodeAndDropsTheOffNoticeOnceAlertsAreOn) {
    TestEnvironment env;
    PhoneNotifier phone;
    const auto off = phoneLinkReport(env.settings, PhoneLinkFormat::text, draw);
    ASSERT_TRUE(off.has_value());
    EXPECT_NE(off->find("\u2588"), std::string::npos);  // the code's blocks
    EXPECT_NE(off->find("Phone alerts are off"), std::string::npos);
    phone.setEnabled(true);
    EXPECT_EQ(phoneLinkReport(env.settings, PhoneLinkFormat::text, draw)->find("Phone alerts are off"), std::string::npos);
}

}  // namespace
}  // namespace duskwell
