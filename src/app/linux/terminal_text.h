#pragma once
#include <string>
#include <string_view>

namespace duskwell {

// Columns a UTF-8 text takes in a terminal: ANSI escape sequences take none, Hangul, CJK,
// full-width forms and emoji take two, combining marks and variation selectors none,
// everything else one.
int displayWidth(std::string_view text);

// `text` cut to at most `width` columns (ending in "…" when cut, with attributes reset when
// it held escape sequences), then padded with blanks to exactly `width` when `pad`.
std::string fitToWidth(std::string_view text, int width, bool pad = false);

// "HH:MM:SS " in local time: the lead of every plain log line.
std::string clockPrefix();

}  // namespace duskwell
