#pragma once
#include <optional>
#include <string_view>

#include "core/clock.h"

namespace duskwell {

// A wall clock that runs `scale` times faster than the real one from the moment it is made.
// Test-only: duskwelld installs it when DUSKWELL_TEST_TIME_SCALE is set, so that an
// end-to-end test lives through a ten-minute quiet rule in seconds. Never used otherwise.
class ScaledClock final : public Clock {
public:
    explicit ScaledClock(double scale, Date origin = std::chrono::system_clock::now());
    Date now() const override;
    // The same computation for a given real time (for tests).
    Date at(Date real) const;
    double scale() const { return scale_; }

private:
    double scale_;
    Date origin_;
};

// Reads DUSKWELL_TEST_TIME_SCALE's value: a finite number from 1 to 10,000. Anything else
// (absent, empty, garbage, below 1) is nothing, and the real clock stays.
std::optional<double> parseTimeScale(const char* value);

}  // namespace duskwell
