// Commands from the phone's control topic, and the phone switch.
#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/clock.h"
#include "core/localization.h"
#include "core/services.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

// The stop's own alert and the reply must leave the machine before it sleeps.
constexpr double sleepDelaySeconds = 3.0;
constexpr int replyPriority = 3;

}  // namespace

void AwakeController::handlePhone(PhoneNotifier::Command command) {
    const std::string title(AppConfig::name);
    auto reply = [&](const std::string& message, const char* tag) {
        phone_->send(title, message, {tag}, replyPriority, false, false);
    };

    switch (command.value()) {
        case PhoneNotifier::Command::extend60: {
            if (!isActive_) {
                reply(T("지금은 실행 중이 아니에요.", "Not running right now."), "information_source");
                return;
            }
            // Directly, not through extend(): an hour on the end and a fresh quiet countdown.
            const Date t = services().clock->now();
            publish(now_, t);
            publish(lastBusy_, t);
            idleWarned_ = false;
            if (endDate_) publish(endDate_, std::optional<Date>(cappedEnd(addSeconds(*endDate_, 3600.0))));
            reply(T("1시간 연장했어요.", "Extended by 1 hour.") + " " + statusLine(), "white_check_mark");
            return;
        }
        case PhoneNotifier::Command::stop:
        case PhoneNotifier::Command::sleep:
            // From the phone, ending the period always means sleeping now.
            if (isActive_) stop(T("휴대폰에서 잠자기를 요청했어요.", "Sleep requested from your phone."));
            else reply(TM("{machine:을} 잠자기합니다.", "Putting your {machine} to sleep."), "zzz");
            sleepSoon(sleepDelaySeconds);
            return;
        case PhoneNotifier::Command::start:
            if (isActive_) {
                reply(T("이미 실행 중이에요. ", "Already running. ") + statusLine(), "information_source");
                return;
            }
            // Installing the helper needs the user at the Mac (a password prompt).
            if (!PowerHelper::isInstalled()) {
                reply(TM("{machine}에서 처음 한 번 권한 설치가 필요해요.", "Install the power permission on your {machine} first."),
                      "warning");
                return;
            }
            setMode(KeepMode::auto_);
            start(KeepMode::auto_, std::nullopt);
            return;
        case PhoneNotifier::Command::status:
            phone_->send(T("Duskwell 상태", "Duskwell status"), statusLine(), {"bar_chart"}, replyPriority, isActive_,
                         false);
            return;
    }
}

// Only the switch: the settings screen's Test button sends the first alert once the
// phone has subscribed, so switching on sends nothing nobody is listening to yet.
void AwakeController::setPhone(bool on) { phone_->setEnabled(on); }

bool AwakeController::setPhoneServer(const std::string& url) { return phone_->setServer(url); }

bool AwakeController::setPhoneToken(const std::optional<std::string>& token) { return phone_->setToken(token); }

}  // namespace duskwell
