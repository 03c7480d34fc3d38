#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace asio {
class io_context;
}

namespace duskwell {

// Recognises logind's power-off notice, PrepareForShutdown(true), in the line output of a
// D-Bus monitor. Understands `gdbus monitor` (one line per signal) and `busctl monitor`
// (a header block naming the member, then the body with "BOOLEAN true;"). The notice with
// false (a cancelled shutdown, or the signal after resume) is ignored.
class ShutdownNoticeParser {
public:
    // True exactly on the line that completes a PrepareForShutdown(true) notice.
    bool feed(const std::string& line);

private:
    bool inShutdownMessage_ = false;  // busctl: inside the block of a PrepareForShutdown signal
};

// The monitor to run, looked up on `path` (a PATH-style list): gdbus first (it subscribes
// to the signal and needs no privilege), then busctl (which monitors only as root). Nothing
// when neither is installed: the daemon then relies on SIGTERM alone.
std::optional<std::vector<std::string>> powerOffMonitorCommand(const std::string& path);

// Runs a monitor child whose output is read line by line on the event loop; `onNotice`
// runs on the loop's thread once per notice. The child's stderr goes to /dev/null, it dies
// with us (parent-death signal) and is ended and reaped when the watcher is destroyed.
// When the child cannot start or exits (no system bus), the watcher simply stays quiet.
class PowerOffWatcher {
public:
    PowerOffWatcher(asio::io_context& context, const std::vector<std::string>& argv,
                    std::function<void()> onNotice);
    ~PowerOffWatcher();
    PowerOffWatcher(const PowerOffWatcher&) = delete;
    PowerOffWatcher& operator=(const PowerOffWatcher&) = delete;

    bool running() const;

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace duskwell
