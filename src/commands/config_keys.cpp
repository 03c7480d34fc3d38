#include "commands/config_keys.h"

#include <algorithm>
#include <cctype>

#include "core/app_config.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "core/text.h"
#include "phone/ntfy_access.h"

namespace duskwell::ConfigKeys {

using nlohmann::json;

namespace {

Key key(std::string name, std::string settingsKey, Kind kind, nlohmann::json fallback, std::string en, std::string ko) {
    Key k;
    k.name = std::move(name);
    k.settingsKey = std::move(settingsKey);
    k.kind = kind;
    k.fallback = std::move(fallback);
    k.en = std::move(en);
    k.ko = std::move(ko);
    return k;
}

Key number(Key k, long long min, long long max, std::vector<long long> choices = {}) {
    k.min = min;
    k.max = max;
    k.choices = std::move(choices);
    return k;
}

}  // namespace

const std::vector<Key>& all() {
    static const std::vector<Key> keys = [] {
        std::vector<Key> k;
        Key mode = key("mode", SettingsKey::mode, Kind::word, "auto",
                       "the mode `toggle`, the dashboard and the menu start with: auto, timer or until",
                       "`toggle`, 대시보드, 메뉴가 시작하는 방식: auto, timer, until");
        mode.words = {"auto", "timer", "until"};
        k.push_back(mode);
        k.push_back(number(key("timer-minutes", SettingsKey::selectedMinutes, Kind::number, 60,
                               "the timer's length in minutes (0 = no limit)", "타이머 길이(분, 0 = 제한 없음)"),
                           0, AppConfig::maxPeriodMinutes));
        k.push_back(number(key("auto-cap-hours", SettingsKey::autoCapHours, Kind::number, 8,
                               "the longest an auto period lasts, in hours (0 = no cap)",
                               "자동 모드의 최대 시간(시간, 0 = 제한 없음)"),
                           0, AppConfig::maxPeriodMinutes / 60));
        k.push_back(number(key("battery-floor", SettingsKey::batteryFloor, Kind::number, 10,
                               "battery guard: stop and sleep below this percentage (0 = off)",
                               "배터리 보호: 이 비율 아래면 멈추고 잠자기(0 = 끔)"),
                           0, 100, {0, 5, 10, 15, 20, 30}));
        k.push_back(key("stop-on-heat", SettingsKey::stopOnHeat, Kind::onOff, true,
                        "heat protection: stop and sleep when it gets too hot", "과열 보호: 너무 뜨거워지면 멈추고 잠자기"));
        k.push_back(key("lock-on-lid-close", SettingsKey::lockOnLidClose, Kind::onOff, true,
                        "lock the screen when the lid closes", "뚜껑을 닫으면 화면 잠금"));
        k.push_back(key("max-performance", SettingsKey::maxPerformance, Kind::onOff, true,
                        "the performance power profile while running", "실행 중 최대 성능 전원 프로필"));
        Key login = key("launch-at-login", "", Kind::onOff, false, "start Duskwell when you log in",
                        "로그인하면 Duskwell 시작");
        login.needsApp = true;
        login.read = [] { return json(services().platform->loginItemEnabled()); };
        login.write = [](const json& v) { return services().platform->setLoginItem(v.get<bool>()); };
        k.push_back(login);
        k.push_back(key("phone.enabled", SettingsKey::phoneEnabled, Kind::onOff, false, "phone alerts through ntfy",
                        "ntfy를 통한 폰 알림"));
        k.push_back(key("phone.server", SettingsKey::phoneServer, Kind::url, "",
                        "the ntfy server for phone alerts (\"\" = " + AppConfig::ntfyServer() + ")",
                        "폰 알림용 ntfy 서버(\"\" = " + AppConfig::ntfyServer() + ")"));
        return k;
    }();
    return keys;
}

const Key* find(std::string_view name) {
    for (const auto& key : all())
        if (key.name == name) return &key;
    return nullptr;
}

namespace {

std::optional<bool> onOff(std::string_view text) {
    std::string t(text);
    std::transform(t.begin(), t.end(), t.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (t == "on" || t == "true" || t == "yes" || t == "1") return true;
    if (t == "off" || t == "false" || t == "no" || t == "0") return false;
    return std::nullopt;
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (size_t i = 0; i < words.size(); ++i) out += (i ? ", " : "") + words[i];
    return out;
}

}  // namespace

std::variant<json, std::string> parse(const Key& key, std::string_view text) {
    const std::string name = key.name;
    switch (key.kind) {
        case Kind::onOff:
            if (const auto b = onOff(text)) return json(*b);
            return T(name + " 값은 on 또는 off예요", name + " takes on or off");
        case Kind::word:
            for (const auto& w : key.words)
                if (w == text) return json(w);
            return T(name + " 값은 " + joined(key.words) + " 중 하나예요", name + " takes " + joined(key.words));
        case Kind::number: {
            const auto n = Text::parseInteger(std::string(text));
            if (!key.choices.empty()) {
                if (n && std::find(key.choices.begin(), key.choices.end(), *n) != key.choices.end()) return json(*n);
                std::vector<std::string> words;
                for (auto c : key.choices) words.push_back(std::to_string(c));
                return T(name + " 값은 " + joined(words) + " 중 하나예요", name + " takes one of " + joined(words));
            }
            if (n && *n >= key.min && *n <= key.max) return json(*n);
            const std::string range = std::to_string(key.min) + "–" + std::to_string(key.max);
            return T(name + " 값은 " + range + " 사이의 정수예요", name + " takes a whole number from " + range);
        }
        case Kind::url: {
            if (text.empty()) return json("");
            if (const auto server = NtfyAccess::normalizedServer(std::string(text))) return json(*server);
            return T(name + " 값은 ntfy 서버 주소(https://호스트[:포트]) 또는 기본값을 뜻하는 \"\"예요",
                     name + " takes an ntfy server address (https://host[:port]), or \"\" for the default");
        }
    }
    return std::string("?");
}

json read(const Key& key, const SettingsStore& store) {
    if (key.read) return key.read();
    switch (key.kind) {
        case Kind::onOff:
            if (const auto b = store.boolean(key.settingsKey)) return *b;
            break;
        case Kind::number:
            if (const auto n = store.integer(key.settingsKey)) return *n;
            break;
        case Kind::word:
            if (const auto n = store.integer(key.settingsKey); n && *n >= 0 && *n < static_cast<long long>(key.words.size()))
                return key.words[static_cast<size_t>(*n)];
            break;
        case Kind::url:
            if (const auto s = store.string(key.settingsKey)) return *s;
            break;
    }
    return key.fallback;
}

json readAll(const SettingsStore& store) {
    json out = json::object();
    for (const auto& key : all()) out[key.name] = read(key, store);
    return out;
}

std::optional<std::string> write(const Key& key, SettingsStore& store, const json& value) {
    if (key.write) return key.write(value);
    switch (key.kind) {
        case Kind::onOff: store.setBool(key.settingsKey, value.get<bool>()); break;
        case Kind::number: store.setInteger(key.settingsKey, value.get<long long>()); break;
        case Kind::word: {
            const auto at = std::find(key.words.begin(), key.words.end(), value.get<std::string>());
            store.setInteger(key.settingsKey, at - key.words.begin());
            break;
        }
        case Kind::url: store.setString(key.settingsKey, value.get<std::string>()); break;
    }
    return std::nullopt;
}

std::string display(const json& value) {
    if (value.is_boolean()) return value.get<bool>() ? "on" : "off";
    if (value.is_string()) return value.get<std::string>();
    return value.dump();
}

}  // namespace ConfigKeys
