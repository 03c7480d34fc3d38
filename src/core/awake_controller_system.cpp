// Update check, notification permission, login item and the system settings panes.
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/dispatcher.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/text.h"
#include "phone/http_client.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

// The feed has no time-out of its own; this only stops a hung request from living forever.
constexpr double feedTimeoutSeconds = 60;

std::vector<long long> versionNumbers(const std::string& version) {
    std::vector<long long> numbers;
    for (const std::string& piece : Text::split(version, '.', Text::Empty::drop))
        if (const auto n = Text::parseInteger(piece)) numbers.push_back(*n);
    return numbers;
}

// An absolute http(s) address with a host and no blanks: something a browser can open.
bool isOpenableURL(const std::string& url) {
    std::string rest;
    if (url.rfind("https://", 0) == 0) rest = url.substr(8);
    else if (url.rfind("http://", 0) == 0) rest = url.substr(7);
    else return false;
    if (rest.empty() || rest.front() == '/' || rest.front() == '?' || rest.front() == '#') return false;
    return std::none_of(url.begin(), url.end(), [](unsigned char c) { return std::isspace(c) || c < 0x20; });
}

// The newer version a feed announces, or nothing for anything malformed or not newer.
std::optional<UpdateInfo> updateFromFeed(const HttpResponse& response) {
    if (!response.status || *response.status < 200 || *response.status > 299) return std::nullopt;
    const auto feed = nlohmann::json::parse(response.body, nullptr, false);
    if (feed.is_discarded() || !feed.is_object()) return std::nullopt;
    const auto version = feed.find("version");
    const auto url = feed.find("url");
    if (version == feed.end() || !version->is_string()) return std::nullopt;
    if (url == feed.end() || !url->is_string()) return std::nullopt;
    UpdateInfo info{version->get<std::string>(), url->get<std::string>()};
    if (!isOpenableURL(info.url)) return std::nullopt;
    if (!AwakeController::isNewer(info.version, AppConfig::version())) return std::nullopt;
    return info;
}

}  // namespace

void AwakeController::checkForUpdate() {
    const std::string url = AppConfig::versionFeedURL();
    if (!isOpenableURL(url)) return;
    HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.timeoutSeconds = feedTimeoutSeconds;
    std::weak_ptr<int> weak = life_;
    Dispatcher* mainQueue = services().dispatcher;
    // The completion runs on any thread: parse there, touch the controller only on main.
    services().http->send(std::move(request), [this, weak, mainQueue](HttpResponse response) {
        auto info = updateFromFeed(response);
        if (!info) return;
        mainQueue->post([this, weak, info = std::move(*info)] {
            if (weak.lock()) publish(update_, std::optional<UpdateInfo>(info));
        });
    });
}

bool AwakeController::isNewer(const std::string& a, const std::string& than) {
    const auto x = versionNumbers(a);
    const auto y = versionNumbers(than);
    const size_t n = std::max(x.size(), y.size());
    for (size_t i = 0; i < n; ++i) {
        const long long p = i < x.size() ? x[i] : 0;
        const long long q = i < y.size() ? y[i] : 0;
        if (p != q) return p > q;
    }
    return false;
}

// A thin question to the platform: macOS answers whether we run from the app bundle (the
// notification centre must not be touched otherwise); Linux answers whether it has a
// notification service to post through.
bool AwakeController::canNotify() { return services().platform->runningFromBundle(); }

void AwakeController::refreshPermissions() {
    if (frozen_) return;
    publish(helperInstalled_, PowerHelper::isInstalled());
    publish(launchAtLogin_, services().platform->loginItemEnabled());
    refreshIntegrations();
    if (!canNotify()) return;
    std::weak_ptr<int> weak = life_;
    Dispatcher* mainQueue = services().dispatcher;
    services().platform->notificationPermission([this, weak, mainQueue](NotificationPermission permission) {
        const bool allowed =
            permission == NotificationPermission::authorized || permission == NotificationPermission::provisional;
        mainQueue->post([this, weak, allowed] {
            if (weak.lock()) publish(notificationsAllowed_, std::optional<bool>(allowed));
        });
    });
}

void AwakeController::setLaunchAtLogin(bool on) {
    Platform& platform = *services().platform;
    if (const auto error = platform.setLoginItem(on))
        setLastMessage(T("로그인 항목 설정 실패: ", "Login item failed: ") + *error);
    // Whatever happened, the switch shows the real state.
    publish(launchAtLogin_, platform.loginItemEnabled());
}

void AwakeController::openSettings(const std::string& pane) {
#ifdef __APPLE__
    std::string url;
    if (pane == "notifications")
        url = "x-apple.systempreferences:com.apple.Notifications-Settings.extension?id=" +
              services().platform->bundleIdentifier();
    else if (pane == "login")
        url = "x-apple.systempreferences:com.apple.LoginItems-Settings.extension";
    if (!url.empty()) services().platform->openURL(url);
#else
    // Linux desktops share no address for these panes: notifications need no permission
    // there, and the login item is switched by `setLaunchAtLogin` itself.
    (void)pane;
#endif
}

}  // namespace duskwell
