#include <qrencode.h>

#include <memory>

#include "phone/qr_code.h"

namespace duskwell {

std::optional<QrCode> makeQrCode(std::string_view text, QrLevel level) {
    struct Free { void operator()(QRcode* c) const { QRcode_free(c); } };
    std::unique_ptr<QRcode, Free> encoded(QRcode_encodeData(
        static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()), 0,
        level == QrLevel::low ? QR_ECLEVEL_L : QR_ECLEVEL_M));
    if (!encoded || encoded->width <= 0) return std::nullopt;

    QrCode code;
    code.width = encoded->width;
    const auto count = static_cast<std::size_t>(code.width) * static_cast<std::size_t>(code.width);
    code.dark.resize(count);
    for (std::size_t i = 0; i < count; ++i) code.dark[i] = (encoded->data[i] & 1) != 0;  // bit 0: dark
    return code;
}

}  // namespace duskwell
