#include "scaled_clock.h"

#include <cmath>
#include <string>

namespace duskwell {

ScaledClock::ScaledClock(double scale, Date origin) : scale_(scale), origin_(origin) {}

Date ScaledClock::now() const { return at(std::chrono::system_clock::now()); }

Date ScaledClock::at(Date real) const {
    const std::chrono::duration<double> elapsed = real - origin_;
    return origin_ + std::chrono::duration_cast<Date::duration>(elapsed * scale_);
}

std::optional<double> parseTimeScale(const char* value) {
    if (!value || !*value) return std::nullopt;
    const std::string text(value);
    std::size_t used = 0;
    double scale = 0;
    try {
        scale = std::stod(text, &used);
    } catch (...) {
        return std::nullopt;
    }
    if (used != text.size() || !std::isfinite(scale) || scale < 1 || scale > 10000) return std::nullopt;
    return scale;
}

}  // namespace duskwell
