#pragma once
#include "core/settings_store.h"

namespace duskwell {

// The standard user defaults (NSUserDefaults). Numbers answer integer and boolean reads;
// a value of another type answers nothing.
class UserDefaultsSettings final : public SettingsStore {
public:
    void registerDefaults(const std::map<std::string, SettingValue>& defaults) override;
    std::optional<std::int64_t> integer(const std::string& key) const override;
    std::optional<bool> boolean(const std::string& key) const override;
    std::optional<std::string> string(const std::string& key) const override;
    void setInteger(const std::string& key, std::int64_t value) override;
    void setBool(const std::string& key, bool value) override;
    void setString(const std::string& key, const std::string& value) override;
    void remove(const std::string& key) override;
};

}  // namespace duskwell
