#pragma once
#include <memory>

#include "core/services.h"

namespace duskwell {

class Dispatcher;

// The composition root's real set of services (clock, command runner, power sources,
// settings, platform, HTTP client, process source), installed with ServicesScope for the
// lifetime of the object. The main queue is the caller's: duskwelld's event loop, the
// terminal command's LoopDispatcher, the app's main dispatch queue. When this build has no
// HTTP client or process source yet, neutral stand-ins answer (an error response posted to
// the main queue; an empty process table).
class RealServices {
public:
    explicit RealServices(Dispatcher& dispatcher);
    ~RealServices();
    RealServices(const RealServices&) = delete;
    RealServices& operator=(const RealServices&) = delete;

    const Services& installed() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace duskwell
