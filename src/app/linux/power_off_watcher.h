#pragma once
#include <functional>
#include <memory>

namespace asio {
class io_context;
}

namespace duskwell {

class ShutdownNotice;

// logind's power-off notice, PrepareForShutdown(true), heard on the system bus in process.
// `onNotice` runs on the event loop's thread once per notice (the bus's pump thread hands
// it over). With no system bus the watcher stays quiet and `running` is false: the daemon
// then relies on SIGTERM alone.
class PowerOffWatcher {
public:
    PowerOffWatcher(asio::io_context& context, std::function<void()> onNotice);
    ~PowerOffWatcher();
    PowerOffWatcher(const PowerOffWatcher&) = delete;
    PowerOffWatcher& operator=(const PowerOffWatcher&) = delete;

    bool running() const;

private:
    std::shared_ptr<std::function<void()>> onNotice_;  // emptied when the watcher goes
    std::unique_ptr<ShutdownNotice> notice_;
};

}  // namespace duskwell
