#pragma once
#include <cstddef>
#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

namespace duskwell {

// Deeper documents are refused: copying or printing them recurses once per level.
inline constexpr std::size_t kMaxJsonDepth = 256;

enum class JsonNumbers {
    any,    // numbers are read as nlohmann reads them (big or long ones are rounded)
    exact,  // a number a double cannot carry unchanged refuses the whole document
};

enum class JsonProblem { none, syntax, tooDeep, inexactNumber };

struct StrictJson {
    nlohmann::json value;  // discarded unless problem is none
    JsonProblem problem = JsonProblem::none;
    bool ok() const { return problem == JsonProblem::none; }
};

// Parses text from outside (a file, a socket) without recursing and without letting a
// document through that we could not write back as it was.
StrictJson parseStrictJson(std::string_view text, JsonNumbers numbers = JsonNumbers::any,
                           std::size_t maxDepth = kMaxJsonDepth);

// True when the decimal text survives a trip through a double and back (at most 15
// significant digits, finite, not flushed to zero).
bool numberTextFitsDouble(std::string_view text, double value);

}  // namespace duskwell
