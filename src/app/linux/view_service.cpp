#include "view_service.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>

#include "app/action.h"
#include "app/view_state.h"
#include "commands/control_socket.h"
#include "core/awake_controller.h"
#include "core/observable.h"

namespace duskwell {

static_assert(ControlServer::watchRequest == ViewProtocol::watch);

using ControlProtocol::Reply;
using ControlProtocol::ReplyKind;

struct ViewService::Impl : std::enable_shared_from_this<Impl> {
    Impl(asio::io_context& ctx, AwakeController& c) : context(ctx), controller(c), clock(ctx) {}

    asio::io_context& context;
    AwakeController& controller;
    std::function<void()> onTerminate;
    ControlServer* server = nullptr;
    asio::steady_timer clock;
    Subscription subscription;
    std::string last;
    bool pending = false;
    bool watched = false;  // the controller was told someone looks
    bool ticking = false;
    bool localFace = false;

    void start() {
        std::weak_ptr<Impl> weak = weak_from_this();
        // Announcements come before the change lands: publish once it has, once per batch.
        subscription = controller.changes().subscribe([weak] {
            auto self = weak.lock();
            if (!self || self->pending || !self->server || self->server->watchers() == 0) return;
            self->pending = true;
            asio::post(self->context, [weak] {
                if (auto s = weak.lock()) {
                    s->pending = false;
                    s->publish();
                }
            });
        });
    }

    void publish() {
        if (!server) return;
        std::string line = ViewProtocol::encode(makeViewState(controller));
        if (line == last) return;  // a clock tick that changed nothing shown
        last = line;
        server->publish(std::move(line));
    }

    // While a dashboard in this process is open the popover counts as open anyway.
    void setWatched(bool on) {
        if (on == watched) return;
        watched = on;
        if (!localFace) controller.setPopoverVisible(on);
    }

    // Once a second while anyone watches: the clocks move. Stops when the last one leaves.
    void tick() {
        if (ticking) return;
        ticking = true;
        clock.expires_after(std::chrono::seconds(1));
        clock.async_wait([weak = weak_from_this()](const std::error_code& ec) {
            auto self = weak.lock();
            if (!self || ec) return;
            self->ticking = false;
            if (!self->server || self->server->watchers() == 0) {
                self->setWatched(false);
                return;
            }
            self->publish();
            self->tick();
        });
    }

    Reply act(const std::string& request) {
        const auto action = ViewProtocol::parseActionRequest(request);
        if (!action) return {ReplyKind::error, "unknown action"};
        switch (action->kind) {
            case Action::Kind::popoverOpened:
            case Action::Kind::popoverClosed:
            case Action::Kind::shutdown:
                return {ReplyKind::error, "not an action for a client"};  // the service's own
            case Action::Kind::openSettings:
            case Action::Kind::back:
                // Each dashboard has its own page: the service's stays where a dashboard in
                // its own terminal left it; the settings page's states are read afresh.
                if (action->kind == Action::Kind::openSettings) controller.refreshPermissions();
                return {ReplyKind::ok, {}};
            default:
                break;
        }
        const ActionOutcome outcome = perform(controller, *action);
        if (outcome.terminate && onTerminate) asio::post(context, onTerminate);  // after the reply
        return {ReplyKind::ok, {}};
    }
};

ViewService::ViewService(asio::io_context& context, AwakeController& controller, std::function<void()> onTerminate)
    : impl_(std::make_shared<Impl>(context, controller)) {
    impl_->onTerminate = std::move(onTerminate);
    impl_->start();
}

ViewService::~ViewService() {
    impl_->subscription.reset();
    impl_->clock.cancel();
    impl_->server = nullptr;
}

void ViewService::setServer(ControlServer* server) { impl_->server = server; }

void ViewService::setLocalFace(bool shown) {
    impl_->localFace = shown;
    if (!shown && impl_->watched) impl_->controller.setPopoverVisible(true);
}

std::optional<Reply> ViewService::answer(const std::string& request) {
    if (request == ViewProtocol::watch) {
        if (!impl_->server) return Reply{ReplyKind::error, "no control socket"};
        // The newest state goes out before the "ok" does: the watcher's first line is current.
        impl_->last.clear();
        impl_->publish();
        impl_->setWatched(true);
        impl_->tick();
        return Reply{ReplyKind::ok, {}};
    }
    if (request.rfind(ViewProtocol::actionPrefix, 0) == 0) return impl_->act(request);
    return std::nullopt;
}

}  // namespace duskwell
