#include "core/services.h"

#include <cstdio>
#include <cstdlib>

namespace duskwell {
namespace {
Services gServices;
bool gInstalled = false;
}  // namespace

const Services& services() {
    if (!gInstalled) {
        std::fputs("duskwell: no services installed (composition root missing)\n", stderr);
        std::abort();
    }
    return gServices;
}

ServicesScope::ServicesScope(const Services& installed)
    : previous_(gServices), hadPrevious_(gInstalled) {
    gServices = installed;
    gInstalled = true;
}

ServicesScope::~ServicesScope() {
    gServices = previous_;
    gInstalled = hadPrevious_;
}

}  // namespace duskwell
