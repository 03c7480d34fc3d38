#pragma once

namespace duskwell {

class Clock;
class Dispatcher;
class CommandRunner;
class PowerSources;
class SettingsStore;
class Platform;
class HttpClient;
class ProcessSource;
class HoldProbe;

// The installed implementations of every platform facility. One composition root per
// shell builds the real set; tests install fakes with ServicesScope. Not owned here.
struct Services {
    Clock* clock = nullptr;
    Dispatcher* dispatcher = nullptr;
    CommandRunner* commands = nullptr;
    PowerSources* power = nullptr;
    SettingsStore* settings = nullptr;
    Platform* platform = nullptr;
    HttpClient* http = nullptr;
    ProcessSource* processes = nullptr;
    HoldProbe* hold = nullptr;  // none: the keep-awake self-check answers "unknown"
};

// The process-wide services. Aborts with a clear message when none are installed.
const Services& services();

// Installs a set of services for its lifetime and puts the previous set back afterwards.
class ServicesScope {
public:
    explicit ServicesScope(const Services& installed);
    ~ServicesScope();
    ServicesScope(const ServicesScope&) = delete;
    ServicesScope& operator=(const ServicesScope&) = delete;

private:
    Services previous_;
    bool hadPrevious_;
};

}  // namespace duskwell
