#import <AppKit/AppKit.h>
#import <CoreImage/CoreImage.h>

#include <algorithm>
#include <cmath>

#include "phone/qr_code.h"

namespace duskwell {
namespace {

CIImage* generate(std::string_view text, duskwell::QrLevel level = duskwell::QrLevel::medium) {
    CIFilter* filter = [CIFilter filterWithName:@"CIQRCodeGenerator"];
    if (filter == nil) return nil;
    [filter setValue:[NSData dataWithBytes:text.data() length:text.size()] forKey:@"inputMessage"];
    [filter setValue:(level == duskwell::QrLevel::low ? @"L" : @"M") forKey:@"inputCorrectionLevel"];
    return filter.outputImage;
}

}  // namespace

void* qrImage(std::string_view text, double size) {
    @autoreleasepool {
        CIImage* output = generate(text);
        if (output == nil) return nullptr;
        // A 2x backing of whole pixels per module, sampled nearest: sharp module edges on
        // high-density screens. The code is centred on light ground to fill the backing.
        const CGRect extent = output.extent;
        const double pixels = 2 * size;
        const double factor = std::max(1.0, std::floor(pixels / extent.size.width));
        CIImage* scaled = [[output imageBySamplingNearest]
            imageByApplyingTransform:CGAffineTransformMakeScale(factor, factor)];
        const double inset = std::max(0.0, std::floor((pixels - scaled.extent.size.width) / 2));
        CIImage* centred = [scaled imageByApplyingTransform:CGAffineTransformMakeTranslation(
                                       inset - scaled.extent.origin.x, inset - scaled.extent.origin.y)];
        CIImage* ground = [CIImage imageWithColor:[CIColor colorWithRed:1 green:1 blue:1]];
        CIImage* framed = [[centred imageByCompositingOverImage:ground]
            imageByCroppingToRect:CGRectMake(0, 0, std::max(pixels, scaled.extent.size.width),
                                             std::max(pixels, scaled.extent.size.height))];
        NSCIImageRep* rep = [NSCIImageRep imageRepWithCIImage:framed];
        NSImage* image = [[NSImage alloc] initWithSize:NSMakeSize(size, size)];
        [image addRepresentation:rep];
        return const_cast<void*>(CFBridgingRetain(image));
    }
}

// The terminal command on macOS reads Core Image's modules back from a grey bitmap, one
// pixel per module, and drops the generator's own light margin.
std::optional<QrCode> makeQrCode(std::string_view text, QrLevel level) {
    @autoreleasepool {
        CIImage* output = generate(text, level);
        if (output == nil) return std::nullopt;
        CIContext* context = [CIContext contextWithOptions:nil];
        CGImageRef cg = [context createCGImage:output fromRect:output.extent];
        if (cg == nullptr) return std::nullopt;
        const size_t w = CGImageGetWidth(cg), h = CGImageGetHeight(cg);
        std::vector<unsigned char> pixels(w * h, 255);
        CGColorSpaceRef gray = CGColorSpaceCreateDeviceGray();
        CGContextRef bitmap =
            CGBitmapContextCreate(pixels.data(), w, h, 8, w, gray, static_cast<uint32_t>(kCGImageAlphaNone));
        CGColorSpaceRelease(gray);
        if (bitmap == nullptr) {
            CGImageRelease(cg);
            return std::nullopt;
        }
        // Row 0 of `pixels` is the top of the picture.
        CGContextDrawImage(bitmap, CGRectMake(0, 0, static_cast<CGFloat>(w), static_cast<CGFloat>(h)), cg);
        CGContextRelease(bitmap);
        CGImageRelease(cg);

        size_t minX = w, minY = h, maxX = 0, maxY = 0;
        for (size_t y = 0; y < h; ++y)
            for (size_t x = 0; x < w; ++x)
                if (pixels[y * w + x] < 128) {
                    minX = std::min(minX, x); maxX = std::max(maxX, x);
                    minY = std::min(minY, y); maxY = std::max(maxY, y);
                }
        if (minX > maxX || minY > maxY) return std::nullopt;
        QrCode code;
        code.width = static_cast<int>(std::max(maxX - minX, maxY - minY) + 1);
        code.dark.assign(static_cast<size_t>(code.width * code.width), false);
        for (int y = 0; y < code.width; ++y)
            for (int x = 0; x < code.width; ++x) {
                const size_t px = minX + static_cast<size_t>(x), py = minY + static_cast<size_t>(y);
                if (px < w && py < h) code.dark[static_cast<size_t>(y * code.width + x)] = pixels[py * w + px] < 128;
            }
        return code;
    }
}

}  // namespace duskwell
