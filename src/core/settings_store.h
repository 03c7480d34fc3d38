#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace duskwell {

using SettingValue = std::variant<bool, std::int64_t, std::string>;

// The user's settings (NSUserDefaults on macOS, ~/.duskwell/settings.json on Linux).
// Getters fall back to the registered defaults and answer nothing for a key that is
// neither stored nor registered, or that holds another type.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    virtual void registerDefaults(const std::map<std::string, SettingValue>& defaults) = 0;
    virtual std::optional<std::int64_t> integer(const std::string& key) const = 0;
    virtual std::optional<bool> boolean(const std::string& key) const = 0;
    virtual std::optional<std::string> string(const std::string& key) const = 0;
    virtual void setInteger(const std::string& key, std::int64_t value) = 0;
    virtual void setBool(const std::string& key, bool value) = 0;
    virtual void setString(const std::string& key, const std::string& value) = 0;
    virtual void remove(const std::string& key) = 0;
};

}  // namespace duskwell
