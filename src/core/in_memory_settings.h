#pragma once
#include "core/settings_store.h"

namespace duskwell {

// Settings held in memory, with registered defaults behind the stored values. The Linux
// settings file builds on it; tests use it directly.
class InMemorySettings : public SettingsStore {
public:
    void registerDefaults(const std::map<std::string, SettingValue>& defaults) override;
    std::optional<std::int64_t> integer(const std::string& key) const override;
    std::optional<bool> boolean(const std::string& key) const override;
    std::optional<std::string> string(const std::string& key) const override;
    void setInteger(const std::string& key, std::int64_t value) override;
    void setBool(const std::string& key, bool value) override;
    void setString(const std::string& key, const std::string& value) override;
    void remove(const std::string& key) override;

    const std::map<std::string, SettingValue>& stored() const { return values_; }
    void replaceStored(std::map<std::string, SettingValue> values) { values_ = std::move(values); }

protected:
    // Called after every change of the stored values.
    virtual void changed() {}

private:
    const SettingValue* find(const std::string& key) const;
    std::map<std::string, SettingValue> defaults_;
    std::map<std::string, SettingValue> values_;
};

}  // namespace duskwell
