#pragma once
#include <chrono>

namespace duskwell {

// Absolute points in time; durations are plain double seconds throughout the code.
using Date = std::chrono::system_clock::time_point;

inline double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}
inline Date addSeconds(Date d, double seconds) {
    return d + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}
inline double unixSeconds(Date d) {
    return std::chrono::duration<double>(d.time_since_epoch()).count();
}
inline Date dateFromUnix(double seconds) {
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

}  // namespace duskwell
