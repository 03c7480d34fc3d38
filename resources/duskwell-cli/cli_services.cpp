#include "cli_services.h"

#include "core/app_config.h"
#include "core/loop_dispatcher.h"
#include "core/real_services.h"

namespace duskwell::cli {

std::string version() { return AppConfig::version(); }

// The terminal command has no event loop of its own; a LoopDispatcher serves as its main
// queue should anything post to it.
struct RealServices::Impl {
    LoopDispatcher dispatcher;
    ::duskwell::RealServices services{dispatcher};
};

RealServices::RealServices() : impl_(std::make_unique<Impl>()) {}
RealServices::~RealServices() = default;

}  // namespace duskwell::cli
