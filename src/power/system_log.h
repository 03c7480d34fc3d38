#pragma once
#include <functional>
#include <string>

namespace duskwell {

// The one-line failure log of privileged calls. By default a line goes to standard error,
// which the Linux user unit hands to the journal; a shell whose standard error is lost
// (the macOS app) installs its own destination (os_log) with `SystemLog::SinkScope`.
// Safe to call from any thread.
namespace SystemLog {

using Sink = std::function<void(const std::string& line)>;

void write(const std::string& line);

// Routes every line to `sink` for its lifetime, then puts the previous destination back.
class SinkScope {
public:
    explicit SinkScope(Sink sink);
    ~SinkScope();
    SinkScope(const SinkScope&) = delete;
    SinkScope& operator=(const SinkScope&) = delete;

private:
    Sink previous_;
};

}  // namespace SystemLog
}  // namespace duskwell
