#include "phone/phone_link.h"

#include <nlohmann/json.hpp>

#include "core/localization.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "phone/ntfy_access.h"
#include "phone/phone_notifier.h"

namespace duskwell {

std::optional<std::string> phoneLinkReport(const SettingsStore& settings, PhoneLinkFormat format,
                                           const QrDrawer& drawCode) {
    const auto topic = settings.string(SettingsKey::phoneTopic);
    if (!topic || topic->empty()) return std::nullopt;
    const std::string link = PhoneNotifier::subscribeURL(settings);

    if (format == PhoneLinkFormat::json) {
        // Whether a token is set, never the token.
        const nlohmann::json out = {{"subscribeURL", link},
                                    {"topic", *topic},
                                    {"controlTopic", settings.string(SettingsKey::phoneControl).value_or("")},
                                    {"server", NtfyAccess::server(settings)},
                                    {"tokenSet", NtfyAccess::token(settings).has_value()}};
        return out.dump(2) + "\n";
    }

    std::string out = T("휴대폰 카메라로 QR 코드를 찍거나 링크를 여세요:",
                        "Scan the QR code with your phone's camera, or open the link:");
    out += "\n\n" + link + "\n\n" + T("알림 토픽: ", "Alert topic: ") + *topic + "\n";
    if (!NtfyAccess::usesPublicServer(settings)) {
        out += T("ntfy 서버: ", "ntfy server: ") + NtfyAccess::server(settings);
        if (NtfyAccess::token(settings)) out += T(" (액세스 토큰 사용)", " (with an access token)");
        out += "\n";
    }
    if (!settings.boolean(SettingsKey::phoneEnabled).value_or(false)) {
        out += T("휴대폰 알림이 꺼져 있어요. `duskwell phone on`으로 켜세요.",
                 "Phone alerts are off; switch them on with `duskwell phone on`.");
        out += "\n";
    }
    if (auto code = drawCode ? drawCode(link) : std::nullopt) {
        out += "\n" + *code;
    } else {
        out += T("(QR 코드를 만들 수 없어요.)", "(The QR code could not be drawn.)");
        out += "\n";
    }
    return out;
}

}  // namespace duskwell
