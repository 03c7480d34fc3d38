#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell {

namespace Locale {
// Chosen once per process from the first preferred language.
bool isKorean();
// The rule itself: the first tag (or "en" when there is none) begins with "ko".
bool isKoreanFor(const std::vector<std::string>& preferredLanguages);
// Tests pick the language; nothing returns to the once-per-process choice.
void overrideForTesting(std::optional<bool> korean);
}  // namespace Locale

// Picks the Korean or the English text of a pair, Korean first.
std::string T(std::string_view ko, std::string_view en);

}  // namespace duskwell
