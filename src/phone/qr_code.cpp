#include "phone/qr_code.h"

namespace duskwell {

std::string renderQrForTerminal(const QrCode& code, QrStyle style, int quietZone) {
    const int side = code.width + 2 * quietZone;
    // Quiet-zone modules are light; rows past the bottom edge are not drawn at all.
    auto dark = [&](int x, int y) {
        const int cx = x - quietZone, cy = y - quietZone;
        return cx >= 0 && cy >= 0 && cx < code.width && cy < code.width && code.isDark(cx, cy);
    };
    // "Ink" is what the foreground draws: dark modules on the forced white background, or
    // light modules on a dark terminal.
    auto ink = [&](int x, int y) {
        if (y >= side) return false;
        return style == QrStyle::ansi ? dark(x, y) : !dark(x, y);
    };
    std::string out;
    for (int y = 0; y < side; y += 2) {
        if (style == QrStyle::ansi) out += "\x1b[30;47m";
        for (int x = 0; x < side; ++x) {
            const bool top = ink(x, y), bottom = ink(x, y + 1);
            out += top ? (bottom ? "\u2588" : "\u2580") : (bottom ? "\u2584" : " ");
        }
        if (style == QrStyle::ansi) out += "\x1b[0m";
        out += "\n";
    }
    return out;
}

}  // namespace duskwell
