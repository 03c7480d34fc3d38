#include "app/view_state.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <vector>

#include "core/awake_controller.h"

namespace duskwell {

using nlohmann::json;

// The codec: every struct lists its fields once (`fields`), and one pair of templates writes
// and reads them. Absent keys keep the default, so a field added on one side later reads as
// its default on the other.
namespace {

template <class T> json enc(const T& v);
template <class T> void dec(const json& j, T& v);

json encAction(const Action& a) {
    json j{{"kind", actionName(a.kind)}};
    if (a.number) j["number"] = a.number;
    if (a.on) j["on"] = true;
    if (a.mode) j["mode"] = a.mode->name();
    if (a.agent) j["agent"] = a.agent->rawValue();
    return j;
}

std::optional<Action::Kind> kindNamed(std::string_view name) {
    for (int k = 0; k <= static_cast<int>(Action::Kind::shutdown); ++k) {
        if (actionName(static_cast<Action::Kind>(k)) == name) return static_cast<Action::Kind>(k);
    }
    return std::nullopt;
}

std::optional<KeepMode> modeNamed(std::string_view name) {
    for (KeepMode m : KeepMode::allCases())
        if (m.name() == name) return m;
    return std::nullopt;
}

void decAction(const json& j, Action& a) {
    a = Action{};
    if (!j.is_object()) return;
    if (auto k = kindNamed(j.value("kind", std::string()))) a.kind = *k;
    a.number = j.value("number", 0);
    a.on = j.value("on", false);
    a.mode = modeNamed(j.value("mode", std::string()));
    a.agent = AgentKind::fromRawValue(j.value("agent", std::string()));
}

// Field lists. `F` is called as f("key", member) for each member.
template <class F> void fields(Button& s, F&& f) {
    f("title", s.title), f("symbol", s.symbol), f("action", s.action), f("enabled", s.enabled), f("style", s.style);
}
template <class F> void fields(ToggleRow& s, F&& f) {
    f("symbol", s.symbol), f("title", s.title), f("subtitle", s.subtitle), f("on", s.on), f("action", s.action),
        f("enabled", s.enabled);
}
template <class F> void fields(Chip& s, F&& f) {
    f("title", s.title), f("symbol", s.symbol), f("selected", s.selected), f("action", s.action),
        f("enabled", s.enabled);
}
template <class F> void fields(Pill& s, F&& f) { f("text", s.text), f("tint", s.tint); }
template <class F> void fields(StatusItemModel& s, F&& f) {
    f("symbol", s.symbol), f("title", s.title), f("tooltip", s.tooltip),
        f("accessibilityDescription", s.accessibilityDescription);
}
template <class F> void fields(HeaderModel& s, F&& f) { f("name", s.name), f("tagline", s.tagline), f("gear", s.gear); }
template <class F> void fields(RingModel& s, F&& f) {
    f("progress", s.progress), f("text", s.text), f("symbol", s.symbol), f("caption", s.caption);
}
template <class F> void fields(HeroCardModel& s, F&& f) {
    f("headline", s.headline), f("detail", s.detail), f("ring", s.ring), f("mainButton", s.mainButton),
        f("extendRow", s.extendRow);
}
template <class F> void fields(AgentRowModel& s, F&& f) {
    f("symbol", s.symbol), f("tint", s.tint), f("title", s.title), f("count", s.count), f("subtitle", s.subtitle),
        f("status", s.status);
}
template <class F> void fields(ConnectHintModel& s, F&& f) { f("text", s.text), f("connect", s.connect); }
template <class F> void fields(AgentsCardModel& s, F&& f) {
    f("rows", s.rows), f("more", s.more), f("emptyTitle", s.emptyTitle), f("emptyDetail", s.emptyDetail),
        f("hint", s.hint), f("footSymbol", s.footSymbol), f("footText", s.footText), f("cap", s.cap);
}
template <class F> void fields(TimerCardModel& s, F&& f) { f("chips", s.chips); }
template <class F> void fields(UntilCardModel& s, F&& f) {
    f("title", s.title), f("hour", s.hour), f("minute", s.minute), f("time", s.time), f("caption", s.caption),
        f("apply", s.apply);
}
template <class F> void fields(StatPillModel& s, F&& f) {
    f("symbol", s.symbol), f("title", s.title), f("value", s.value), f("detail", s.detail), f("tint", s.tint);
}
template <class F> void fields(StatusStripModel& s, F&& f) { f("power", s.power), f("lid", s.lid), f("heat", s.heat); }
template <class F> void fields(FooterItemModel& s, F&& f) { f("symbol", s.symbol), f("text", s.text), f("button", s.button); }
template <class F> void fields(MainPageModel& s, F&& f) {
    f("header", s.header), f("hero", s.hero), f("modePicker", s.modePicker), f("card", s.card), f("agents", s.agents),
        f("timer", s.timer), f("until", s.until), f("status", s.status), f("footer", s.footer);
}
template <class F> void fields(IntegrationRowModel& s, F&& f) {
    f("symbol", s.symbol), f("tint", s.tint), f("title", s.title), f("state", s.state), f("toggle", s.toggle);
}
template <class F> void fields(IntegrationSectionModel& s, F&& f) { f("title", s.title), f("note", s.note), f("rows", s.rows); }
template <class F> void fields(PhoneSectionModel& s, F&& f) {
    f("toggle", s.toggle), f("steps", s.steps), f("qrText", s.qrText), f("qrSize", s.qrSize), f("test", s.test),
        f("copy", s.copy), f("lastResult", s.lastResult), f("features", s.features);
}
template <class F> void fields(PickerOption& s, F&& f) { f("title", s.title), f("value", s.value), f("action", s.action); }
template <class F> void fields(BehaviorSectionModel& s, F&& f) {
    f("title", s.title), f("toggles", s.toggles), f("batterySymbol", s.batterySymbol), f("batteryTitle", s.batteryTitle),
        f("batterySubtitle", s.batterySubtitle), f("batteryOptions", s.batteryOptions),
        f("batterySelected", s.batterySelected);
}
template <class F> void fields(InfoRowModel& s, F&& f) {
    f("symbol", s.symbol), f("title", s.title), f("subtitle", s.subtitle), f("value", s.value), f("button", s.button);
}
template <class F> void fields(ShortcutSectionModel& s, F&& f) {
    f("title", s.title), f("note", s.note), f("hotKey", s.hotKey), f("terminal", s.terminal);
}
template <class F> void fields(PermissionSectionModel& s, F&& f) {
    f("title", s.title), f("note", s.note), f("power", s.power), f("notifications", s.notifications);
}
template <class F> void fields(SettingsPageModel& s, F&& f) {
    f("title", s.title), f("back", s.back), f("integration", s.integration), f("phone", s.phone),
        f("behavior", s.behavior), f("shortcuts", s.shortcuts), f("permissions", s.permissions),
        f("message", s.message), f("messageSymbol", s.messageSymbol), f("website", s.website), f("quit", s.quit);
}

template <class T>
concept Listed = requires(T& s) { fields(s, [](const char*, auto&) {}); };
template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsVector : std::false_type {};
template <class T> struct IsVector<std::vector<T>> : std::true_type {};

template <class T> json enc(const T& v) {
    if constexpr (std::is_same_v<T, Action>) {
        return encAction(v);
    } else if constexpr (std::is_same_v<T, KeepMode>) {
        return v.name();
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(v);
    } else if constexpr (IsOptional<T>::value) {
        return v ? enc(*v) : json(nullptr);
    } else if constexpr (IsVector<T>::value) {
        json a = json::array();
        for (const auto& e : v) a.push_back(enc(e));
        return a;
    } else if constexpr (Listed<T>) {
        json j = json::object();
        fields(const_cast<T&>(v), [&](const char* key, auto& member) { j[key] = enc(member); });
        return j;
    } else {
        return json(v);
    }
}

template <class T> void dec(const json& j, T& v) {
    if constexpr (std::is_same_v<T, Action>) {
        decAction(j, v);
    } else if constexpr (std::is_same_v<T, KeepMode>) {
        if (j.is_string())
            if (auto m = modeNamed(j.get<std::string>())) v = *m;
    } else if constexpr (std::is_enum_v<T>) {
        if (j.is_number_integer()) v = static_cast<T>(j.get<int>());
    } else if constexpr (IsOptional<T>::value) {
        if (j.is_null()) {
            v.reset();
        } else {
            v.emplace();
            dec(j, *v);
        }
    } else if constexpr (IsVector<T>::value) {
        v.clear();
        if (!j.is_array()) return;
        for (const auto& e : j) dec(e, v.emplace_back());
    } else if constexpr (Listed<T>) {
        if (!j.is_object()) return;
        fields(v, [&](const char* key, auto& member) {
            if (const auto it = j.find(key); it != j.end()) dec(*it, member);
        });
    } else if constexpr (std::is_same_v<T, bool>) {
        if (j.is_boolean()) v = j.get<bool>();
    } else if constexpr (std::is_arithmetic_v<T>) {
        if (j.is_number()) v = j.get<T>();
    } else {
        if (j.is_string()) v = j.get<std::string>();
    }
}

bool isInteger(std::string_view s, int& out) {
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && end == s.data() + s.size();
}

}  // namespace

ViewState makeViewState(const AwakeController& c) {
    return ViewState{makeStatusItemModel(c), makeMainPage(c), makeSettingsPage(c)};
}

PopoverModel popoverFor(const ViewState& state, Screen screen) {
    PopoverModel m;
    m.screen = screen;
    if (screen == Screen::settings) m.settings = state.settings;
    else m.main = state.main;
    return m;
}

namespace ViewProtocol {

std::string encode(const ViewState& s) {
    const json j{{"protocol", version}, {"status", enc(s.status)}, {"main", enc(s.main)}, {"settings", enc(s.settings)}};
    // Texts from agents and settings reach a terminal: invalid UTF-8 becomes U+FFFD, not an
    // exception in the daemon.
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<ViewState> decode(std::string_view line) {
    const json j = json::parse(line, nullptr, false);
    if (j.is_discarded() || !j.is_object() || j.value("protocol", 0) != version) return std::nullopt;
    ViewState s;
    dec(j.value("status", json::object()), s.status);
    dec(j.value("main", json::object()), s.main);
    dec(j.value("settings", json::object()), s.settings);
    return s;
}

std::string actionRequest(const Action& a) {
    std::string line = std::string(actionPrefix) + std::string(actionName(a.kind));
    if (a.number) line += " " + std::to_string(a.number);
    if (a.mode) line += " " + std::string(a.mode->name());
    if (a.agent) line += " " + std::string(a.agent->rawValue());
    if (a.on) line += " on";
    return line;
}

std::optional<Action> parseActionRequest(std::string_view request) {
    if (request.substr(0, actionPrefix.size()) != actionPrefix) return std::nullopt;
    request.remove_prefix(actionPrefix.size());
    std::vector<std::string_view> words;
    while (!request.empty()) {
        const auto space = request.find(' ');
        if (space != 0) words.push_back(request.substr(0, space));
        if (space == std::string_view::npos) break;
        request.remove_prefix(space + 1);
    }
    if (words.empty()) return std::nullopt;
    const auto kind = kindNamed(words[0]);
    if (!kind) return std::nullopt;
    Action a = Action::make(*kind);
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string_view w = words[i];
        int n = 0;
        if (w == "on" || w == "off") a.on = w == "on";
        else if (isInteger(w, n)) a.number = n;
        else if (auto m = modeNamed(w)) a.mode = m;
        else if (auto k = AgentKind::fromRawValue(w)) a.agent = k;
        else return std::nullopt;
    }
    return a;
}

}  // namespace ViewProtocol
}  // namespace duskwell
