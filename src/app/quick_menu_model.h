#pragma once
#include <optional>
#include <string>
#include <vector>

#include "app/action.h"

namespace duskwell {

class AwakeController;

// One line of the right-click menu. A separator has no title; an item without an action is
// shown disabled (the information line).
struct QuickMenuItem {
    enum class Kind { item, separator };
    Kind kind = Kind::item;
    std::string title;
    std::optional<Action> action;
    std::string keyEquivalent;  // "q" for Quit, else empty
    bool enabled() const { return kind == Kind::item && action.has_value(); }
    bool operator==(const QuickMenuItem&) const = default;
};

// The quick menu, built afresh from the controller each time it opens.
std::vector<QuickMenuItem> makeQuickMenu(const AwakeController& c);

// The information line of the active menu ("12:34 left", "2 AI tasks running", ...).
std::string quickMenuInfoLine(const AwakeController& c);

}  // namespace duskwell
