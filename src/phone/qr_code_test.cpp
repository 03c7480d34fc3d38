#include "phone/qr_code.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

const std::string kLink =
    "https://duskwell.app/phone/#duskwell-abcdefghijkmnopqrstu.duskwell-c-abcdefghijkmnopqrstuvwx.abcdefghijkmnopq";

// The 7x7 finder pattern: a dark ring, a light ring, a dark 3x3 centre.
bool finderAt(const QrCode& code, int ox, int oy) {
    for (int y = 0; y < 7; ++y) {
        for (int x = 0; x < 7; ++x) {
            const bool ring = x == 0 || y == 0 || x == 6 || y == 6;
            const bool centre = x >= 2 && x <= 4 && y >= 2 && y <= 4;
            if (code.isDark(ox + x, oy + y) != (ring || centre)) return false;
        }
    }
    return true;
}

// Reads the rendering back into modules (quiet zone included).
std::vector<std::vector<bool>> readBack(const std::string& text, QrStyle style, int side) {
    std::vector<std::vector<bool>> dark(static_cast<std::size_t>(side + 1), std::vector<bool>(static_cast<std::size_t>(side)));
    std::size_t pos = 0;
    for (int row = 0; pos < text.size(); row += 2) {
        const std::size_t end = text.find('\n', pos);
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        if (style == QrStyle::ansi) {
            EXPECT_EQ(line.rfind("\x1b[30;47m", 0), 0u);
            EXPECT_EQ(line.substr(line.size() - 4), "\x1b[0m");
            line = line.substr(8, line.size() - 12);
        }
        int x = 0;
        for (std::size_t i = 0; i < line.size(); ++x) {
            bool top = false, bottom = false;
            if (line[i] == ' ') { i += 1; }
            else {
                const std::string glyph = line.substr(i, 3);
                top = glyph == "\u2588" || glyph == "\u2580";
                bottom = glyph == "\u2588" || glyph == "\u2584";
                i += 3;
            }
            // Ink is dark for the ANSI form and light for the plain one.
            const bool inkIsDark = style == QrStyle::ansi;
            dark[static_cast<std::size_t>(row)][static_cast<std::size_t>(x)] = inkIsDark ? top : !top;
            dark[static_cast<std::size_t>(row + 1)][static_cast<std::size_t>(x)] = inkIsDark ? bottom : !bottom;
        }
        EXPECT_EQ(x, side);
    }
    return dark;
}

TEST(QrCode, SubscribeLinkEncodesToAValidSymbol) {
    const auto code = makeQrCode(kLink);
    ASSERT_TRUE(code.has_value());
    EXPECT_EQ((code->width - 21) % 4, 0);  // versions grow by 4 modules
    EXPECT_GE(code->width, 41);            // ~110 bytes at level M need version 6 or more
    EXPECT_TRUE(finderAt(*code, 0, 0));
    EXPECT_TRUE(finderAt(*code, code->width - 7, 0));
    EXPECT_TRUE(finderAt(*code, 0, code->width - 7));
    EXPECT_FALSE(finderAt(*code, code->width - 7, code->width - 7));
    EXPECT_NE(makeQrCode(kLink + "x")->dark, code->dark);
}

TEST(QrCode, TerminalRenderingRoundTripsInBothStyles) {
    const auto code = makeQrCode(kLink);
    ASSERT_TRUE(code.has_value());
    const int quiet = 2;
    const int side = code->width + 2 * quiet;
    for (QrStyle style : {QrStyle::ansi, QrStyle::plain}) {
        const std::string text = renderQrForTerminal(*code, style, quiet);
        EXPECT_EQ(static_cast<int>(std::count(text.begin(), text.end(), '\n')), (side + 1) / 2);
        const auto dark = readBack(text, style, side);
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const int cx = x - quiet, cy = y - quiet;
                const bool expected = cx >= 0 && cy >= 0 && cx < code->width && cy < code->width && code->isDark(cx, cy);
                ASSERT_EQ(dark[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)], expected)
                    << "module " << x << "," << y << (style == QrStyle::ansi ? " ansi" : " plain");
            }
        }
    }
}

}  // namespace
}  // namespace duskwell
