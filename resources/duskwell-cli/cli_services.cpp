#include "cli_services.h"

#include "core/app_config.h"

namespace duskwell::cli {

std::string version() { return AppConfig::version(); }

// Temporary until the real Linux and macOS services exist: installs nothing.
struct RealServices::Impl {};
RealServices::RealServices() : impl_(std::make_unique<Impl>()) {}
RealServices::~RealServices() = default;

}  // namespace duskwell::cli
