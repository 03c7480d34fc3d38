// Stand-in headers for the Objective-C++ syntax check (scripts/check-objcxx): only what
// Duskwell calls, declared as Apple's documentation gives it; nothing here comes from an SDK.
// The runtime's root class and the names every framework assumes.
#pragma once
#include <stddef.h>
#include <stdint.h>

typedef bool BOOL;  // arm64 macOS
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double CGFloat;

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_REQUIRES_NIL_TERMINATION __attribute__((sentinel(0, 1)))
#define NS_FORMAT_FUNCTION(F, A) __attribute__((format(__NSString__, F, A)))
#define NS_VALID_UNTIL_END_OF_SCOPE __attribute__((objc_precise_lifetime))
#define NS_ENUM(type, name) enum name : type name; enum name : type
#define NS_OPTIONS(type, name) type name; enum : type

NS_ASSUME_NONNULL_BEGIN
@class NSString;

@protocol NSObject
- (BOOL)isKindOfClass:(Class)aClass;
@property(readonly, copy) NSString* description;
@end

@interface NSObject <NSObject>
+ (instancetype)alloc;
+ (Class)class;
- (instancetype)init;
- (id)copy;
@end
NS_ASSUME_NONNULL_END
