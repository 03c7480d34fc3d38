// The short texts the menu bar, the popover and the phone messages show.
#include <cmath>
#include <cstdio>
#include <string>

#include "core/awake_controller.h"
#include "core/localization.h"

namespace duskwell {
namespace {

// Seconds rounded up to a whole number; nothing below zero and nothing absurd, so a
// clock that jumped can never print a negative or overflowing figure.
long long wholeSecondsUp(double seconds) {
    if (!std::isfinite(seconds) || seconds <= 0) return 0;
    const double up = std::ceil(seconds);
    return up > 1e15 ? static_cast<long long>(1e15) : static_cast<long long>(up);
}

std::string format2(const char* pattern, long long a, long long b) {
    char buf[64];
    std::snprintf(buf, sizeof buf, pattern, a, b);
    return buf;
}

}  // namespace

std::optional<std::string> AwakeController::menuBarTitle() const {
    if (!isActive_) return std::nullopt;
    if (activeMode_ != KeepMode::auto_) {
        const auto r = remaining();
        if (!r) return std::string("∞");
        return shortClock(*r);
    }
    if (const auto idle = idleRemaining()) return shortClock(*idle);
    const int working = agents_.workingCount();
    if (working >= 1) return std::to_string(working);
    return std::string("AI");
}

std::string AwakeController::shortClock(double seconds) {
    const long long s = wholeSecondsUp(seconds);
    if (s >= 3600) return format2("%lld:%02lld", s / 3600, (s % 3600) / 60);
    if (s >= 60) return std::to_string((s + 59) / 60) + T("분", "m");
    return std::to_string(s) + "s";
}

std::string AwakeController::longClock(double seconds) {
    const long long s = wholeSecondsUp(seconds);
    if (s < 3600) return format2("%lld:%02lld", s / 60, s % 60);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld", s / 3600, (s % 3600) / 60, s % 60);
    return buf;
}

std::string AwakeController::label(int minutes) {
    if (minutes <= 0) return T("무제한", "Unlimited");
    if (minutes < 60) return std::to_string(minutes) + T("분", "m");
    const std::string hours = std::to_string(minutes / 60);
    if (minutes % 60 == 0) return hours + T("시간", "h");
    const std::string rest = std::to_string(minutes % 60);
    return T(hours + "시간 " + rest + "분", hours + "h " + rest + "m");
}

}  // namespace duskwell
