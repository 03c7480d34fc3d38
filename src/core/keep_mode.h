#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace duskwell {

// How a keep-awake period ends: when the agents finish, after a number of minutes, or at a
// clock time. Stored by raw value under "mode".
class KeepMode {
public:
    enum Value : int { auto_ = 0, timer = 1, until = 2 };
    constexpr KeepMode(Value v) : value_(v) {}  // NOLINT: implicit by design
    constexpr Value value() const { return value_; }
    constexpr int rawValue() const { return static_cast<int>(value_); }
    static constexpr std::optional<KeepMode> fromRawValue(std::int64_t raw) {
        if (raw < 0 || raw > 2) return std::nullopt;
        return KeepMode(static_cast<Value>(raw));
    }
    static constexpr std::array<KeepMode, 3> allCases() { return {auto_, timer, until}; }
    // "auto", "timer", "until" (the status file's and the URL's words).
    constexpr std::string_view name() const {
        switch (value_) {
            case auto_: return "auto";
            case timer: return "timer";
            case until: return "until";
        }
        return "auto";
    }
    constexpr bool operator==(const KeepMode&) const = default;

private:
    Value value_;
};

// The popover's pages.
enum class Screen { main, settings };

}  // namespace duskwell
