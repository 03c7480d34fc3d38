#pragma once
// What `duskwell phone` prints: the subscribe link, the alert topic and the QR code.
#include <functional>
#include <optional>
#include <string>

namespace duskwell {

class SettingsStore;

enum class PhoneLinkFormat {
    text,  // sentence, link, topic, a note when alerts are off, and the QR code
    json,  // {"subscribeURL", "topic", "controlTopic", "server", "tokenSet"} only
};

// Draws `link` as a QR code for the terminal, or answers nothing when it cannot. The
// caller supplies it (makeQrCode and renderQrForTerminal from phone/qr_code.h) because the
// encoder is a platform service.
using QrDrawer = std::function<std::optional<std::string>(const std::string& link)>;

// Nothing when no topic is stored yet (the app creates the identifiers on its first
// launch; this never creates them). The link's fragment holds the secret by design.
std::optional<std::string> phoneLinkReport(const SettingsStore& settings, PhoneLinkFormat format,
                                           const QrDrawer& drawCode);

}  // namespace duskwell
