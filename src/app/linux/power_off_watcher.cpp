#include "power_off_watcher.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include "core/desktop_bus.h"

namespace duskwell {

PowerOffWatcher::PowerOffWatcher(asio::io_context& context, std::function<void()> onNotice)
    : onNotice_(std::make_shared<std::function<void()>>(std::move(onNotice))) {
    std::weak_ptr<std::function<void()>> weak = onNotice_;
    notice_ = std::make_unique<ShutdownNotice>([&context, weak] {
        // On the pump thread: the loop runs the callback, unless the watcher has gone.
        asio::post(context, [weak] {
            if (auto callback = weak.lock(); callback && *callback) (*callback)();
        });
    });
}

PowerOffWatcher::~PowerOffWatcher() {
    notice_.reset();  // joins the pump thread: nothing is posted after this
    onNotice_.reset();
}

bool PowerOffWatcher::running() const { return notice_ && notice_->listening(); }

}  // namespace duskwell
