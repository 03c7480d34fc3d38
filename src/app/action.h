#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "agents/agent_kind.h"
#include "core/keep_mode.h"

namespace duskwell {

class AwakeController;

// Everything a control of the status item, the quick menu or the popover can ask for, as a
// plain value. The shells attach one to each control and hand it back to `perform`; they
// never call the controller themselves, so every decision stays in the core.
struct Action {
    enum class Kind {
        // session
        toggle,            // hero main button, hot key
        stop,              // quick menu "Stop"
        extend,            // minutes: quick menu extend items, hero extend row
        startAuto,         // quick menu "Until AI tasks finish"
        startPreset,       // minutes: quick menu preset item, timer chip (0 = "∞")
        startTimer,        // timer mode with the selected minutes
        setMode,           // mode picker segment
        setUntilTime,      // minutes after midnight: the until card's hour-and-minute picker
        applyUntil,        // until card "Apply"
        // agents
        connect,           // agent: agents card "Connect"
        setIntegration,    // agent, on: integration section switch
        // phone
        setPhone,          // on
        phoneTest,         // a test alert through the phone channel
        copyLink,          // the subscribe address, to the clipboard
        editPhoneServer,   // settings "Change" beside the ntfy server: the shell asks for it
        // behaviour
        setPerformance,    // on
        setLaunchAtLogin,  // on
        setLockOnLidClose, // on
        setStopOnHeat,     // on
        setBatteryFloor,   // number: percent, 0 = off
        // shortcuts and permissions
        installCLI,
        reinstallHelper,
        uninstallHelper,
        openNotificationSettings,
        // screen and shell
        turnOffDisplay,
        openSettings,      // gear, "Permission needed"
        back,              // settings top bar
        popoverOpened,
        popoverClosed,     // the popover always reopens on the main page
        openPopover,       // quick menu "Open…"
        openUpdate,        // footer "Download"
        openWebsite,       // settings "Website"
        quit,              // quick menu "Quit", settings "Quit"
        shutdown,          // application termination, power-off notice, SIGTERM/SIGINT/SIGHUP
    };

    Kind kind = Kind::toggle;
    int number = 0;                   // minutes or percent, by kind
    bool on = false;                  // the new switch value
    std::optional<KeepMode> mode;     // setMode
    std::optional<AgentKind> agent;   // connect, setIntegration

    static Action make(Kind kind, int number = 0, bool on = false) {
        Action a;
        a.kind = kind;
        a.number = number;
        a.on = on;
        return a;
    }
    static Action extendBy(int minutes) { return make(Kind::extend, minutes); }
    static Action preset(int minutes) { return make(Kind::startPreset, minutes); }
    static Action selectMode(KeepMode m) {
        Action a = make(Kind::setMode);
        a.mode = m;
        return a;
    }
    static Action untilTime(int hour, int minute) { return make(Kind::setUntilTime, hour * 60 + minute); }
    static Action connectAgent(AgentKind k) {
        Action a = make(Kind::connect, 0, true);
        a.agent = k;
        return a;
    }
    static Action integration(AgentKind k, bool on) {
        Action a = make(Kind::setIntegration, 0, on);
        a.agent = k;
        return a;
    }
    static Action toggleSwitch(Kind kind, bool on) { return make(kind, 0, on); }
    static Action batteryFloor(int percent) { return make(Kind::setBatteryFloor, percent); }

    bool operator==(const Action&) const = default;
};

// A short stable name of the kind ("startPreset"), for logs, the text dashboard and tests.
std::string_view actionName(Action::Kind kind);

// What the shell must do after an action, beyond redrawing.
struct ActionOutcome {
    std::optional<std::string> clipboard;  // text to put on the clipboard
    bool showPopover = false;              // open the popover under the status item
    bool terminate = false;                // end the application (its termination runs `shutdown`)
    bool askPhoneServer = false;           // ask for the ntfy server and token (setPhoneServer/Token)
    bool operator==(const ActionOutcome&) const = default;
};

// Performs one action on the controller. Main thread only, like the controller.
ActionOutcome perform(AwakeController& c, const Action& action);

}  // namespace duskwell
