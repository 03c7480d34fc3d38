#pragma once
#include "core/date.h"

namespace duskwell {

// Wall-clock time. The real one reads the system clock; tests set a fake.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;
};

}  // namespace duskwell
