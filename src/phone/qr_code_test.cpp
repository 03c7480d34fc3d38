#include "phone/qr_code.h"

#include <gtest/gtest.h>

#include <algorithm>

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

// The subscribe link on the public server and on a self-hosted one (longer, so a bigger
// code), drawn without a limit and for an 80x24 terminal: each drawing reads back to the
// very modules of the code chosen, quiet zone included, and the 24-line one fits.
TEST(QrCode, TerminalRenderingFitsAndRoundTripsInBothStyles) {
    struct Case {
        std::string link;
        std::optional<int> rows;
    };
    const std::string selfHosted = kLink + "@https://ntfy.example-home.net:8443";
    const Case cases[] = {{kLink, std::nullopt}, {kLink, 24}, {selfHosted, std::nullopt}, {selfHosted, 24}};
    for (const auto& k : cases) {
        SCOPED_TRACE(k.link + (k.rows ? " in " + std::to_string(*k.rows) + " rows" : " unlimited"));
        const auto fit = fitQrCode(k.link, k.rows);
        ASSERT_TRUE(fit.has_value());
        const QrCode& code = fit->code;
        const int quiet = fit->quietZone;
        const int side = code.width + 2 * quiet;
        if (k.rows) {
            EXPECT_LE(fit->rows(), *k.rows);
            EXPECT_LE(side, 79) << "wider than the terminal";
        } else {
            EXPECT_EQ(fit->level, QrLevel::medium);
            EXPECT_EQ(quiet, 2);
        }
        for (QrStyle style : {QrStyle::ansi, QrStyle::plain}) {
            const std::string text = renderQrForTerminal(code, style, quiet);
            EXPECT_EQ(drawQrForTerminal(k.link, style, k.rows), text);
            EXPECT_EQ(static_cast<int>(std::count(text.begin(), text.end(), '\n')), fit->rows());
            const auto dark = readBack(text, style, side);
            for (int y = 0; y < side; ++y) {
                for (int x = 0; x < side; ++x) {
                    const int cx = x - quiet, cy = y - quiet;
                    const bool expected =
                        cx >= 0 && cy >= 0 && cx < code.width && cy < code.width && code.isDark(cx, cy);
                    ASSERT_EQ(dark[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)], expected)
                        << "module " << x << "," << y << (style == QrStyle::ansi ? " ansi" : " plain");
                }
            }
        }
    }
    // The default drawing of today's link needs 25 lines: more than an 80x24 terminal has.
    EXPECT_GT(fitQrCode(kLink, std::nullopt)->rows(), 24);
    EXPECT_FALSE(fitQrCode(kLink, 10).has_value()) << "no code that small";
}

}  // namespace
}  // namespace duskwell
