#include "app/action.h"

#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/calendar.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"

namespace duskwell {

std::string_view actionName(Action::Kind kind) {
    using K = Action::Kind;
    switch (kind) {
        case K::toggle: return "toggle";
        case K::stop: return "stop";
        case K::extend: return "extend";
        case K::startAuto: return "startAuto";
        case K::startPreset: return "startPreset";
        case K::startTimer: return "startTimer";
        case K::setMode: return "setMode";
        case K::setUntilTime: return "setUntilTime";
        case K::applyUntil: return "applyUntil";
        case K::connect: return "connect";
        case K::setIntegration: return "setIntegration";
        case K::setPhone: return "setPhone";
        case K::phoneTest: return "phoneTest";
        case K::copyLink: return "copyLink";
        case K::editPhoneServer: return "editPhoneServer";
        case K::setPerformance: return "setPerformance";
        case K::setLaunchAtLogin: return "setLaunchAtLogin";
        case K::setLockOnLidClose: return "setLockOnLidClose";
        case K::setStopOnHeat: return "setStopOnHeat";
        case K::setBatteryFloor: return "setBatteryFloor";
        case K::installCLI: return "installCLI";
        case K::reinstallHelper: return "reinstallHelper";
        case K::uninstallHelper: return "uninstallHelper";
        case K::openNotificationSettings: return "openNotificationSettings";
        case K::turnOffDisplay: return "turnOffDisplay";
        case K::openSettings: return "openSettings";
        case K::back: return "back";
        case K::popoverOpened: return "popoverOpened";
        case K::popoverClosed: return "popoverClosed";
        case K::openPopover: return "openPopover";
        case K::openUpdate: return "openUpdate";
        case K::openWebsite: return "openWebsite";
        case K::quit: return "quit";
        case K::shutdown: return "shutdown";
    }
    return "unknown";
}

ActionOutcome perform(AwakeController& c, const Action& action) {
    using K = Action::Kind;
    ActionOutcome out;
    switch (action.kind) {
        case K::toggle:
            c.toggle();
            break;
        case K::stop:
            // A manual stop: no reason, so the machine is never forced to sleep.
            c.stop(std::nullopt);
            break;
        case K::shutdown:
            c.stop(std::nullopt);
            // The last word in the status file is "inactive", freshly dated, whatever the
            // file said before; readers must not believe a quit app still keeps awake.
            c.writeStatusFile(AwakeController::StatusWrite::always);
            break;
        case K::extend:
            c.extend(action.number);
            break;
        case K::startAuto:
            c.setMode(KeepMode::auto_);
            c.start(KeepMode::auto_, std::nullopt);
            break;
        case K::startPreset:
            // The choice is remembered first, so the next toggle or hot key repeats it.
            c.setMode(KeepMode::timer);
            c.setSelectedMinutes(action.number);
            c.start(KeepMode::timer, action.number);
            break;
        case K::startTimer:
            c.start(KeepMode::timer, std::nullopt);
            break;
        case K::setMode:
            if (action.mode) c.setMode(*action.mode);
            break;
        case K::setUntilTime: {
            // Only hour and minute matter: `start` aims at their next occurrence anyway.
            const int hour = action.number / 60;
            const int minute = action.number % 60;
            if (hour < 0 || hour > 23 || minute < 0) break;
            if (auto next = Calendar::nextMatching(c.now(), hour, minute)) c.setUntilDate(*next);
            break;
        }
        case K::applyUntil:
            c.start(KeepMode::until, std::nullopt);
            break;
        case K::connect:
            if (action.agent) c.setIntegration(*action.agent, true);
            break;
        case K::setIntegration:
            if (action.agent) c.setIntegration(*action.agent, action.on);
            break;
        case K::setPhone:
            c.setPhone(action.on);
            break;
        case K::phoneTest:
            c.phone().send(std::string(AppConfig::name), T("연결되었습니다 🎉", "You're connected 🎉"),
                           {"tada"});
            break;
        case K::copyLink:
            out.clipboard = c.phone().subscribeURL();
            break;
        case K::editPhoneServer:
            out.askPhoneServer = true;
            break;
        case K::setPerformance:
            c.setPerformance(action.on);
            break;
        case K::setLaunchAtLogin:
            c.setLaunchAtLogin(action.on);
            break;
        case K::setLockOnLidClose:
            c.setLockOnLidClose(action.on);
            break;
        case K::setStopOnHeat:
            c.setStopOnHeat(action.on);
            break;
        case K::setBatteryFloor:
            if (action.number >= 0 && action.number < 100) c.setBatteryFloor(action.number);
            break;
        case K::installCLI:
            c.installCLI();
            break;
        case K::reinstallHelper:
            c.reinstallHelper();
            break;
        case K::uninstallHelper:
            c.uninstallHelper();
            break;
        case K::openNotificationSettings:
            c.openSettings("notifications");
            break;
        case K::turnOffDisplay:
            AwakeController::turnOffDisplay();
            break;
        case K::openSettings:
            c.setScreen(Screen::settings);
            // The settings page shows helper, login-item and notification states: re-read them.
            c.refreshPermissions();
            break;
        case K::back:
            c.setScreen(Screen::main);
            break;
        case K::popoverOpened:
            c.setPopoverVisible(true);
            break;
        case K::popoverClosed:
            c.setPopoverVisible(false);
            c.setScreen(Screen::main);
            break;
        case K::openPopover:
            out.showPopover = true;
            break;
        case K::openUpdate:
            if (const auto& u = c.update()) services().platform->openURL(u->url);
            break;
        case K::openWebsite:
            services().platform->openURL(AppConfig::website());
            break;
        case K::quit:
            // The shell terminates; its termination handler performs `shutdown`, so the stop
            // happens exactly once whichever way the process ends.
            out.terminate = true;
            break;
    }
    return out;
}

}  // namespace duskwell
