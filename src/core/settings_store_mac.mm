#import <Foundation/Foundation.h>

#include "core/platform_mac.h"
#include "core/settings_store_mac.h"

namespace duskwell {
namespace {

NSString* ns(const std::string& s) {
    NSString* text = [NSString stringWithUTF8String:s.c_str()];
    return text != nil ? text : @"";
}

// The app keeps its settings in its own defaults domain. The terminal command is no bundle of
// that identifier, so its standard defaults would be a domain of its own: it opens the app's
// domain by name instead, so that `duskwell phone` sees what the app wrote.
NSUserDefaults* defaults() {
    static NSUserDefaults* const store = []() -> NSUserDefaults* {
        NSString* app = @(kMacBundleIdentifier);
        if ([NSBundle.mainBundle.bundleIdentifier isEqualToString:app]) return NSUserDefaults.standardUserDefaults;
        NSUserDefaults* suite = [[NSUserDefaults alloc] initWithSuiteName:app];
        return suite != nil ? suite : NSUserDefaults.standardUserDefaults;
    }();
    return store;
}

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
    if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
    return static_cast<std::int64_t>([(NSNumber*)object longLongValue]);
}

std::optional<bool> UserDefaultsSettings::boolean(const std::string& key) const {
    id object = [defaults() objectForKey:ns(key)];
    if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
    return static_cast<bool>([(NSNumber*)object boolValue]);
}

std::optional<std::string> UserDefaultsSettings::string(const std::string& key) const {
    id object = [defaults() objectForKey:ns(key)];
    if (![object isKindOfClass:[NSString class]]) return std::nullopt;
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
