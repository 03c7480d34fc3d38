#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell {

// One query item. A name without "=" has no value.
struct QueryItem {
    std::string name;
    std::optional<std::string> value;
    bool operator==(const QueryItem&) const = default;
};

// The parts of a URL that the command surfaces use: "duskwell://start?mode=timer&minutes=90"
// has scheme "duskwell", host "start" and two query items. Letter case is kept as written.
struct ParsedURL {
    std::string scheme;
    std::optional<std::string> host;  // absent without "//authority" or when it is empty
    std::string path;
    std::vector<QueryItem> queryItems;  // empty when the query cannot be decoded

    // The value of the first item called exactly `name`; a name without a value is absent.
    std::optional<std::string> queryValue(std::string_view name) const;
};

namespace URL {

// Nothing when the text has no valid scheme ("letter, then letters, digits, + - .", then ":").
std::optional<ParsedURL> parse(std::string_view text);

// Decodes %XX escapes ("+" stays "+"); nothing when an escape is malformed.
std::optional<std::string> percentDecode(std::string_view s);

// Escapes everything except unreserved characters (letters, digits, "-._~"), for query values.
std::string percentEncode(std::string_view s);

}  // namespace URL
}  // namespace duskwell
