#include "core/calendar.h"

#include <cstdio>
#include <ctime>

namespace duskwell::Calendar {
namespace {

std::tm localTm(Date date) {
    const std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm;
}

std::optional<Date> fromLocal(std::tm tm) {
    tm.tm_isdst = -1;
    const std::time_t t = std::mktime(&tm);
    if (t == static_cast<std::time_t>(-1)) return std::nullopt;
    return std::chrono::system_clock::from_time_t(t);
}

}  // namespace

HourMinute hourMinute(Date date) {
    const std::tm tm = localTm(date);
    return {tm.tm_hour, tm.tm_min};
}

std::optional<Date> nextMatching(Date after, std::optional<int> hour, int minute) {
    std::tm base = localTm(after);
    base.tm_sec = 0;
    base.tm_min = minute;
    // Hourly search when no hour is given, daily otherwise; two days cover every gap.
    const int steps = hour ? 3 : 50;
    if (hour) base.tm_hour = *hour;
    for (int i = 0; i < steps; ++i) {
        std::tm candidate = base;
        if (hour) candidate.tm_mday += i; else candidate.tm_hour += i;
        auto d = fromLocal(candidate);
        if (d && *d > after) return d;
    }
    return std::nullopt;
}

std::string clockTime(Date date) {
    const std::tm tm = localTm(date);
    char buf[8];
    std::snprintf(buf, sizeof buf, "%02d:%02d", tm.tm_hour, tm.tm_min);
    return buf;
}

}  // namespace duskwell::Calendar
