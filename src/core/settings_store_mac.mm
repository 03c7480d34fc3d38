#import <Foundation/Foundation.h>

#include "core/settings_store_mac.h"

namespace duskwell {
namespace {

NSString* ns(const std::string& s) { return [NSString stringWithUTF8String:s.c_str()] ?: @""; }
NSUserDefaults* defaults() { return NSUserDefaults.standardUserDefaults; }

}  // namespace

void UserDefaultsSettings::registerDefaults(const std::map<std::string, SettingValue>& values) {
    NSMutableDictionary* dict = [NSMutableDictionary dictionary];
    for (const auto& [key, value] : values) {
        id object = nil;
        if (const auto* b = std::get_if<bool>(&value)) object = @(*b);
        else if (const auto* i = std::get_if<std::int64_t>(&value)) object = @(static_cast<long long>(*i));
        else if (const auto* s = std::get_if<std::string>(&value)) object = ns(*s);
        if (object) dict[ns(key)] = object;
    }
    [defaults() registerDefaults:dict];
}

std::optional<std::int64_t> UserDefaultsSettings::integer(const std::string& key) const {
    id object = [defaults() objectForKey:ns(key)];
    if (![object isKindOfClass:NSNumber.class]) return std::nullopt;
    return static_cast<std::int64_t>([(NSNumber*)object longLongValue]);
}

std::optional<bool> UserDefaultsSettings::boolean(const std::string& key) const {
    id object = [defaults() objectForKey:ns(key)];
    if (![object isKindOfClass:NSNumber.class]) return std::nullopt;
    return static_cast<bool>([(NSNumber*)object boolValue]);
}

std::optional<std::string> UserDefaultsSettings::string(const std::string& key) const {
    id object = [defaults() objectForKey:ns(key)];
    if (![object isKindOfClass:NSString.class]) return std::nullopt;
    const char* utf8 = [(NSString*)object UTF8String];
    return std::string(utf8 ? utf8 : "");
}

void UserDefaultsSettings::setInteger(const std::string& key, std::int64_t value) {
    [defaults() setObject:@(static_cast<long long>(value)) forKey:ns(key)];
}

void UserDefaultsSettings::setBool(const std::string& key, bool value) { [defaults() setBool:value forKey:ns(key)]; }

void UserDefaultsSettings::setString(const std::string& key, const std::string& value) {
    [defaults() setObject:ns(value) forKey:ns(key)];
}

void UserDefaultsSettings::remove(const std::string& key) { [defaults() removeObjectForKey:ns(key)]; }

}  // namespace duskwell
