#include "core/in_memory_settings.h"

namespace duskwell {

void InMemorySettings::registerDefaults(const std::map<std::string, SettingValue>& defaults) {
    for (const auto& [k, v] : defaults) defaults_[k] = v;
}

const SettingValue* InMemorySettings::find(const std::string& key) const {
    if (auto it = values_.find(key); it != values_.end()) return &it->second;
    if (auto it = defaults_.find(key); it != defaults_.end()) return &it->second;
    return nullptr;
}

std::optional<std::int64_t> InMemorySettings::integer(const std::string& key) const {
    const auto* v = find(key);
    if (!v) return std::nullopt;
    if (const auto* i = std::get_if<std::int64_t>(v)) return *i;
    if (const auto* b = std::get_if<bool>(v)) return *b ? 1 : 0;  // as NSUserDefaults does
    return std::nullopt;
}

std::optional<bool> InMemorySettings::boolean(const std::string& key) const {
    const auto* v = find(key);
    if (!v) return std::nullopt;
    if (const auto* b = std::get_if<bool>(v)) return *b;
    if (const auto* i = std::get_if<std::int64_t>(v)) return *i != 0;
    return std::nullopt;
}

std::optional<std::string> InMemorySettings::string(const std::string& key) const {
    const auto* v = find(key);
    if (!v) return std::nullopt;
    if (const auto* s = std::get_if<std::string>(v)) return *s;
    return std::nullopt;
}

void InMemorySettings::setInteger(const std::string& key, std::int64_t value) { values_[key] = value; changed(); }
void InMemorySettings::setBool(const std::string& key, bool value) { values_[key] = value; changed(); }
void InMemorySettings::setString(const std::string& key, const std::string& value) { values_[key] = value; changed(); }
void InMemorySettings::remove(const std::string& key) {
    if (values_.erase(key) > 0) changed();
}

}  // namespace duskwell
