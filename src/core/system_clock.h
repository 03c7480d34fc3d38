#pragma once
#include "core/clock.h"

namespace duskwell {

// The machine's wall clock.
class SystemClock final : public Clock {
public:
    Date now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace duskwell
