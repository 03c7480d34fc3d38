#include "commands/control_config.h"

#include <algorithm>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "commands/config_keys.h"
#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/localization.h"
#include "core/services.h"

namespace duskwell::ControlProtocol {
namespace {

using nlohmann::json;

// Keys whose change the controller must apply itself (published state, power, the login
// item); any other key is written to the store, where its reader finds it.
using Apply = std::function<void(AwakeController&, const json&)>;
const std::map<std::string, Apply>& liveSetters() {
    static const std::map<std::string, Apply> setters{
        {"mode",
         [](AwakeController& c, const json& v) {
             const auto& words = ConfigKeys::find("mode")->words;
             const auto at = std::find(words.begin(), words.end(), v.get<std::string>()) - words.begin();
             c.setMode(KeepMode::fromRawValue(at).value_or(KeepMode::auto_));
         }},
        {"timer-minutes", [](AwakeController& c, const json& v) { c.setSelectedMinutes(v.get<int>()); }},
        {"auto-cap-hours", [](AwakeController& c, const json& v) { c.setAutoCapHours(v.get<int>()); }},
        {"battery-floor", [](AwakeController& c, const json& v) { c.setBatteryFloor(v.get<int>()); }},
        {"stop-on-heat", [](AwakeController& c, const json& v) { c.setStopOnHeat(v.get<bool>()); }},
        {"lock-on-lid-close", [](AwakeController& c, const json& v) { c.setLockOnLidClose(v.get<bool>()); }},
        {"max-performance", [](AwakeController& c, const json& v) { c.setPerformance(v.get<bool>()); }},
        {"launch-at-login", [](AwakeController& c, const json& v) { c.setLaunchAtLogin(v.get<bool>()); }},
        {"phone.enabled", [](AwakeController& c, const json& v) { c.setPhone(v.get<bool>()); }},
        {"phone.server", [](AwakeController& c, const json& v) { c.setPhoneServer(v.get<std::string>()); }},
    };
    return setters;
}

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

Reply ok(std::string text = {}) { return {ReplyKind::ok, std::move(text)}; }
Reply error(std::string text) { return {ReplyKind::error, std::move(text)}; }

Reply configSet(AwakeController& c, const std::string& request, const std::string& name) {
    const ConfigKeys::Key* key = ConfigKeys::find(name);
    if (!key) return error(T("알 수 없는 설정: ", "unknown setting: ") + name);
    // The value is the rest of the line after the key, as typed ("" stands for empty).
    std::string value = request.substr(request.find(name, 10) + name.size());
    if (!value.empty() && value.front() == ' ') value.erase(0, 1);
    if (value == "\"\"") value.clear();
    auto parsed = ConfigKeys::parse(*key, value);
    if (auto* why = std::get_if<std::string>(&parsed)) return error(*why);
    const json v = std::get<json>(parsed);

    const auto before = c.lastMessage();
    if (const auto setter = liveSetters().find(name); setter != liveSetters().end()) setter->second(c, v);
    else if (const auto failed = ConfigKeys::write(*key, *services().settings, v)) return error(*failed);
    const json now = ConfigKeys::read(*key, *services().settings);
    if (now != v) return error(c.lastMessage() != before && c.lastMessage() ? *c.lastMessage()
                                                                            : T("설정을 바꾸지 못했어요.", "The setting did not change."));
    return ok(json{{name, now}}.dump());
}

Reply helper(AwakeController& c, const std::string& verb) {
    const bool install = verb == "install";
    if (install) c.reinstallHelper();
    else c.uninstallHelper();
    const std::string message = c.lastMessage().value_or("");
    if (c.helperInstalled() != install) return error(message);
    return ok(message);
}

}  // namespace

std::optional<Reply> answerSettings(AwakeController& c, const std::string& request) {
    if (request == versionRequest) return ok(std::to_string(version));
    const auto w = words(request);
    if (w.size() < 2) return std::nullopt;
    if (w[0] == "config" && w[1] == "get" && w.size() == 2) return ok(ConfigKeys::readAll(*services().settings).dump());
    if (w[0] == "config" && w[1] == "set" && w.size() >= 3) return configSet(c, request, w[2]);
    if (w.size() != 2) return std::nullopt;
    if (w[0] == "phone") {
        auto& phone = c.phone();
        if (w[1] == "on" || w[1] == "off") {
            c.setPhone(w[1] == "on");
            return ok();
        }
        if (w[1] == "test") {
            if (!phone.enabled()) return error(T("폰 알림이 꺼져 있어요 (duskwell phone on).", "Phone alerts are off (duskwell phone on)."));
            phone.setLastResult(std::nullopt);
            phone.send(std::string(AppConfig::name), T("연결되었습니다 🎉", "You're connected 🎉"), {"tada"});
            return ok();
        }
        if (w[1] == "status") {
            const auto& result = phone.lastResult();
            // The notifier words a success as exactly this text.
            const bool delivered = result && *result == T("전송됨", "Sent");
            return ok(json{{"enabled", phone.enabled()},
                           {"topic", phone.topic()},
                           {"lastResult", result ? json(*result) : json(nullptr)},
                           {"delivered", delivered}}
                          .dump());
        }
    }
    if (w[0] == "helper" && (w[1] == "install" || w[1] == "remove")) return helper(c, w[1]);
    return std::nullopt;
}

}  // namespace duskwell::ControlProtocol
