#include "commands/atomic_file.h"

#include <filesystem>
#include <fstream>
#include <random>

namespace duskwell {

namespace fs = std::filesystem;

bool writeFileAtomically(const std::string& path, std::string_view contents) {
    try {
        const fs::path target(path);
        std::random_device rd;
        const fs::path temp = target.parent_path() /
                              ("." + target.filename().string() + ".tmp-" + std::to_string(rd()));
        {
            std::ofstream out(temp, std::ios::binary | std::ios::trunc);
            if (!out) return false;
            out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
            out.close();
            if (!out) {
                std::error_code ec;
                fs::remove(temp, ec);
                return false;
            }
        }
        std::error_code ec;
        fs::rename(temp, target, ec);
        if (ec) {
            std::error_code ignored;
            fs::remove(temp, ignored);
            return false;
        }
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace duskwell
