// Stand-in (see objc/NSObject.h): the Core Image calls behind the QR code.
#pragma once
#include <CoreGraphics/CoreGraphics.h>

NS_ASSUME_NONNULL_BEGIN
typedef NSString* CIContextOption;

@interface CIColor : NSObject
+ (instancetype)colorWithRed:(CGFloat)r green:(CGFloat)g blue:(CGFloat)b;
@end

@interface CIImage : NSObject
+ (CIImage*)imageWithColor:(CIColor*)color;
@property(readonly) CGRect extent;
- (CIImage*)imageByApplyingTransform:(CGAffineTransform)matrix;
- (CIImage*)imageBySamplingNearest;
- (CIImage*)imageByCompositingOverImage:(CIImage*)dest;
- (CIImage*)imageByCroppingToRect:(CGRect)rect;
@end

@interface CIFilter : NSObject
+ (nullable CIFilter*)filterWithName:(NSString*)name;
@property(readonly, nullable) CIImage* outputImage;
@end

@interface CIContext : NSObject
+ (CIContext*)contextWithOptions:(nullable NSDictionary<CIContextOption, id>*)options;
- (nullable CGImageRef)createCGImage:(CIImage*)image fromRect:(CGRect)fromRect CF_RETURNS_RETAINED;
@end
NS_ASSUME_NONNULL_END
