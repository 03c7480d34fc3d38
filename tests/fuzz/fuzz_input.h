#pragma once
// Shared by the fuzz targets: the input as text, split into parts at NUL bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell::fuzz {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// "a\0b\0c" -> {"a", "b", "c"}, always `count` parts (missing ones empty).
inline std::vector<std::string> parts(std::string_view input, std::size_t count) {
    std::vector<std::string> out;
    for (std::size_t i = 0; i + 1 < count; ++i) {
        const auto nul = input.find('\0');
        out.emplace_back(input.substr(0, nul));
        input = nul == std::string_view::npos ? std::string_view{} : input.substr(nul + 1);
    }
    out.emplace_back(input);
    return out;
}

}  // namespace duskwell::fuzz
