#pragma once
#include <optional>
#include <string>

namespace duskwell {

class AwakeController;

// The menu-bar item: recomputed after every controller change.
struct StatusItemModel {
    std::string symbol;                 // "sparkles", "bolt.fill" or "moon.stars"
    std::optional<std::string> title;   // " " + menuBarTitle, or none (icon alone)
    std::string tooltip;
    std::string accessibilityDescription;  // the application's name
    bool operator==(const StatusItemModel&) const = default;
};

StatusItemModel makeStatusItemModel(const AwakeController& c);

}  // namespace duskwell
