// Stand-in (see objc/NSObject.h): the login item (macOS 13).
#pragma once
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN
typedef NS_ENUM(NSInteger, SMAppServiceStatus) {
    SMAppServiceStatusNotRegistered, SMAppServiceStatusEnabled, SMAppServiceStatusRequiresApproval,
    SMAppServiceStatusNotFound
};
__attribute__((availability(macos, introduced = 13.0)))
@interface SMAppService : NSObject
@property(class, readonly) SMAppService* mainAppService;
@property(readonly) SMAppServiceStatus status;
- (BOOL)registerAndReturnError:(NSError* _Nullable*)error;
- (BOOL)unregisterAndReturnError:(NSError* _Nullable*)error;
@end
NS_ASSUME_NONNULL_END
