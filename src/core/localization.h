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

// Which machine the texts speak of: a Mac for the menu-bar app, any other computer for
// duskwelld. Fixed when the program is built; tests may pick either.
namespace Machine {
enum class Kind { mac, computer };
Kind kind();
inline bool isMac() { return kind() == Kind::mac; }
void overrideForTesting(std::optional<Kind> kind);
}  // namespace Machine

// Picks the Korean or the English text of a pair, Korean first.
std::string T(std::string_view ko, std::string_view en);

// T for texts that name the machine. "{machine}" becomes "Mac" / "computer" (English) or
// "Mac" / "컴퓨터" (Korean); the Korean subject and object forms carry their particle,
// which depends on the word: "{machine:이}" is "Mac이" / "컴퓨터가", "{machine:을}" is
// "Mac을" / "컴퓨터를".
std::string TM(std::string_view ko, std::string_view en);

// For the few texts that differ between the platforms beyond the machine's name (the
// power feature a setting changes, for example), Mac texts first.
std::string TP(std::string_view koMac, std::string_view enMac, std::string_view koOther,
               std::string_view enOther);

}  // namespace duskwell
