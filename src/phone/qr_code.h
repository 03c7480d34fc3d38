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

// Encodes the bytes of `text` at error-correction level M (libqrencode on Linux, Core
// Image's "CIQRCodeGenerator" on macOS). Nothing when the text does not fit a QR code.
std::optional<QrCode> makeQrCode(std::string_view text);

enum class QrStyle {
    ansi,   // black on white through colour codes: scans on light and dark terminals alike
    plain,  // no escape codes; light modules are the drawn ones (a dark terminal's background)
};

// Two module rows per text line with half-block characters, inside a quiet zone of
// `quietZone` modules. Every line ends in "\n".
std::string renderQrForTerminal(const QrCode& code, QrStyle style, int quietZone = 2);

// macOS only (defined in qr_code_mac.mm): the settings screen's picture of `text`, an
// NSImage of size x size points whose single representation is the code scaled to a 2x
// backing. Returned retained as an opaque pointer, or nullptr when Core Image cannot make
// one; the Objective-C++ caller takes ownership with CFBridgingRelease:
//     NSImage* image = CFBridgingRelease(duskwell::qrImage(phone.subscribeURL(), 88));
void* qrImage(std::string_view text, double size);

}  // namespace duskwell
