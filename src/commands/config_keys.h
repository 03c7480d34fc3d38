#pragma once
// The settings the terminal command reads and changes (`duskwell config`): one row per
// control of the settings page, with its values and their checks. The same table serves the
// running app (through the control socket) and the command itself when no app runs.
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace duskwell {

class SettingsStore;

namespace ConfigKeys {

enum class Kind {
    onOff,   // on|off (also true/false, yes/no, 1/0); a JSON boolean
    number,  // a whole number within [min, max], or one of `choices` when given
    word,    // one of `words`; a JSON string
    url,     // an http(s) address, or "" for the default; a JSON string
};

struct Key {
    std::string name;         // "timer-minutes"
    std::string settingsKey;  // where the store keeps it; empty when `read`/`write` do
    Kind kind = Kind::onOff;
    nlohmann::json fallback;  // the value before anyone set it
    long long min = 0, max = 0;
    std::vector<long long> choices;
    std::vector<std::string> words;  // for `word`: stored by index
    std::string en, ko;               // what it is, for `config --help` and `config get`
    // Only the running app can change it (the login item names the app's own program).
    bool needsApp = false;
    // Keys that live outside the settings store (the login item).
    std::function<nlohmann::json()> read;
    std::function<std::optional<std::string>(const nlohmann::json&)> write;  // the error text
};

const std::vector<Key>& all();
const Key* find(std::string_view name);

// The checked value of `text` for `key`, or the reason it was refused (in the app's language).
std::variant<nlohmann::json, std::string> parse(const Key& key, std::string_view text);

nlohmann::json read(const Key& key, const SettingsStore& store);
// Every key by name.
nlohmann::json readAll(const SettingsStore& store);
// Stores a value `parse` accepted; the error text when a key with its own writer failed.
std::optional<std::string> write(const Key& key, SettingsStore& store, const nlohmann::json& value);

// "on"/"off" for booleans, numbers and words as they are: how `config get KEY` prints.
std::string display(const nlohmann::json& value);

}  // namespace ConfigKeys
}  // namespace duskwell
