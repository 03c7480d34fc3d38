#pragma once
#include <chrono>

namespace duskwell {

// Absolute points in time; durations are plain double seconds throughout the code.
using Date = std::chrono::system_clock::time_point;

inline double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}
// The clock counts nanoseconds in 64 bits (about ±292 years around 1970). Sums saturate
// well inside that, and a non-finite amount changes nothing, so no outside number can
// overflow the arithmetic.
inline constexpr double kMaxDateOffsetSeconds = 1.0e9;  // ~31 years
inline constexpr double kMaxUnixSeconds = 9.0e9;        // year 2255
inline Date addSeconds(Date d, double seconds) {
    if (!(seconds == seconds) || seconds - seconds != 0) return d;  // NaN or infinite
    seconds = seconds > kMaxDateOffsetSeconds ? kMaxDateOffsetSeconds
            : seconds < -kMaxDateOffsetSeconds ? -kMaxDateOffsetSeconds : seconds;
    return d + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}
inline double unixSeconds(Date d) {
    return std::chrono::duration<double>(d.time_since_epoch()).count();
}
inline Date dateFromUnix(double seconds) {
    if (!(seconds == seconds)) seconds = 0;
    seconds = seconds > kMaxUnixSeconds ? kMaxUnixSeconds : seconds < -kMaxUnixSeconds ? -kMaxUnixSeconds : seconds;
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

}  // namespace duskwell
