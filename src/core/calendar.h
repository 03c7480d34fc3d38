#pragma once
#include <optional>
#include <string>

#include "core/date.h"

namespace duskwell::Calendar {

// Hour and minute of `date` in the local time zone.
struct HourMinute {
    int hour = 0;
    int minute = 0;
};
HourMinute hourMinute(Date date);

// The first local time strictly after `after` whose minute is `minute` and, when given,
// whose hour is `hour` (seconds zero). A time skipped by a daylight-saving change moves
// to the next valid time; a repeated one takes its first occurrence.
std::optional<Date> nextMatching(Date after, std::optional<int> hour, int minute);

// "HH:MM" in the local time zone.
std::string clockTime(Date date);

}  // namespace duskwell::Calendar
