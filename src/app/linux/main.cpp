// duskwelld: the keep-awake controller on Linux. The composition root: the real services on
// an asio event loop, the one controller and its tick, the control socket, the orderly stop
// on signals and on logind's power-off notice, one instance per user, and either the live
// terminal dashboard or one log line per change.
#include <unistd.h>

#include <asio/signal_set.hpp>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <optional>
#include <string>

#include "app/action.h"
#include "asio_dispatcher.h"
#include "control_server.h"
#include "core/app_config.h"
#include "duskwell_version.h"
#include "core/awake_controller.h"
#include "core/real_services.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "core/localization.h"
#include "daemon_options.h"
#include "dashboard.h"
#include "dashboard_app.h"
#include "dashboard_client.h"
#include "instance_lock.h"
#include "power_off_watcher.h"
#include "scaled_clock.h"
#include "state_line.h"
#include "terminal_session.h"
#include "terminal_text.h"
#include "tray_icon.h"
#include "view_service.h"

namespace {

using namespace duskwell;

void logLine(const std::string& line) { std::cout << clockPrefix() << line << std::endl; }

// Without a terminal: one line per change of the state line or of the last message.
class ChangeLog {
public:
    ChangeLog(AsioDispatcher& dispatcher, AwakeController& c) : dispatcher_(dispatcher), c_(c) {
        print();
        subscription_ = c.changes().subscribe([this] {
            // Announcements come before the change lands: read the state once it has.
            if (pending_) return;
            pending_ = true;
            dispatcher_.post([this, life = std::weak_ptr<int>(life_)] {
                if (!life.lock()) return;
                pending_ = false;
                print();
            });
        });
    }

private:
    void print() {
        const std::string line = stateLine(c_);
        if (line != printed_) {
            printed_ = line;
            logLine(line);
        }
        if (c_.lastMessage() != message_) {
            message_ = c_.lastMessage();
            if (message_) logLine(*message_);
        }
    }

    AsioDispatcher& dispatcher_;
    AwakeController& c_;
    std::shared_ptr<int> life_ = std::make_shared<int>(0);
    Subscription subscription_;
    std::string printed_;
    std::optional<std::string> message_;
    bool pending_ = false;
};

// The log has no keys to press: it names the command that opens the settings.
std::string logWelcomeText() {
    return T("Duskwell에 오신 것을 환영합니다 — 에이전트 연동, 폰 알림, 전원 도우미는 `duskwell dashboard`에서 설정하세요",
             "Welcome to Duskwell — set up agents, phone alerts and the power helper with `duskwell dashboard`");
}

std::vector<std::string> arguments(int argc, char** argv) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
    return args;
}

}  // namespace

int main(int argc, char** argv) {
    const DaemonOptions options = parseDaemonOptions(arguments(argc, argv));
    if (options.error) {
        std::cerr << "duskwelld: " << *options.error << "\n\n" << daemonHelpText();
        return 2;
    }
    if (options.help) {
        std::cout << daemonHelpText();
        return 0;
    }
    if (options.version) {
        std::cout << "duskwelld " << AppConfig::version() << "\n";
        return 0;
    }
    // A peer that hangs up on the control socket must not kill us.
    std::signal(SIGPIPE, SIG_IGN);

    AsioDispatcher dispatcher;
    RealServices real(dispatcher);

    const bool onTerminal = ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
    // `duskwell dashboard`: only ever the running service's face.
    if (options.attach) return runAttachedDashboard();

    // Test-only: a faster wall clock (see docs/ARCHITECTURE.md, test-only overrides).
    std::optional<ScaledClock> scaledClock;
    std::optional<ServicesScope> scaledScope;
#if DUSKWELL_TEST_OVERRIDES
    if (const auto scale = parseTimeScale(std::getenv("DUSKWELL_TEST_TIME_SCALE"))) {
        scaledClock.emplace(*scale);
        Services set = real.installed();
        set.clock = &*scaledClock;
        scaledScope.emplace(set);
    }
#endif

    // One duskwelld per user; a second start hands its arguments to the first.
    InstanceLock::Busy busy;
    std::string lockError;
    std::optional<InstanceLock> lock =
        InstanceLock::acquire(AppConfig::supportDir() + "/duskwelld.lock", &busy, &lockError);
    if (!lock) {
        if (options.restoreOnly) return 0;  // the running instance owns the settings
        if (!lockError.empty()) {
            std::cerr << "duskwelld: " << lockError << "\n";
            return 1;
        }
        // Started again on a terminal: show the running one's dashboard.
        if (onTerminal && !options.noDashboard && !options.openURL) return runAttachedDashboard();
        std::cerr << "duskwelld is already running"
                  << (busy.pid ? " (pid " + std::to_string(*busy.pid) + ")" : std::string()) << ".\n";
        if (options.openURL) {
            const int status = openURLCommand(*options.openURL, std::cerr);
            if (status == 0) std::cerr << "duskwelld: handed " << *options.openURL << " to it.\n";
            return status;
        }
        return 1;
    }

    if (options.restoreOnly) {
        AwakeController::recoverPowerSettings();
        return 0;
    }

    // A dumb terminal cannot be drawn on: it gets the log lines.
    const bool dashboard = !options.noDashboard && onTerminal && !terminalIsDumb();
    {
        AwakeController controller;

        std::string controlError;
        // Every way out except a crash goes through here exactly once: stop (restoring sleep
        // and the power settings), then leave the loop.
        bool shutDown = false;
        auto shutdown = [&] {
            if (shutDown) return;
            shutDown = true;
            perform(controller, Action::make(Action::Kind::shutdown));
            dispatcher.quit();
        };

        // Attached dashboards watch and act through the control socket.
        ViewService views(dispatcher.context(), controller, [&] {
            if (!dashboard) logLine("stop asked by a dashboard");
            shutdown();
        });
        std::unique_ptr<ControlServer> control = startControlServer(
            controller, &controlError, [&views](const std::string& request) { return views.answer(request); });
        if (!control && !dashboard) logLine("control socket unavailable: " + controlError);
        views.setServer(control.get());

        asio::signal_set signals(dispatcher.context(), SIGTERM, SIGINT, SIGHUP);
        signals.async_wait([&](const std::error_code& ec, int) {
            if (!ec) shutdown();
        });

        // logind's power-off notice: stop now; the SIGTERM that follows ends the process.
        PowerOffWatcher powerOff(dispatcher.context(), [&] {
            if (!dashboard) logLine("power-off notice");
            perform(controller, Action::make(Action::Kind::shutdown));
        });

        // First launch: there is no popover to open; the dashboard (or the log) points at
        // the settings instead.
        SettingsStore& settings = *services().settings;
        const bool firstLaunch = !settings.boolean(SettingsKey::didOnboard).value_or(false);
        if (firstLaunch) settings.setBool(SettingsKey::didOnboard, true);

        std::unique_ptr<ChangeLog> changeLog;
        std::unique_ptr<DashboardApp> view;
        if (dashboard) {
            if (auto terminal = TerminalSession::begin(STDIN_FILENO, STDOUT_FILENO)) {
                view = std::make_unique<DashboardApp>(dispatcher.context(), controller, std::move(*terminal),
                                                      firstLaunch ? std::optional(welcomeText()) : std::nullopt,
                                                      shutdown);
            }
        }
        views.setLocalFace(view != nullptr);
        if (!view) {
            changeLog = std::make_unique<ChangeLog>(dispatcher, controller);
            if (firstLaunch) logLine(logWelcomeText());
        }

        // The desktop's tray, when there is a session bus (it logs why when there is none).
        const auto tray = TrayIcon::start(dispatcher.context(), controller,
                                          {shutdown, dashboard ? nullptr : logLine});

        // Readers of status.json see this instance at once, not five ticks later.
        controller.writeStatusFile();
        if (options.openURL) {
            const bool handled = controller.handleURL(*options.openURL);
            if (!view) logLine(*options.openURL + (handled ? " handled" : " not handled"));
        }

        dispatcher.run();
        shutdown();  // the loop can only end through it, but never leave a period running
        view.reset();  // the terminal is ours again before anything else prints
    }  // the control socket, the watcher, then the controller (and its timer) go before the loop
    if (!dashboard) logLine("stopped");
    return 0;
}
