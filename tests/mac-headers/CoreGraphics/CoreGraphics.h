// Stand-in (see objc/NSObject.h): the Core Graphics calls Duskwell uses. CGRect and friends
// live in the Foundation stand-in, as Foundation re-exports them on the Mac.
#pragma once
#include <Foundation/Foundation.h>

typedef struct CGAffineTransform { CGFloat a, b, c, d, tx, ty; } CGAffineTransform;
typedef struct CGImage* CGImageRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGContext* CGContextRef;
typedef uint32_t CGDirectDisplayID;
typedef int32_t CGError;
typedef int boolean_t;
enum { kCGErrorSuccess = 0 };
typedef enum : uint32_t { kCGImageAlphaNone = 0 } CGImageAlphaInfo;

extern "C" {
inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    return CGRect{{x, y}, {width, height}};
}
CGAffineTransform CGAffineTransformMakeScale(CGFloat sx, CGFloat sy);
CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
void CGImageRelease(CGImageRef image);
CGColorSpaceRef CGColorSpaceCreateDeviceGray(void) CF_RETURNS_RETAINED;
void CGColorSpaceRelease(CGColorSpaceRef space);
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, CGColorSpaceRef space, uint32_t bitmapInfo) CF_RETURNS_RETAINED;
void CGContextDrawImage(CGContextRef c, CGRect rect, CGImageRef image);
void CGContextRelease(CGContextRef c);
CGError CGGetOnlineDisplayList(uint32_t maxDisplays, CGDirectDisplayID* onlineDisplays, uint32_t* displayCount);
boolean_t CGDisplayIsBuiltin(CGDirectDisplayID display);
boolean_t CGDisplayIsAsleep(CGDirectDisplayID display);
boolean_t CGDisplayIsActive(CGDirectDisplayID display);
}
