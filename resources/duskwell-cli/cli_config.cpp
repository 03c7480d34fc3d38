// duskwell config get|set, duskwell helper install|remove and `duskwell phone on|off|test`:
// the settings page's controls from a terminal. With the app (or duskwelld) running the change
// goes through its control socket, so that it takes effect at once; without it, settings are
// written to the settings file the app reads when it starts.
#include <unistd.h>

#include <iostream>

#include "cli_command.h"
#include "cli_link.h"
#include "cli_text.h"
#include "commands/config_keys.h"
#include "commands/control_protocol.h"
#include "core/services.h"
#include "core/settings_store.h"
#include "power/power_helper.h"

namespace duskwell::cli {

using nlohmann::json;
using ControlProtocol::ReplyKind;

namespace {

// The words without --json.
std::vector<std::string> plain(const std::vector<std::string>& args) {
    std::vector<std::string> out;
    for (const auto& a : args)
        if (a != "--json") out.push_back(a);
    return out;
}

// Where a settings change goes: the running app, or (when none runs) this process.
enum class Route { app, here };

// The running app's answer to a settings request; `failure` holds the exit code otherwise.
struct Exchange {
    std::optional<ControlProtocol::Reply> reply;
    int failure = done;
};

Exchange exchange(const std::string& request, double timeout = 10) {
    const ControlResponse r = ask(request, timeout);
    if (r.outcome == ControlResponse::Outcome::notRunning) return {std::nullopt, fail(notRunning, say(Msg::notRunning))};
    if (r.outcome == ControlResponse::Outcome::failed) return {std::nullopt, fail(refused, say(Msg::cantReach, {r.text}))};
    if (r.reply.kind == ReplyKind::notHandled) return {std::nullopt, fail(refused, say(Msg::outOfDate))};
    if (r.reply.kind == ReplyKind::error) return {std::nullopt, fail(refused, r.reply.text)};
    return {r.reply, done};
}

// The app when it runs and is current; an out-of-date or broken one is an error, never
// bypassed (it would overwrite what we write).
std::optional<Route> route(int& failure) {
    std::string reason;
    switch (reach(&reason)) {
        case Reach::current: return Route::app;
        case Reach::notRunning: return Route::here;
        case Reach::outOfDate: failure = fail(refused, say(Msg::outOfDate)); return std::nullopt;
        case Reach::broken: failure = fail(refused, say(Msg::cantReach, {reason})); return std::nullopt;
    }
    return std::nullopt;
}

int configGet(const std::vector<std::string>& words) {
    if (words.size() > 2) return fail(usage, say(Msg::configUsage));
    const ConfigKeys::Key* key = nullptr;
    if (words.size() == 2 && !(key = ConfigKeys::find(words[1]))) return fail(usage, say(Msg::unknownKey, {words[1]}));
    int failure = done;
    const auto where = route(failure);
    if (!where) return failure;
    json values;
    if (*where == Route::app) {
        const Exchange e = exchange("config get");
        if (!e.reply) return e.failure;
        values = json::parse(e.reply->text, nullptr, false);
        if (!values.is_object()) return fail(refused, say(Msg::cantReach, {e.reply->text}));
    } else {
        values = ConfigKeys::readAll(*services().settings);
    }
    const bool running = *where == Route::app;
    if (key) {
        return succeed({{"key", key->name}, {"value", values[key->name]}, {"running", running}},
                       ConfigKeys::display(values[key->name]));
    }
    std::string text;
    for (const auto& k : ConfigKeys::all()) text += k.name + " = " + ConfigKeys::display(values[k.name]) + "\n";
    return succeed({{"settings", values}, {"running", running}}, text);
}

int configSet(const std::vector<std::string>& words) {
    if (words.size() != 3) return fail(usage, say(Msg::configUsage));
    const ConfigKeys::Key* key = ConfigKeys::find(words[1]);
    if (!key) return fail(usage, say(Msg::unknownKey, {words[1]}));
    const std::string text = words[2] == "\"\"" ? std::string() : words[2];
    auto parsed = ConfigKeys::parse(*key, text);
    if (auto* why = std::get_if<std::string>(&parsed)) return fail(usage, *why);
    const json value = std::get<json>(parsed);

    int failure = done;
    const auto where = route(failure);
    if (!where) return failure;
    json now = value;
    if (*where == Route::app) {
        const Exchange e = exchange("config set " + key->name + " " + (text.empty() ? "\"\"" : text), 300);
        if (!e.reply) return e.failure;
        const json answer = json::parse(e.reply->text, nullptr, false);
        if (answer.is_object() && answer.contains(key->name)) now = answer[key->name];
    } else if (key->needsApp) {
        return fail(notRunning, say(Msg::keyNeedsApp, {key->name}));
    } else if (const auto error = ConfigKeys::write(*key, *services().settings, value)) {
        return fail(refused, *error);
    }
    const bool running = *where == Route::app;
    const std::string shown = ConfigKeys::display(now);
    return succeed({{"key", key->name}, {"value", now}, {"running", running}},
                   say(running ? Msg::changedLive : Msg::savedOffline, {key->name, shown.empty() ? "\"\"" : shown}));
}

int runConfig(const std::vector<std::string>& args) {
    const auto words = plain(args);
    if (words.empty()) return fail(usage, say(Msg::configUsage));
    if (words[0] == "get") return configGet(words);
    if (words[0] == "set") return configSet(words);
    return fail(usage, say(Msg::configUsage));
}

int runHelper(const std::vector<std::string>& args) {
    const auto words = plain(args);
    if (words.size() != 1 || (words[0] != "install" && words[0] != "remove")) return fail(usage, say(Msg::helperUsage));
    const bool install = words[0] == "install";
    int failure = done;
    const auto where = route(failure);
    if (!where) return failure;
    std::string message;
    if (*where == Route::app) {
        // The app asks for the administrator's password itself, and may wait for it.
        const Exchange e = exchange("helper " + words[0], 300);
        if (!e.reply) return e.failure;
        message = e.reply->text;
    } else {
        const auto error = install ? PowerHelper::install() : PowerHelper::uninstall();
        if (error) return fail(refused, error->localizedDescription());
    }
    // The app answers ok only when the helper ended up as asked; here we look ourselves.
    if (*where == Route::here && PowerHelper::isInstalled() != install) return fail(refused, message);
    return succeed({{"helper", install ? "installed" : "removed"}, {"running", *where == Route::app}},
                   message.empty() ? say(install ? Msg::helperInstalled : Msg::helperRemoved) : message);
}

}  // namespace

// `duskwell phone on|off|test`; the link and QR code stay in cli_phone.cpp.
int runPhoneSwitch(const std::vector<std::string>& args) {
    const auto words = plain(args);
    if (words.size() != 1) return fail(usage, say(Msg::phoneUsage));
    int failure = done;
    const auto where = route(failure);
    if (!where) return failure;
    if (words[0] == "on" || words[0] == "off") {
        const bool on = words[0] == "on";
        if (*where == Route::app) {
            if (const Exchange e = exchange("phone " + words[0]); !e.reply) return e.failure;
        } else {
            services().settings->setBool("phone.enabled", on);
        }
        return succeed({{"enabled", on}, {"running", *where == Route::app}}, say(on ? Msg::phoneOn : Msg::phoneOff));
    }
    // test
    if (*where != Route::app) return fail(notRunning, say(Msg::phoneTestNeedsApp));
    if (const Exchange e = exchange("phone test"); !e.reply) return e.failure;
    // The alert is sent by the app; its outcome arrives within the notifier's own timeout.
    for (int i = 0; i < 150; ++i) {
        const Exchange e = exchange("phone status");
        if (!e.reply) return e.failure;
        const json state = json::parse(e.reply->text, nullptr, false);
        if (state.is_object() && state["lastResult"].is_string()) {
            const std::string result = state["lastResult"];
            if (!state.value("delivered", false)) return fail(refused, say(Msg::phoneTestResult, {result}));
            return succeed({{"result", result}, {"topic", state.value("topic", "")}},
                           say(Msg::phoneTestResult, {result}));
        }
        ::usleep(100'000);
    }
    return fail(refused, say(Msg::phoneTestPending));
}

namespace {

// "auto|timer|until", "0|5|10", "0-10080", "on|off", "URL|\"\"": what a key takes.
std::string values(const ConfigKeys::Key& k) {
    std::string out;
    switch (k.kind) {
        case ConfigKeys::Kind::onOff: return "on|off";
        case ConfigKeys::Kind::url: return "URL|\"\"";
        case ConfigKeys::Kind::word:
            for (const auto& w : k.words) out += (out.empty() ? "" : "|") + w;
            return out;
        case ConfigKeys::Kind::number:
            if (k.choices.empty()) return std::to_string(k.min) + "-" + std::to_string(k.max);
            for (auto c : k.choices) out += (out.empty() ? "" : "|") + std::to_string(c);
            return out;
    }
    return out;
}

std::vector<Option> keyHelp() {
    std::vector<Option> out;
    for (const auto& k : ConfigKeys::all()) out.push_back({k.name + " " + values(k), {k.en.c_str(), k.ko.c_str()}});
    return out;
}

const bool keysListed = (helpKeys()["config"] = keyHelp(), true);

const Registration registrations[] = {
    Registration{{"config", "config get [KEY] [--json] | config set KEY VALUE [--json]",
                  {"Read or change a setting; the running Duskwell applies a change at once.",
                   "설정을 읽거나 바꿔요. 실행 중인 Duskwell은 바로 적용해요."},
                  {{"--json", {"print one JSON object: {\"ok\", \"running\", \"settings\"} or {\"ok\", \"running\", "
                               "\"key\", \"value\"}",
                               "JSON 객체 하나를 출력: {\"ok\", \"running\", \"settings\"} 또는 {\"ok\", \"running\", "
                               "\"key\", \"value\"}"}}},
                  runConfig}},
    Registration{{"helper", "helper install|remove [--json]",
                  {"Install or remove the power helper (asks for the administrator's password once).",
                   "전원 도우미를 설치하거나 제거해요 (관리자 암호를 한 번 물어요)."},
                  {{"--json", {"print one JSON object: {\"ok\", \"helper\", \"running\"}",
                               "JSON 객체 하나를 출력: {\"ok\", \"helper\", \"running\"}"}}},
                  runHelper}},
};

}  // namespace
}  // namespace duskwell::cli
