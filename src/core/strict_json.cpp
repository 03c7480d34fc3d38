#include "core/strict_json.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>

namespace duskwell {
namespace {

using nlohmann::json;

// Builds the document through nlohmann's own DOM builder and stops it at the first thing
// we refuse. The parser itself is iterative; only what comes after it would recurse.
class LimitedSax {
public:
    LimitedSax(json& result, JsonNumbers numbers, std::size_t maxDepth)
        : dom_(result, /*allow_exceptions=*/false), numbers_(numbers), maxDepth_(maxDepth) {}

    JsonProblem problem = JsonProblem::none;

    bool null() { return dom_.null(); }
    bool boolean(bool v) { return dom_.boolean(v); }
    bool number_integer(json::number_integer_t v) { return dom_.number_integer(v); }
    bool number_unsigned(json::number_unsigned_t v) { return dom_.number_unsigned(v); }
    bool number_float(json::number_float_t v, const std::string& text) {
        if (numbers_ == JsonNumbers::exact && !numberTextFitsDouble(text, v)) return fail(JsonProblem::inexactNumber);
        return dom_.number_float(v, text);
    }
    bool string(std::string& v) { return dom_.string(v); }
    bool binary(json::binary_t& v) { return dom_.binary(v); }
    bool start_object(std::size_t n) { return enter() && dom_.start_object(n); }
    bool key(std::string& k) { return dom_.key(k); }
    bool end_object() { --depth_; return dom_.end_object(); }
    bool start_array(std::size_t n) { return enter() && dom_.start_array(n); }
    bool end_array() { --depth_; return dom_.end_array(); }
    bool parse_error(std::size_t position, const std::string& token, const nlohmann::detail::exception& e) {
        if (problem == JsonProblem::none) problem = JsonProblem::syntax;
        return dom_.parse_error(position, token, e);
    }

private:
    bool enter() { return ++depth_ <= maxDepth_ || fail(JsonProblem::tooDeep); }
    bool fail(JsonProblem p) {
        problem = p;
        return false;
    }

    nlohmann::detail::json_sax_dom_parser<json> dom_;
    JsonNumbers numbers_;
    std::size_t maxDepth_;
    std::size_t depth_ = 0;
};

}  // namespace

namespace {

// A decimal number's significant digits (no leading or trailing zeros) and the power of ten
// of the first of them: "0.0120" and "1.2e-2" both give {"12", -2}.
std::pair<std::string, long> significant(std::string_view text) {
    std::string digits;
    long pointAt = -1;  // digits before the decimal point
    long exponent = 0;
    std::size_t i = 0;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    for (; i < text.size() && text[i] != 'e' && text[i] != 'E'; ++i) {
        if (text[i] == '.') pointAt = static_cast<long>(digits.size());
        else digits += text[i];
    }
    if (i < text.size()) exponent = std::strtol(std::string(text.substr(i + 1)).c_str(), nullptr, 10);
    if (pointAt < 0) pointAt = static_cast<long>(digits.size());
    const auto first = digits.find_first_not_of('0');
    if (first == std::string::npos) return {"", 0};
    const auto last = digits.find_last_not_of('0');
    return {digits.substr(first, last - first + 1), pointAt - static_cast<long>(first) - 1 + exponent};
}

}  // namespace

bool numberTextFitsDouble(std::string_view text, double value) {
    if (!std::isfinite(value)) return false;
    const auto [digits, power] = significant(text);
    if (digits.empty()) return true;  // zero, written any way
    if (value == 0 || std::fabs(value) < DBL_MIN) return false;  // flushed to zero or subnormal
    if (digits.size() <= static_cast<std::size_t>(DBL_DIG)) return true;
    // Longer: only the way we print this very double (so our own files read back).
    return significant(nlohmann::json(value).dump()) == std::make_pair(digits, power);
}

StrictJson parseStrictJson(std::string_view text, JsonNumbers numbers, std::size_t maxDepth) {
    StrictJson out;
    LimitedSax sax(out.value, numbers, maxDepth);
    bool ok = false;
    try {
        ok = json::sax_parse(text.begin(), text.end(), &sax, json::input_format_t::json, /*strict=*/true);
    } catch (...) {
        ok = false;
    }
    if (!ok) {
        out.problem = sax.problem == JsonProblem::none ? JsonProblem::syntax : sax.problem;
        out.value = json(json::value_t::discarded);
    }
    return out;
}

}  // namespace duskwell
