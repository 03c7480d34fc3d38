#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>
#import <UserNotifications/UserNotifications.h>
#include <unistd.h>

#include "core/platform_mac.h"
#include "power/power_helper.h"

namespace duskwell {
namespace {

NSString* ns(const std::string& s) {
    NSString* text = [NSString stringWithUTF8String:s.c_str()];
    return text != nil ? text : @"";
}
std::string str(NSString* s) {
    const char* utf8 = s.UTF8String;
    return utf8 ? utf8 : "";
}

}  // namespace

std::string MacPlatform::homeDirectory() const { return str(NSHomeDirectory()); }
std::string MacPlatform::userName() const { return str(NSUserName()); }
int MacPlatform::processId() const { return static_cast<int>(getpid()); }

std::vector<std::string> MacPlatform::preferredLanguages() const {
    std::vector<std::string> out;
    for (NSString* tag in NSLocale.preferredLanguages) out.push_back(str(tag));
    return out;
}

bool MacPlatform::canPostNotifications() const {
    NSURL* info = [NSBundle.mainBundle.bundleURL URLByAppendingPathComponent:@"Contents/Info.plist"];
    return info && [NSFileManager.defaultManager fileExistsAtPath:info.path];
}

std::string MacPlatform::bundleIdentifier() const {
    NSString* identifier = NSBundle.mainBundle.bundleIdentifier;
    return identifier ? str(identifier) : std::string(kMacBundleIdentifier);
}

std::optional<std::string> MacPlatform::resourcePath(const std::string& name) const {
    if (NSString* p = [NSBundle.mainBundle pathForResource:ns(name) ofType:nil]) return str(p);
    // A build tree: the programs sit beside the executable.
    NSString* exe = NSBundle.mainBundle.executablePath;
    if (exe) {
        NSString* beside = [exe.stringByDeletingLastPathComponent stringByAppendingPathComponent:ns(name)];
        if ([NSFileManager.defaultManager fileExistsAtPath:beside]) return str(beside);
    }
    return std::nullopt;
}

void MacPlatform::requestNotificationAuthorization() {
    if (!canPostNotifications()) return;  // the notification centre aborts outside a bundle
    [UNUserNotificationCenter.currentNotificationCenter
        requestAuthorizationWithOptions:(UNAuthorizationOptionAlert | UNAuthorizationOptionSound)
                      completionHandler:^(BOOL, NSError*) {}];
}

void MacPlatform::notificationPermission(std::function<void(NotificationPermission)> completion) {
    if (!completion) return;
    if (!canPostNotifications()) {
        completion(NotificationPermission::denied);
        return;
    }
    [UNUserNotificationCenter.currentNotificationCenter
        getNotificationSettingsWithCompletionHandler:^(UNNotificationSettings* settings) {
          switch (settings.authorizationStatus) {
              case UNAuthorizationStatusNotDetermined: completion(NotificationPermission::notDetermined); break;
              case UNAuthorizationStatusDenied: completion(NotificationPermission::denied); break;
              case UNAuthorizationStatusProvisional: completion(NotificationPermission::provisional); break;
              default: completion(NotificationPermission::authorized); break;
          }
        }];
}

void MacPlatform::postNotification(const std::string& title, const std::string& body) {
    if (!canPostNotifications()) return;
    UNMutableNotificationContent* content = [[UNMutableNotificationContent alloc] init];
    content.title = ns(title);
    content.body = ns(body);
    content.sound = UNNotificationSound.defaultSound;
    UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:NSUUID.UUID.UUIDString
                                                                          content:content
                                                                          trigger:nil];
    [UNUserNotificationCenter.currentNotificationCenter addNotificationRequest:request withCompletionHandler:nil];
}

bool MacPlatform::loginItemEnabled() const {
    if (@available(macOS 13.0, *)) return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
    return false;
}

std::optional<std::string> MacPlatform::setLoginItem(bool enabled) {
    if (@available(macOS 13.0, *)) {
        NSError* error = nil;
        SMAppService* service = SMAppService.mainAppService;
        const BOOL ok = enabled ? [service registerAndReturnError:&error] : [service unregisterAndReturnError:&error];
        if (ok) return std::nullopt;
        return error ? str(error.localizedDescription) : std::string("SMAppService failed");
    }
    return std::string("Launch at login needs macOS 13 or later.");
}

bool MacPlatform::openURL(const std::string& url) {
    NSURL* u = [NSURL URLWithString:ns(url)];
    return u && [NSWorkspace.sharedWorkspace openURL:u];
}

AdminResult MacPlatform::runAsAdmin(const std::string& script, const std::string& prompt) {
    // The one tested source: lines joined by "; ", quotes and backslashes escaped.
    NSAppleScript* apple = [[NSAppleScript alloc] initWithSource:ns(PowerHelper::adminScriptSource(script, prompt))];
    if (apple == nil) return {AdminOutcome::succeeded, {}};
    NSDictionary<NSString*, id>* error = nil;
    [apple executeAndReturnError:&error];
    if (error == nil) return {AdminOutcome::succeeded, {}};
    id number = error[NSAppleScriptErrorNumber];
    if ([number isKindOfClass:[NSNumber class]] && [(NSNumber*)number intValue] == -128) {
        return {AdminOutcome::cancelled, {}};  // Cancel in the password dialog
    }
    id message = error[NSAppleScriptErrorMessage];
    if ([message isKindOfClass:[NSString class]]) return {AdminOutcome::failed, str((NSString*)message)};
    return {AdminOutcome::failed, str(error.description)};
}

}  // namespace duskwell
