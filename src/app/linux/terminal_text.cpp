#include "terminal_text.h"

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

int width(char32_t cp) {
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

}  // namespace duskwell
