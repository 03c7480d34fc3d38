#import <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <dlfcn.h>

#include <algorithm>
#include <mutex>

#include "power/command_runner.h"
#include "power/power_sources_mac.h"
#include "power/system_info.h"

namespace duskwell {
namespace {

std::optional<PowerValue> valueFrom(CFTypeRef v) {
    if (!v) return std::nullopt;
    const CFTypeID type = CFGetTypeID(v);
    if (type == CFBooleanGetTypeID()) return PowerValue(static_cast<bool>(CFBooleanGetValue(static_cast<CFBooleanRef>(v))));
    if (type == CFNumberGetTypeID()) {
        const auto n = static_cast<CFNumberRef>(v);
        if (CFNumberIsFloatType(n)) {
            double d = 0;
            CFNumberGetValue(n, kCFNumberDoubleType, &d);
            return PowerValue(d);
        }
        std::int64_t i = 0;
        CFNumberGetValue(n, kCFNumberSInt64Type, &i);
        return PowerValue(i);
    }
    if (type == CFStringGetTypeID()) {
        NSString* s = (__bridge NSString*)v;
        const char* utf8 = s.UTF8String;
        return PowerValue(std::string(utf8 ? utf8 : ""));
    }
    return std::nullopt;  // arrays, data, dictionaries: not needed
}

void addEntry(const void* key, const void* value, void* context) {
    auto& d = *static_cast<PowerSourceDescription*>(context);
    if (!key || CFGetTypeID(key) != CFStringGetTypeID()) return;
    const char* k = ((__bridge NSString*)key).UTF8String;
    if (!k) return;
    if (auto v = valueFrom(value)) d[k] = *v;
}

using LockFunction = void (*)();

LockFunction lockFunction() {
    static std::once_flag once;
    static LockFunction fn = nullptr;
    std::call_once(once, [] {
        // Opened once and never closed; either step may fail on a future system.
        void* lib = dlopen("/System/Library/PrivateFrameworks/login.framework/Versions/Current/login", RTLD_LAZY);
        if (lib) fn = reinterpret_cast<LockFunction>(dlsym(lib, "SACLockScreenImmediate"));
    });
    return fn;
}

}  // namespace

struct MacPowerSources::Impl {
    id thermalObserver = nil;
};

MacPowerSources::MacPowerSources() : impl_(std::make_unique<Impl>()) {}

MacPowerSources::~MacPowerSources() {
    if (impl_->thermalObserver) [NSNotificationCenter.defaultCenter removeObserver:impl_->thermalObserver];
}

std::optional<std::vector<PowerSourceDescription>> MacPowerSources::powerSources() {
    CFTypeRef info = IOPSCopyPowerSourcesInfo();
    if (!info) return std::nullopt;
    CFArrayRef list = IOPSCopyPowerSourcesList(info);
    if (!list || CFGetTypeID(list) != CFArrayGetTypeID()) {
        if (list) CFRelease(list);
        CFRelease(info);
        return std::nullopt;
    }
    std::vector<PowerSourceDescription> out;
    const CFIndex count = CFArrayGetCount(list);
    for (CFIndex i = 0; i < count; ++i) {
        // Not owned: the description lives as long as `info`.
        CFDictionaryRef d = IOPSGetPowerSourceDescription(info, CFArrayGetValueAtIndex(list, i));
        if (!d || CFGetTypeID(d) != CFDictionaryGetTypeID()) continue;
        PowerSourceDescription desc;
        CFDictionaryApplyFunction(d, addEntry, &desc);
        out.push_back(std::move(desc));
    }
    CFRelease(list);
    CFRelease(info);
    return out;
}

std::optional<bool> MacPowerSources::lidClosed() {
    // MACH_PORT_NULL is the default main port on every supported release.
    io_service_t root = IOServiceGetMatchingService(MACH_PORT_NULL, IOServiceMatching("IOPMrootDomain"));
    if (!root) return std::nullopt;
    CFTypeRef v = IORegistryEntryCreateCFProperty(root, CFSTR("AppleClamshellState"), kCFAllocatorDefault, 0);
    IOObjectRelease(root);
    if (!v) return std::nullopt;
    std::optional<bool> closed;
    if (CFGetTypeID(v) == CFBooleanGetTypeID()) closed = CFBooleanGetValue(static_cast<CFBooleanRef>(v));
    CFRelease(v);
    return closed;
}

std::optional<std::vector<DisplayInfo>> MacPowerSources::onlineDisplays() {
    CGDirectDisplayID ids[16];
    uint32_t count = 0;
    if (CGGetOnlineDisplayList(16, ids, &count) != kCGErrorSuccess) return std::nullopt;
    std::vector<DisplayInfo> out;
    for (uint32_t i = 0; i < std::min<uint32_t>(count, 16); ++i)
        out.push_back({CGDisplayIsBuiltin(ids[i]) != 0, CGDisplayIsAsleep(ids[i]) != 0, CGDisplayIsActive(ids[i]) != 0});
    return out;
}

void MacPowerSources::displaySleepNow() { runCommand("/usr/bin/pmset", {"displaysleepnow"}); }

int MacPowerSources::thermalState() {
    return std::clamp(static_cast<int>(NSProcessInfo.processInfo.thermalState), 0, 3);
}

void MacPowerSources::observeThermalState(std::function<void(int)> onChange) {
    if (impl_->thermalObserver) [NSNotificationCenter.defaultCenter removeObserver:impl_->thermalObserver];
    impl_->thermalObserver = nil;
    if (!onChange) return;
    // The notification arrives on whichever thread changed the state; hop to the main queue.
    impl_->thermalObserver = [NSNotificationCenter.defaultCenter
        addObserverForName:NSProcessInfoThermalStateDidChangeNotification
                    object:nil
                     queue:nil
                usingBlock:^(NSNotification*) {
                  dispatch_async(dispatch_get_main_queue(), ^{
                    onChange(std::clamp(static_cast<int>(NSProcessInfo.processInfo.thermalState), 0, 3));
                  });
                }];
}

bool MacPowerSources::sleepDisabled() {
    return SystemInfo::parseSleepDisabled(runCommand("/usr/bin/pmset", {"-g"}).output);
}

std::optional<int> MacPowerSources::batterySetting(const std::string& key) {
    return SystemInfo::parseBatterySetting(runCommand("/usr/bin/pmset", {"-g", "custom"}).output, key);
}

std::optional<std::uint32_t> MacPowerSources::createIdleAssertion(const std::string& name) {
    CFStringRef cfName = CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8);
    if (!cfName) return std::nullopt;
    IOPMAssertionID assertion = 0;
    const IOReturn r = IOPMAssertionCreateWithName(kIOPMAssertionTypePreventUserIdleSystemSleep,
                                                   kIOPMAssertionLevelOn, cfName, &assertion);
    CFRelease(cfName);
    if (r != kIOReturnSuccess) return std::nullopt;
    return static_cast<std::uint32_t>(assertion);
}

void MacPowerSources::releaseIdleAssertion(std::uint32_t id) { IOPMAssertionRelease(static_cast<IOPMAssertionID>(id)); }

bool MacPowerSources::screenLockAvailable() { return lockFunction() != nullptr; }

void MacPowerSources::lockScreen() {
    if (auto fn = lockFunction()) fn();
}

}  // namespace duskwell
