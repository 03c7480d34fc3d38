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

std::optional<QrFit> fitQrCode(std::string_view text, std::optional<int> maxRows, QrEncoder encode) {
    struct Try {
        QrLevel level;
        int quietZone;
    };
    static constexpr Try tries[] = {{QrLevel::medium, 2}, {QrLevel::low, 2}, {QrLevel::low, 1}};
    for (const Try& t : tries) {
        auto code = encode(text, t.level);
        if (!code) continue;
        QrFit fit{t.level, t.quietZone, std::move(*code)};
        if (!maxRows || fit.rows() <= *maxRows) return fit;
    }
    return std::nullopt;
}

std::optional<std::string> drawQrForTerminal(std::string_view text, QrStyle style, std::optional<int> maxRows,
                                             QrEncoder encode) {
    const auto fit = fitQrCode(text, maxRows, encode);
    if (!fit) return std::nullopt;
    return renderQrForTerminal(fit->code, style, fit->quietZone);
}

}  // namespace duskwell
