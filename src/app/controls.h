#pragma once
#include <optional>
#include <string>

#include "app/action.h"

namespace duskwell {

// The small pieces every view model is made of: texts, SF Symbols names, palette names,
// flags and the action a control performs. A renderer draws them; it decides nothing.

enum class ButtonStyle { plain, prominent, destructive };

struct Button {
    std::string title;
    std::string symbol;  // SF Symbols name, empty for none
    Action action;
    bool enabled = true;
    ButtonStyle style = ButtonStyle::plain;
    bool operator==(const Button&) const = default;
};

// A switch shows `on`; flipping it performs `action`, which carries the new value (!on).
struct ToggleRow {
    std::string symbol;
    std::string title;
    std::string subtitle;
    bool on = false;
    Action action;
    bool enabled = true;
    bool operator==(const ToggleRow&) const = default;
};

// A selectable capsule (timer chips, mode picker segments, picker values).
struct Chip {
    std::string title;
    std::string symbol;
    bool selected = false;
    Action action;
    bool enabled = true;
    bool operator==(const Chip&) const = default;
};

// Tints are palette names: "brand", "stop", "ring", "green", "yellow", "orange", "red",
// "gray", and the agent tints ("claude", "codex", "gemini", "cyan", "violet", "mint").
struct Pill {
    std::string text;
    std::string tint;
    bool operator==(const Pill&) const = default;
};

}  // namespace duskwell
