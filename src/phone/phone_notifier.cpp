#include "phone/phone_notifier.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>

#include "core/app_config.h"
#include "core/clock.h"
#include "core/dispatcher.h"
#include "core/localization.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "phone/http_client.h"
#include "phone/ntfy_access.h"

namespace duskwell {

using nlohmann::json;

namespace {

constexpr std::array<std::string_view, 5> kCommandWords{"extend60", "stop", "sleep", "start", "status"};

// 8 bytes from the operating system's cryptographic source. The "/dev/urandom" token names
// the kernel's generator in libstdc++ and libc++ alike (libc++ on macOS answers it from
// arc4random), never a user-space engine. A source that cannot open throws: better to stop
// at first launch than to store a guessable secret.
std::uint64_t secureRandom64() {
    std::random_device source("/dev/urandom");
    const std::uint64_t high = source();
    return (high << 32) ^ source();
}

std::string stored(const SettingsStore& settings, const char* key) {
    return settings.string(key).value_or("");
}

// Replaces every byte that does not begin or continue a well-formed UTF-8 sequence with
// U+FFFD, so that one bad byte in a title cannot hide the whole line from the JSON parser.
std::string replacingInvalidUTF8(std::string_view in) {
    std::string out;
    out.reserve(in.size());
    const auto* s = reinterpret_cast<const unsigned char*>(in.data());
    const std::size_t n = in.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char c = s[i];
        std::size_t len = 0;
        unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
        if (c < 0x80) len = 1;
        else if (c >= 0xC2 && c <= 0xDF) len = 2;
        else if (c >= 0xE0 && c <= 0xEF) { len = 3; if (c == 0xE0) lo = 0xA0; if (c == 0xED) hi = 0x9F; }
        else if (c >= 0xF0 && c <= 0xF4) { len = 4; if (c == 0xF0) lo = 0x90; if (c == 0xF4) hi = 0x8F; }
        bool ok = len > 0 && i + len <= n;
        for (std::size_t k = 1; ok && k < len; ++k) {
            const unsigned char b = s[i + k];
            ok = k == 1 ? (b >= lo && b <= hi) : (b >= 0x80 && b <= 0xBF);
        }
        if (ok) {
            out.append(in.substr(i, len));
            i += len;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

}  // namespace

// ---- Command ----

std::optional<PhoneNotifier::Command> PhoneNotifier::Command::fromRawValue(std::string_view raw) {
    for (std::size_t i = 0; i < kCommandWords.size(); ++i) {
        if (kCommandWords[i] == raw) return Command(static_cast<Value>(i));
    }
    return std::nullopt;
}

std::string_view PhoneNotifier::Command::rawValue() const {
    return kCommandWords[static_cast<std::size_t>(value_)];
}

// ---- identity ----

PhoneNotifier::PhoneNotifier() {
    const auto& s = services();
    startedAt_ = static_cast<std::int64_t>(std::trunc(unixSeconds(s.clock->now())));
    enabled_ = s.settings->boolean(SettingsKey::phoneEnabled).value_or(false);
    if (!s.settings->string(SettingsKey::phoneTopic)) resetTopics();
}

// Completions still in flight hold `life_` weakly and find it gone.
PhoneNotifier::~PhoneNotifier() = default;

std::string PhoneNotifier::random(int length) {
    assert(length >= 1);
    std::string out;
    out.reserve(static_cast<std::size_t>(std::max(length, 0)));
    for (int i = 0; i < length; ++i) out += alphabet[secureRandom64() % alphabet.size()];
    return out;
}

void PhoneNotifier::resetTopics() {
    changes_.announce();
    auto& settings = *services().settings;
    settings.setString(SettingsKey::phoneTopic, "duskwell-" + random(20));
    settings.setString(SettingsKey::phoneControl, "duskwell-c-" + random(24));
    settings.setString(SettingsKey::phoneSecret, random(16));
}

bool PhoneNotifier::setServer(std::string_view url) {
    auto& settings = *services().settings;
    std::optional<std::string> normalized;
    if (!url.empty()) {
        normalized = NtfyAccess::normalizedServer(url);
        if (!normalized) return false;
    }
    changes_.announce();
    if (normalized) settings.setString(SettingsKey::phoneServer, *normalized);
    else settings.remove(SettingsKey::phoneServer);
    startedAt_ = static_cast<std::int64_t>(std::trunc(unixSeconds(services().clock->now())));
    lastID_.reset();
    seenIDs_.clear();
    return true;
}

bool PhoneNotifier::setToken(const std::optional<std::string>& token) {
    if (token && !NtfyAccess::validToken(*token)) return false;
    changes_.announce();
    if (token) services().settings->setString(SettingsKey::phoneToken, *token);
    else services().settings->remove(SettingsKey::phoneToken);
    return true;
}

bool PhoneNotifier::hasToken() const { return NtfyAccess::token(*services().settings).has_value(); }

void PhoneNotifier::setEnabled(bool on) {
    changes_.announce();
    enabled_ = on;
    services().settings->setBool(SettingsKey::phoneEnabled, on);
}

std::string PhoneNotifier::topic() const { return stored(*services().settings, SettingsKey::phoneTopic); }

std::string PhoneNotifier::controlTopic() const {
    return stored(*services().settings, SettingsKey::phoneControl);
}

std::string PhoneNotifier::subscribeURL(const SettingsStore& settings) {
    std::string link = AppConfig::website() + "/phone/#" + stored(settings, SettingsKey::phoneTopic) + "." +
                       stored(settings, SettingsKey::phoneControl) + "." + stored(settings, SettingsKey::phoneSecret);
    // A server of one's own follows an "@", so the phone subscribes where the alerts go.
    // Never the token: the link is shown, copied and drawn as a QR code.
    if (!NtfyAccess::usesPublicServer(settings)) link += "@" + NtfyAccess::server(settings);
    return link;
}

std::string PhoneNotifier::subscribeURL() const { return subscribeURL(*services().settings); }

std::string PhoneNotifier::server() const { return NtfyAccess::server(*services().settings); }

void PhoneNotifier::authorize(HttpRequest& request) const {
    if (const auto token = NtfyAccess::token(*services().settings))
        request.headers["Authorization"] = NtfyAccess::authorization(*token);
}

void PhoneNotifier::setLastResult(std::optional<std::string> result) {
    changes_.announce();
    lastResult_ = std::move(result);
}

// ---- alerts ----

std::string PhoneNotifier::alertBody(const std::string& title, const std::string& message,
                                     const std::vector<std::string>& tags, int priority,
                                     bool withActions) const {
    const auto& settings = *services().settings;
    json body = {
        {"topic", stored(settings, SettingsKey::phoneTopic)},
        {"title", title},
        {"message", message},
        {"tags", tags},
        {"priority", priority},
    };
    if (withActions) {
        const std::string url = server() + "/" + stored(settings, SettingsKey::phoneControl);
        const std::string secret = stored(settings, SettingsKey::phoneSecret);
        auto action = [&](const std::string& label, const std::string& word) {
            return json{{"action", "http"}, {"label", label}, {"url", url},
                        {"method", "POST"}, {"body", secret + " " + word}, {"clear", true}};
        };
        body["actions"] = json::array({action(T("1시간 연장", "Extend 1h"), "extend60"),
                                       action(T("지금 잠자기", "Sleep now"), "sleep")});
    }
    return body.dump();  // throws on text that is not UTF-8
}

void PhoneNotifier::send(const std::string& title, const std::string& message,
                         const std::vector<std::string>& tags, int priority, bool withActions,
                         bool force) {
    if (!enabled_ && !force) return;

    HttpRequest request;
    request.method = "POST";
    request.url = server();
    try {
        request.body = alertBody(title, message, tags, priority, withActions);
    } catch (const json::exception&) {
        request.body.reset();  // the server rejects it and the result says "Failed"
    }
    request.timeoutSeconds = timeout_;
    authorize(request);

    Dispatcher* dispatcher = services().dispatcher;
    std::weak_ptr<int> alive = life_;
    // Runs on the HTTP client's thread: only the outcome crosses to the main queue.
    services().http->send(std::move(request), [this, alive, dispatcher](HttpResponse response) {
        const bool success = response.status == 200;
        std::optional<std::string> error = success ? std::nullopt : response.error;
        dispatcher->post([this, alive, success, error = std::move(error)] {
            if (!alive.lock()) return;
            if (success) {
                setLastResult(T("전송됨", "Sent"));
            } else {
                setLastResult(T("전송 실패", "Failed") + (error ? ": " + *error : std::string()));
            }
        });
    });
}

// ---- remote commands ----

std::optional<PhoneNotifier::Command> PhoneNotifier::authenticate(std::string_view text,
                                                                  const std::string& secret) {
    std::vector<std::string_view> pieces;
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t end = std::min(text.find(' ', i), text.size());
        if (end > i) pieces.push_back(text.substr(i, end - i));
        if (pieces.size() > 2) return std::nullopt;
        i = end + 1;
    }
    if (pieces.size() != 2 || pieces[0] != secret) return std::nullopt;
    return Command::fromRawValue(pieces[1]);
}

std::vector<PhoneNotifier::PolledMessage> PhoneNotifier::parsePollAnswer(std::string_view body,
                                                                         const std::string& secret) {
    const std::string text = replacingInvalidUTF8(body);
    std::vector<PolledMessage> out;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string_view line(text.data() + start, end - start);
        start = end + 1;

        const json object = json::parse(line, nullptr, /*allow_exceptions=*/false);
        if (!object.is_object()) continue;
        const auto event = object.find("event");
        const auto id = object.find("id");
        const auto message = object.find("message");
        if (event == object.end() || !event->is_string() || *event != "message") continue;
        if (id == object.end() || !id->is_string()) continue;
        if (message == object.end() || !message->is_string()) continue;
        out.emplace_back(id->get<std::string>(), authenticate(message->get_ref<const std::string&>(), secret));
    }
    return out;
}

void PhoneNotifier::poll(std::function<void(Command)> handler) {
    if (!enabled_ || polling_) return;
    polling_ = true;

    const std::string cursor = lastID_ ? *lastID_ : std::to_string(startedAt_);
    HttpRequest request;
    request.method = "GET";
    request.url = server() + "/" + controlTopic() + "/json?poll=1&since=" + cursor;
    request.timeoutSeconds = timeout_;
    authorize(request);
    const std::string secret = stored(*services().settings, SettingsKey::phoneSecret);

    Dispatcher* dispatcher = services().dispatcher;
    std::weak_ptr<int> alive = life_;
    // Parsed on the HTTP client's thread; the list alone is handed to the main queue.
    services().http->send(std::move(request), [this, alive, dispatcher, secret,
                                               handler = std::move(handler)](HttpResponse response) mutable {
        const bool success = response.status == 200;
        auto messages = success ? parsePollAnswer(response.body, secret) : std::vector<PolledMessage>{};
        dispatcher->post([this, alive, success, messages = std::move(messages),
                          handler = std::move(handler)] {
            if (!alive.lock()) return;
            finishPoll(success, messages, handler);
        });
    });
}

void PhoneNotifier::finishPoll(bool success, const std::vector<PolledMessage>& messages,
                               const std::function<void(Command)>& handler) {
    polling_ = false;
    if (!success) return;  // the cursor stays, so the next poll asks again
    for (const auto& [id, command] : messages) {
        if (std::find(seenIDs_.begin(), seenIDs_.end(), id) != seenIDs_.end()) continue;
        seenIDs_.push_back(id);
        if (command && handler) handler(*command);
    }
    if (seenIDs_.size() > maxSeenIDs) {
        seenIDs_.erase(seenIDs_.begin(), seenIDs_.end() - static_cast<std::ptrdiff_t>(maxSeenIDs));
    }
    if (!messages.empty()) lastID_ = messages.back().first;
}

}  // namespace duskwell
