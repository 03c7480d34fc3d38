#include "terminal_text.h"

#include <ctime>

namespace duskwell {
namespace {

// Decodes one code point at `i` (advancing it); malformed bytes count as one column each.
char32_t next(std::string_view s, std::size_t& i) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    int len = b < 0x80 ? 1 : (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xe ? 3 : (b >> 3) == 0x1e ? 4 : 1;
    if (i + static_cast<std::size_t>(len) > s.size()) len = 1;
    char32_t cp = len == 1 ? b : len == 2 ? (b & 0x1f) : len == 3 ? (b & 0x0f) : (b & 0x07);
    for (int k = 1; k < len; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]) & 0x3f);
    i += static_cast<std::size_t>(len);
    return cp;
}

// Symbols below U+3000 that terminals draw two columns wide (East Asian Width "W": the
// emoji-presentation ones, such as ⚡ and ✅).
bool wideSymbol(char32_t cp) {
    static constexpr char32_t ranges[][2] = {
        {0x231a, 0x231b}, {0x23e9, 0x23ec}, {0x23f0, 0x23f0}, {0x23f3, 0x23f3}, {0x25fd, 0x25fe},
        {0x2614, 0x2615}, {0x2648, 0x2653}, {0x267f, 0x267f}, {0x2693, 0x2693}, {0x26a1, 0x26a1},
        {0x26aa, 0x26ab}, {0x26bd, 0x26be}, {0x26c4, 0x26c5}, {0x26ce, 0x26ce}, {0x26d4, 0x26d4},
        {0x26ea, 0x26ea}, {0x26f2, 0x26f3}, {0x26f5, 0x26f5}, {0x26fa, 0x26fa}, {0x26fd, 0x26fd},
        {0x2705, 0x2705}, {0x270a, 0x270b}, {0x2728, 0x2728}, {0x274c, 0x274c}, {0x274e, 0x274e},
        {0x2753, 0x2755}, {0x2757, 0x2757}, {0x2795, 0x2797}, {0x27b0, 0x27b0}, {0x27bf, 0x27bf},
        {0x2b1b, 0x2b1c}, {0x2b50, 0x2b50}, {0x2b55, 0x2b55},
    };
    for (const auto& r : ranges) {
        if (cp >= r[0] && cp <= r[1]) return true;
    }
    return false;
}

int width(char32_t cp) {
    if (cp >= 0x2300 && cp < 0x2c00 && wideSymbol(cp)) return 2;
    if (cp == 0x200d || (cp >= 0xfe00 && cp <= 0xfe0f) || (cp >= 0x0300 && cp <= 0x036f)) return 0;
    if ((cp >= 0x1100 && cp <= 0x115f) || (cp >= 0x2e80 && cp <= 0xa4cf) || (cp >= 0xac00 && cp <= 0xd7a3) ||
        (cp >= 0xf900 && cp <= 0xfaff) || (cp >= 0xfe30 && cp <= 0xfe4f) || (cp >= 0xff00 && cp <= 0xff60) ||
        (cp >= 0xffe0 && cp <= 0xffe6) || (cp >= 0x1f300 && cp <= 0x1faff) || (cp >= 0x20000 && cp <= 0x3fffd))
        return 2;
    return 1;
}

// Length of the escape sequence at `i`, or 0.
std::size_t escapeLength(std::string_view s, std::size_t i) {
    if (s[i] != '\x1b' || i + 1 >= s.size() || s[i + 1] != '[') return 0;
    std::size_t j = i + 2;
    while (j < s.size() && !(s[j] >= 0x40 && s[j] <= 0x7e)) ++j;
    return j < s.size() ? j - i + 1 : s.size() - i;
}

}  // namespace

int displayWidth(std::string_view text) {
    int total = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (const std::size_t esc = escapeLength(text, i)) {
            i += esc;
            continue;
        }
        total += width(next(text, i));
    }
    return total;
}

std::string fitToWidth(std::string_view text, int w, bool pad) {
    if (w <= 0) return {};
    std::string out;
    int used = 0;
    bool escapes = false;
    bool cut = false;
    const int total = displayWidth(text);
    for (std::size_t i = 0; i < text.size();) {
        if (const std::size_t esc = escapeLength(text, i)) {
            out.append(text.substr(i, esc));
            escapes = true;
            i += esc;
            continue;
        }
        const std::size_t start = i;
        const int cw = width(next(text, i));
        // Keep one column for the ellipsis when the whole text will not fit.
        const int limit = total > w ? w - 1 : w;
        if (used + cw > limit) {
            cut = true;
            break;
        }
        out.append(text.substr(start, i - start));
        used += cw;
    }
    if (cut) {
        out += "…";
        ++used;
        if (escapes) out += "\x1b[0m";
    }
    if (pad && used < w) out.append(static_cast<std::size_t>(w - used), ' ');
    return out;
}

std::string clockPrefix() {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[16];
    std::strftime(buf, sizeof buf, "%H:%M:%S ", &tm);
    return buf;
}

}  // namespace duskwell
