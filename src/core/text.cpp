#include "core/text.h"

#include <charconv>

namespace duskwell::Text {

std::string sanitizeUtf8(std::string_view b) {
    std::string out;
    out.reserve(b.size());
    const char* replacement = "\xEF\xBF\xBD";
    size_t i = 0;
    while (i < b.size()) {
        const auto c = static_cast<unsigned char>(b[i]);
        size_t len = 0;
        if (c < 0x80) len = 1;
        else if (c >= 0xC2 && c <= 0xDF) len = 2;
        else if (c >= 0xE0 && c <= 0xEF) len = 3;
        else if (c >= 0xF0 && c <= 0xF4) len = 4;
        bool ok = len > 0 && i + len <= b.size();
        for (size_t k = 1; ok && k < len; ++k)
            ok = (static_cast<unsigned char>(b[i + k]) & 0xC0) == 0x80;
        if (ok && len >= 3) {
            const auto c1 = static_cast<unsigned char>(b[i + 1]);
            if (c == 0xE0 && c1 < 0xA0) ok = false;          // overlong
            if (c == 0xED && c1 > 0x9F) ok = false;          // surrogates
            if (c == 0xF0 && c1 < 0x90) ok = false;          // overlong
            if (c == 0xF4 && c1 > 0x8F) ok = false;          // above U+10FFFF
        }
        if (ok) {
            out.append(b.substr(i, len));
            i += len;
        } else {
            out += replacement;
            i += 1;
        }
    }
    return out;
}

std::string trim(std::string_view s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string_view::npos) return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return std::string(s.substr(b, e - b + 1));
}

std::vector<std::string> split(std::string_view s, char sep, Empty empty) {
    std::vector<std::string> out;
    size_t start = 0;
    while (true) {
        const size_t pos = s.find(sep, start);
        const auto piece = s.substr(start, pos == std::string_view::npos ? std::string_view::npos : pos - start);
        if (!piece.empty() || empty == Empty::keep) out.emplace_back(piece);
        if (pos == std::string_view::npos) break;
        start = pos + 1;
    }
    return out;
}

std::optional<long long> parseInteger(std::string_view s) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    if (s.empty()) return std::nullopt;
    long long v = 0;
    const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || ptr != s.data() + s.size()) return std::nullopt;
    return v;
}

}  // namespace duskwell::Text
