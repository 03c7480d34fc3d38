#include "core/json_file_settings.h"

#include "commands/atomic_file.h"
#include "core/strict_json.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace fs = std::filesystem;
using nlohmann::json;

namespace duskwell {

JsonFileSettings::JsonFileSettings(std::string path) : path_(std::move(path)) { load(); }
JsonFileSettings::~JsonFileSettings() = default;

void JsonFileSettings::load() {
    std::ifstream in(path_, std::ios::binary);
    if (!in) return;  // no file yet: the defaults apply
    std::ostringstream text;
    text << in.rdbuf();
    in.close();

    // Deep nesting counts as damage too: copying or printing it would overflow the stack at
    // every start.
    const StrictJson parsed = parseStrictJson(text.str());
    const json& doc = parsed.value;
    if (!parsed.ok() || !doc.is_object()) {
        // Keep the user's bytes for inspection rather than overwriting them on the next set.
        std::error_code ec;
        fs::rename(path_, path_ + ".corrupt", ec);
        return;
    }

    std::map<std::string, SettingValue> values;
    json untouched = json::object();
    for (const auto& [key, value] : doc.items()) {
        if (value.is_boolean()) values[key] = value.get<bool>();
        else if (value.is_number_integer()) values[key] = value.get<std::int64_t>();
        else if (value.is_string()) values[key] = value.get<std::string>();
        else untouched[key] = value;
    }
    replaceStored(std::move(values));
    untouched_ = untouched.dump(-1, ' ', false, json::error_handler_t::replace);
}

void JsonFileSettings::changed() {
    json doc = untouched_.empty() ? json::object() : json::parse(untouched_, nullptr, false);
    if (!doc.is_object()) doc = json::object();
    for (const auto& [key, value] : stored())
        std::visit([&, k = key](const auto& v) { doc[k] = v; }, value);

    // It holds the phone channel's secret: private from the first byte.
    const fs::path target(path_);
    bool ok = !createPrivateDirectories(target.parent_path().string());
    if (ok) ok = !replaceFile(path_, doc.dump(2, ' ', false, json::error_handler_t::replace) + "\n", 0600, ExistingFile::replace);
    lastWriteOk_ = ok;
}

}  // namespace duskwell
