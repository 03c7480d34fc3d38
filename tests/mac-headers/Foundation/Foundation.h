// Stand-in (see objc/NSObject.h): the Foundation classes and functions Duskwell uses.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

NS_ASSUME_NONNULL_BEGIN
@class NSArray<ObjectType>, NSDictionary<KeyType, ObjectType>, NSData, NSDate, NSError, NSURL, NSURLResponse;

typedef double NSTimeInterval;
typedef struct CGPoint { CGFloat x, y; } CGPoint;
typedef struct CGSize { CGFloat width, height; } CGSize;
typedef struct CGRect { CGPoint origin; CGSize size; } CGRect;
typedef CGSize NSSize;
typedef CGRect NSRect;
extern "C" const NSRect NSZeroRect;
inline NSSize NSMakeSize(CGFloat w, CGFloat h) { return NSSize{w, h}; }
typedef NS_ENUM(NSUInteger, NSRectEdge) { NSRectEdgeMinY = 1 };

typedef NSUInteger NSStringEncoding;
enum { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (nullable instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)len encoding:(NSStringEncoding)encoding;
@property(nullable, readonly) const char* UTF8String;
- (BOOL)isEqualToString:(NSString*)aString;
@property(readonly, copy) NSString* stringByDeletingLastPathComponent;
- (NSString*)stringByAppendingPathComponent:(NSString*)str;
@end
typedef NSString* NSNotificationName;
typedef NSString* NSRunLoopMode;

@interface NSNumber : NSObject
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithBool:(BOOL)value;
@property(readonly) int intValue;
@property(readonly) long long longLongValue;
@property(readonly) BOOL boolValue;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@property(readonly) NSUInteger count;
@end
@interface NSMutableArray<ObjectType> : NSArray<ObjectType>
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
+ (instancetype)arrayWithObjects:(ObjectType)firstObj, ... NS_REQUIRES_NIL_TERMINATION;
- (void)addObject:(ObjectType)anObject;
- (void)removeAllObjects;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const id _Nonnull[_Nullable])keys
                                count:(NSUInteger)cnt;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
@end
@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary<KeyType, ObjectType>
+ (instancetype)dictionary;
- (void)setObject:(nullable ObjectType)obj forKeyedSubscript:(KeyType)key;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@property(readonly) const void* bytes;
@property(readonly) NSUInteger length;
@end

@interface NSDate : NSObject
+ (instancetype)date;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* localizedDescription;
@end

@interface NSURL : NSObject
+ (nullable instancetype)URLWithString:(NSString*)URLString;
- (nullable NSURL*)URLByAppendingPathComponent:(NSString*)pathComponent;
@property(nullable, readonly, copy) NSString* path;
@property(nullable, readonly, copy) NSString* absoluteString;
@end

@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle* mainBundle;
@property(readonly, copy) NSURL* bundleURL;
@property(nullable, readonly, copy) NSString* bundleIdentifier;
@property(nullable, readonly, copy) NSString* executablePath;
- (nullable NSString*)pathForResource:(nullable NSString*)name ofType:(nullable NSString*)ext;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (BOOL)fileExistsAtPath:(NSString*)path;
@end

@interface NSLocale : NSObject
@property(class, readonly, copy) NSArray<NSString*>* preferredLanguages;
@end

@interface NSUUID : NSObject
+ (instancetype)UUID;
@property(readonly, copy) NSString* UUIDString;
@end

@interface NSUserDefaults : NSObject
@property(class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (nullable instancetype)initWithSuiteName:(nullable NSString*)suitename;
- (void)registerDefaults:(NSDictionary<NSString*, id>*)registrationDictionary;
- (nullable id)objectForKey:(NSString*)defaultName;
- (void)setObject:(nullable id)value forKey:(NSString*)defaultName;
- (void)setBool:(BOOL)value forKey:(NSString*)defaultName;
- (void)removeObjectForKey:(NSString*)defaultName;
@end

@interface NSNotification : NSObject
@end
@interface NSOperationQueue : NSObject
@property(class, readonly, strong) NSOperationQueue* mainQueue;
@end
@interface NSNotificationCenter : NSObject
@property(class, readonly, strong) NSNotificationCenter* defaultCenter;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)obj
                             queue:(nullable NSOperationQueue*)queue
                        usingBlock:(void (^)(NSNotification* notification))block;
- (void)removeObserver:(id)observer;
@end

typedef NS_ENUM(NSInteger, NSProcessInfoThermalState) {
    NSProcessInfoThermalStateNominal, NSProcessInfoThermalStateFair, NSProcessInfoThermalStateSerious,
    NSProcessInfoThermalStateCritical
};
extern "C" const NSNotificationName NSProcessInfoThermalStateDidChangeNotification;
@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly) NSProcessInfoThermalState thermalState;
@end

@class NSAppleEventDescriptor;
extern "C" NSString* const NSAppleScriptErrorMessage;
extern "C" NSString* const NSAppleScriptErrorNumber;
@interface NSAppleScript : NSObject
- (nullable instancetype)initWithSource:(NSString*)source;
- (NSAppleEventDescriptor*)executeAndReturnError:(NSDictionary<NSString*, id>* _Nullable* _Nullable)errorInfo;
@end

typedef NS_ENUM(NSUInteger, NSURLRequestCachePolicy) { NSURLRequestUseProtocolCachePolicy = 0 };
@interface NSURLRequest : NSObject
@end
@interface NSMutableURLRequest : NSURLRequest
+ (instancetype)requestWithURL:(NSURL*)URL
                   cachePolicy:(NSURLRequestCachePolicy)cachePolicy
               timeoutInterval:(NSTimeInterval)timeoutInterval;
@property(copy) NSString* HTTPMethod;
@property(nullable, copy) NSData* HTTPBody;
- (void)setValue:(nullable NSString*)value forHTTPHeaderField:(NSString*)field;
@end
@interface NSURLResponse : NSObject
@end
@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@end
@interface NSURLSessionTask : NSObject
- (void)resume;
@end
@interface NSURLSessionDataTask : NSURLSessionTask
@end
@interface NSURLSession : NSObject
@property(class, readonly, strong) NSURLSession* sharedSession;
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request
                           completionHandler:(void (^)(NSData* _Nullable data, NSURLResponse* _Nullable response,
                                                       NSError* _Nullable error))completionHandler;
@end

typedef NS_OPTIONS(NSUInteger, NSCalendarUnit) { NSCalendarUnitHour = 1UL << 5, NSCalendarUnitMinute = 1UL << 6 };
typedef NS_OPTIONS(NSUInteger, NSCalendarOptions){};
@interface NSDateComponents : NSObject
@property NSInteger hour;
@property NSInteger minute;
@end
@interface NSCalendar : NSObject
@property(class, readonly, copy) NSCalendar* currentCalendar;
- (NSDateComponents*)components:(NSCalendarUnit)unitFlags fromDate:(NSDate*)date;
- (nullable NSDate*)dateBySettingHour:(NSInteger)h
                               minute:(NSInteger)m
                               second:(NSInteger)s
                               ofDate:(NSDate*)date
                              options:(NSCalendarOptions)opts;
@end

extern "C" const NSRunLoopMode NSDefaultRunLoopMode;
@interface NSObject (DuskwellFoundationCategories)
- (void)performSelector:(SEL)aSelector
             withObject:(nullable id)anArgument
             afterDelay:(NSTimeInterval)delay
                inModes:(NSArray<NSRunLoopMode>*)modes;
- (void)setValue:(nullable id)value forKey:(NSString*)key;
@end

extern "C" {
void NSLog(NSString* format, ...) NS_FORMAT_FUNCTION(1, 2);
NSString* NSHomeDirectory(void);
NSString* NSUserName(void);
}
NS_ASSUME_NONNULL_END
