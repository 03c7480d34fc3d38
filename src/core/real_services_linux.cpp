#include "core/json_file_settings.h"
#include "core/platform_linux.h"
#include "core/real_service_set.h"
#include "core/real_services.h"
#include "power/power_sources_linux.h"

namespace duskwell {

struct RealServices::Impl : RealServiceSet<LinuxPowerSources, LinuxPlatform> {
    explicit Impl(Dispatcher& dispatcher)
        : RealServiceSet(dispatcher, [](const LinuxPlatform& p) {
              return std::make_unique<JsonFileSettings>(p.homeDirectory() + "/.duskwell/settings.json");
          }) {}
};

RealServices::RealServices(Dispatcher& dispatcher) : impl_(std::make_unique<Impl>(dispatcher)) {}
RealServices::~RealServices() = default;
const Services& RealServices::installed() const { return impl_->set; }

}  // namespace duskwell
