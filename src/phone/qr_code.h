#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell {

// A QR code as a square of modules, without its quiet zone.
struct QrCode {
    int width = 0;           // modules per side
    std::vector<bool> dark;  // row-major, width * width entries
    bool isDark(int x, int y) const { return dark[static_cast<std::size_t>(y * width + x)]; }
};

// Error correction: L restores 7 % of the modules, M 15 % (the default; a screen is not a
// scuffed label, so L is the fallback when a terminal is short).
enum class QrLevel { low, medium };

// Encodes the bytes of `text` (libqrencode on Linux, Core Image's "CIQRCodeGenerator" on
// macOS). Nothing when the text does not fit a QR code.
std::optional<QrCode> makeQrCode(std::string_view text, QrLevel level = QrLevel::medium);

enum class QrStyle {
    ansi,   // black on white through colour codes: scans on light and dark terminals alike
    plain,  // no escape codes; light modules are the drawn ones (a dark terminal's background)
};

// Two module rows per text line with half-block characters, inside a quiet zone of
// `quietZone` modules. Every line ends in "\n".
std::string renderQrForTerminal(const QrCode& code, QrStyle style, int quietZone = 2);

// How a drawing of `text` is made to fit `maxRows` text lines: the first of level M with a
// two-module quiet zone, level L with two, then level L with one, whose height fits.
struct QrFit {
    QrLevel level = QrLevel::medium;
    int quietZone = 2;
    QrCode code;
    int rows() const { return (code.width + 2 * quietZone + 1) / 2; }
};
// Nothing when no code can be made or none fits; without a limit, level M with two modules.
// The encoder is the platform's (a default argument, so that the portable code never names
// it).
using QrEncoder = std::optional<QrCode> (*)(std::string_view text, QrLevel level);
std::optional<QrFit> fitQrCode(std::string_view text, std::optional<int> maxRows, QrEncoder encode = &makeQrCode);
// The drawing of fitQrCode's choice, or nothing.
std::optional<std::string> drawQrForTerminal(std::string_view text, QrStyle style, std::optional<int> maxRows,
                                             QrEncoder encode = &makeQrCode);

// macOS only (defined in qr_code_mac.mm): the settings screen's picture of `text`, an
// NSImage of size x size points whose single representation is the code scaled to a 2x
// backing. Returned retained as an opaque pointer, or nullptr when Core Image cannot make
// one; the Objective-C++ caller takes ownership with CFBridgingRelease:
//     NSImage* image = CFBridgingRelease(duskwell::qrImage(phone.subscribeURL(), 88));
void* qrImage(std::string_view text, double size);

}  // namespace duskwell
