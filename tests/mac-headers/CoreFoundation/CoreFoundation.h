// Stand-in (see objc/NSObject.h): Core Foundation types and calls Duskwell uses.
#pragma once
#include <objc/NSObject.h>

typedef unsigned char Boolean;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef uint32_t CFStringEncoding;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;

#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
#define CF_CONSUMED __attribute__((cf_consumed))
#define CFSTR(s) ((CFStringRef)__builtin___CFStringMakeConstantString("" s ""))

extern "C" {
extern const CFAllocatorRef kCFAllocatorDefault;
enum { kCFStringEncodingUTF8 = 0x08000100 };
typedef enum : CFIndex { kCFNumberSInt64Type = 4, kCFNumberLongLongType = 11, kCFNumberDoubleType = 13 } CFNumberType;
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

void CFRelease(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);
CFTypeID CFArrayGetTypeID(void);
CFTypeID CFBooleanGetTypeID(void);
CFTypeID CFDictionaryGetTypeID(void);
CFTypeID CFNumberGetTypeID(void);
CFTypeID CFStringGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);
void CFDictionaryApplyFunction(CFDictionaryRef theDict, CFDictionaryApplierFunction applier, void* context);
Boolean CFBooleanGetValue(CFBooleanRef boolean);
Boolean CFNumberIsFloatType(CFNumberRef number);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr, CFStringEncoding encoding) CF_RETURNS_RETAINED;

extern const CFStringRef kCFPreferencesCurrentApplication;
Boolean CFPreferencesAppSynchronize(CFStringRef applicationID);
}

// Ownership moves between ARC and Core Foundation only through these (or a __bridge cast).
inline CF_RETURNS_RETAINED CFTypeRef CFBridgingRetain(id X) { return (__bridge_retained CFTypeRef)X; }
inline id CFBridgingRelease(CFTypeRef CF_CONSUMED X) { return (__bridge_transfer id)X; }
