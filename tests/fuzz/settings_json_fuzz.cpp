// ~/.duskwell/settings.json as duskwelld loads it at every start and writes it back.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/json_file_settings.h"
#include "fuzz_input.h"

namespace {

const std::string& file() {
    static const std::string path = [] {
        char name[] = "/tmp/duskwell-fuzz-settings-XXXXXX";
        const char* made = ::mkdtemp(name);
        if (!made) std::abort();
        return std::string(made) + "/settings.json";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        std::ofstream out(file(), std::ios::binary | std::ios::trunc);
        out << duskwell::fuzz::text(data, size);
    }
    duskwell::JsonFileSettings settings(file());
    (void)settings.integer("autoCapHours");
    (void)settings.string("phone.secret");
    settings.setBool("lockOnLidClose", false);  // writes the file back, other members included
    duskwell::JsonFileSettings again(file());
    if (again.boolean("lockOnLidClose") != false) __builtin_trap();
    return 0;
}
