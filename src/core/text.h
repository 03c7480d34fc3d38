#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell::Text {

// Replaces every invalid UTF-8 sequence with U+FFFD; never fails.
std::string sanitizeUtf8(std::string_view bytes);
std::string trim(std::string_view s);
// Splits at `sep`; empty pieces dropped when `dropEmpty`.
enum class Empty { keep, drop };
std::vector<std::string> split(std::string_view s, char sep, Empty empty = Empty::drop);
// A whole decimal integer (optional sign, no blanks), or nothing.
std::optional<long long> parseInteger(std::string_view s);

}  // namespace duskwell::Text
