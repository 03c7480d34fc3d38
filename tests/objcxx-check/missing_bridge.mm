// expect: error: cast of C pointer type 'CFStringRef'.* requires a bridged cast
// A Core Foundation string read as an object without __bridge: ARC cannot tell who owns it.
#import <Foundation/Foundation.h>

const char* utf8(CFStringRef key) { return ((NSString*)key).UTF8String; }
