#include "commands/url.h"

namespace duskwell {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Splits "a=1&b&c=" into items; one bad escape voids the whole query, as the command
// surfaces treat an undecodable query as having no items at all.
std::vector<QueryItem> parseQuery(std::string_view query) {
    std::vector<QueryItem> items;
    if (query.empty()) return items;
    size_t start = 0;
    while (start <= query.size()) {
        size_t amp = query.find('&', start);
        if (amp == std::string_view::npos) amp = query.size();
        const std::string_view piece = query.substr(start, amp - start);
        const size_t eq = piece.find('=');
        QueryItem item;
        auto name = URL::percentDecode(piece.substr(0, eq));
        if (!name) return {};
        item.name = std::move(*name);
        if (eq != std::string_view::npos) {
            auto value = URL::percentDecode(piece.substr(eq + 1));
            if (!value) return {};
            item.value = std::move(*value);
        }
        items.push_back(std::move(item));
        start = amp + 1;
    }
    return items;
}

}  // namespace

std::optional<std::string> ParsedURL::queryValue(std::string_view name) const {
    for (const auto& item : queryItems)
        if (item.name == name) return item.value;
    return std::nullopt;
}

namespace URL {

std::optional<std::string> percentDecode(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '%') {
            out += s[i];
            continue;
        }
        if (i + 2 >= s.size()) return std::nullopt;
        const int hi = hexValue(s[i + 1]);
        const int lo = hexValue(s[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

std::string percentEncode(std::string_view s) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (const char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if (isAlpha(ch) || isDigit(ch) || ch == '-' || ch == '.' || ch == '_' || ch == '~') {
            out += ch;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
    return out;
}

std::optional<ParsedURL> parse(std::string_view text) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || !isAlpha(text[0])) return std::nullopt;
    for (size_t i = 1; i < colon; ++i) {
        const char c = text[i];
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return std::nullopt;
    }
    ParsedURL url;
    url.scheme = std::string(text.substr(0, colon));
    std::string_view rest = text.substr(colon + 1);

    if (const size_t hash = rest.find('#'); hash != std::string_view::npos) rest = rest.substr(0, hash);
    std::string_view query;
    bool hasQuery = false;
    if (const size_t q = rest.find('?'); q != std::string_view::npos) {
        query = rest.substr(q + 1);
        hasQuery = true;
        rest = rest.substr(0, q);
    }

    if (rest.substr(0, 2) == "//") {
        rest.remove_prefix(2);
        const size_t slash = rest.find('/');
        std::string_view authority = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash);
        if (const size_t at = authority.rfind('@'); at != std::string_view::npos)
            authority.remove_prefix(at + 1);
        if (const size_t port = authority.rfind(':'); port != std::string_view::npos &&
                                                     authority.find(']') == std::string_view::npos)
            authority = authority.substr(0, port);
        if (!authority.empty()) {
            auto host = percentDecode(authority);
            if (!host) return std::nullopt;
            url.host = std::move(*host);
        }
    }
    url.path = std::string(rest);
    if (hasQuery) url.queryItems = parseQuery(query);
    return url;
}

}  // namespace URL
}  // namespace duskwell
