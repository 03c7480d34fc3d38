#include "core/localization.h"

#include <atomic>
#include <mutex>

#include "core/platform.h"
#include "core/services.h"

namespace duskwell {
namespace {
std::once_flag gOnce;
bool gKorean = false;
std::atomic<int> gOverride{-1};  // -1 none, 0 English, 1 Korean
}  // namespace

bool Locale::isKoreanFor(const std::vector<std::string>& preferredLanguages) {
    const std::string first = preferredLanguages.empty() ? "en" : preferredLanguages.front();
    return first.rfind("ko", 0) == 0;
}

bool Locale::isKorean() {
    const int o = gOverride.load();
    if (o >= 0) return o == 1;
    std::call_once(gOnce, [] { gKorean = isKoreanFor(services().platform->preferredLanguages()); });
    return gKorean;
}

void Locale::overrideForTesting(std::optional<bool> korean) {
    gOverride.store(korean ? (*korean ? 1 : 0) : -1);
}

std::string T(std::string_view ko, std::string_view en) {
    return std::string(Locale::isKorean() ? ko : en);
}

}  // namespace duskwell
