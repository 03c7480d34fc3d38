#include "core/platform_mac.h"
#include "core/real_service_set.h"
#include "core/real_services.h"
#include "core/settings_store_mac.h"
#include "power/power_sources_mac.h"

namespace duskwell {

struct RealServices::Impl : RealServiceSet<MacPowerSources, MacPlatform> {
    explicit Impl(Dispatcher& dispatcher)
        : RealServiceSet(dispatcher, [](const MacPlatform&) { return std::make_unique<UserDefaultsSettings>(); }) {}
};

RealServices::RealServices(Dispatcher& dispatcher) : impl_(std::make_unique<Impl>(dispatcher)) {}
RealServices::~RealServices() = default;
const Services& RealServices::installed() const { return impl_->set; }

}  // namespace duskwell
