// DuskwellMain: the process entry of Duskwell.app.
#import <AppKit/AppKit.h>

#include "app_delegate_mac.h"

int main(int argc, const char* argv[]) {
    (void)argc;
    (void)argv;
    @autoreleasepool {
        // Services first: the delegate creates the controller, which reads them at once.
        static std::shared_ptr<void> services = duskwell::installMacPlatformServices();
        NSApplication* app = [NSApplication sharedApplication];
        static AppDelegate* delegate = [[AppDelegate alloc] init];
        app.delegate = delegate;
        // No Dock icon and no menu bar of its own (LSUIElement says the same for the bundle).
        [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
        [app run];
    }
    return 0;
}
