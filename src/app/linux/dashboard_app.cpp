#include "dashboard_app.h"

#include <signal.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>

#include "app/action.h"
#include "core/awake_controller.h"
#include "core/observable.h"
#include "dashboard.h"
#include "phone/ntfy_access.h"
#include "phone_server_prompt.h"

namespace duskwell {

struct DashboardApp::Impl : std::enable_shared_from_this<Impl> {
    Impl(asio::io_context& ctx, AwakeController& c, TerminalSession t)
        : context(ctx), controller(c), terminal(std::move(t)), input(ctx), clock(ctx), resize(ctx, SIGWINCH) {}

    asio::io_context& context;
    AwakeController& controller;
    std::optional<TerminalSession> terminal;
    asio::posix::stream_descriptor input;
    asio::steady_timer clock;
    asio::signal_set resize;
    std::optional<std::string> welcome;
    std::optional<std::string> notice;
    const bool color = terminalWantsColor();
    std::function<void()> onQuit;
    Subscription subscription;
    std::string lastFrame;
    int scroll = 0;
    bool codePage = false;                    // the QR code on its own screen
    std::optional<PhoneServerPrompt> prompt;  // the ntfy server being entered
    bool pending = false;
    bool closed = false;
    char buf[64] = {};

    void start() {
        std::weak_ptr<Impl> weak = weak_from_this();
        // Announcements come before the change lands: draw once it has, once per batch.
        subscription = controller.changes().subscribe([weak] {
            if (auto self = weak.lock()) self->redrawSoon();
        });
        input.assign(::dup(terminal->inFd()));
        readKeys();
        tickClock();
        waitResize();
        redraw();
    }

    void redrawSoon() {
        if (pending || closed) return;
        pending = true;
        asio::post(context, [self = shared_from_this()] {
            self->pending = false;
            if (!self->closed) self->redraw();
        });
    }

    void redraw() {
        if (closed || !terminal) return;
        if (screenShown() != Screen::main) welcome.reset();  // seen the settings once: enough
        const auto [w, h] = terminal->size();
        const DashboardView view = currentView();
        std::string frame;
        for (const auto& line : renderDashboard(view, w, h, scroll)) {
            if (!frame.empty()) frame += "\n";
            frame += line;
        }
        if (frame == lastFrame) return;  // the clock tick changed nothing visible
        lastFrame = frame;
        terminal->draw(frame);
    }

    Screen screenShown() const { return controller.screen(); }

    DashboardView currentView() {
        DashboardView view = makeDashboardView(controller, welcome, color);
        view.notice = notice;
        if (codePage) showCodePage(view);
        codePage = view.codePage;  // the code went away (alerts switched off): back to the page
        if (prompt) view.prompt = prompt->line();
        return view;
    }

    // Keys go to the entry line while it is open.
    void feedPrompt(const Key& key) {
        feedPhoneServerPrompt(prompt, key,
                              {[this](const std::string& server) { controller.setPhoneServer(server); },
                               [this](const std::optional<std::string>& token) { controller.setPhoneToken(token); }});
    }

    void tickClock() {
        clock.expires_after(std::chrono::seconds(1));
        clock.async_wait([self = shared_from_this()](const std::error_code& ec) {
            if (ec || self->closed) return;
            self->redraw();
            self->tickClock();
        });
    }

    void waitResize() {
        resize.async_wait([self = shared_from_this()](const std::error_code& ec, int) {
            if (ec || self->closed) return;
            self->lastFrame.clear();
            self->redraw();
            self->waitResize();
        });
    }

    void readKeys() {
        input.async_read_some(asio::buffer(buf), [self = shared_from_this()](const std::error_code& ec, std::size_t n) {
            if (ec || self->closed) return;  // the terminal went away: SIGHUP follows
            for (const Key& key : decodeKeys(std::string_view(self->buf, n))) {
                if (!self->handle(key)) return;
            }
            self->readKeys();
        });
    }

    // False when the dashboard is finished.
    bool handle(const Key& key) {
        if (prompt) {
            feedPrompt(key);
            redraw();
            return true;
        }
        const DashboardView view = currentView();
        const auto command = commandForKey(view.bindings, key);
        if (!command) return true;
        notice.reset();
        switch (command->kind) {
            case DashboardCommand::Kind::quit:
                if (onQuit) onQuit();
                return false;
            case DashboardCommand::Kind::scrollDown:
                ++scroll;
                break;
            case DashboardCommand::Kind::scrollUp:
                --scroll;
                break;
            case DashboardCommand::Kind::showCode:
                codePage = true;
                break;
            case DashboardCommand::Kind::hideCode:
                codePage = false;
                break;
            case DashboardCommand::Kind::perform: {
                if ((notice = noticeInsteadOf(*command->action))) break;
                const ActionOutcome outcome = perform(controller, *command->action);
                if (outcome.terminate) {
                    if (onQuit) onQuit();
                    return false;
                }
                if (outcome.askPhoneServer)
                    prompt.emplace(controller.phone().serverURL(), NtfyAccess::publicServer());
                break;
            }
        }
        redraw();
        return true;
    }

    void close() {
        closed = true;
        subscription.reset();
        std::error_code ec;
        input.cancel(ec);
        input.close(ec);
        clock.cancel();
        resize.cancel(ec);
        terminal.reset();
    }
};

DashboardApp::DashboardApp(asio::io_context& context, AwakeController& controller, TerminalSession terminal,
                           std::optional<std::string> welcome, std::function<void()> onQuit)
    : impl_(std::make_shared<Impl>(context, controller, std::move(terminal))) {
    impl_->welcome = std::move(welcome);
    impl_->onQuit = std::move(onQuit);
    // Someone is looking: the controller scans as often as for an open popover.
    perform(controller, Action::make(Action::Kind::popoverOpened));
    impl_->start();
}

DashboardApp::~DashboardApp() {
    // Pending handlers may keep impl_ alive a little longer; the terminal is put back now.
    impl_->close();
}

}  // namespace duskwell
