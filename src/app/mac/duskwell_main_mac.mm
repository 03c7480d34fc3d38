// DuskwellMain: the process entry of Duskwell.app, its composition root. The real services
// run on the main dispatch queue, which the application's run loop drains; they are
// installed before the delegate creates the controller, which reads them at once.
#import <AppKit/AppKit.h>

#include <csignal>

#include "app_delegate_mac.h"
#include "core/dispatch_dispatcher.h"
#include "core/real_services.h"

int main(int argc, const char* argv[]) {
    (void)argc;
    (void)argv;
    // A peer that hangs up on the control socket must not kill us.
    std::signal(SIGPIPE, SIG_IGN);

    // Locals of main live as long as the process: -[NSApplication run] never returns (quit,
    // power-off and the signal handlers end the process with exit, after the stop), and exit
    // does not unwind this frame, so nothing here is torn down behind the controller's back.
    duskwell::DispatchDispatcher dispatcher;
    duskwell::RealServices services(dispatcher);

    @autoreleasepool {
        NSApplication* app = [NSApplication sharedApplication];
        // The application holds its delegate weakly; this reference keeps it (and with it the
        // controller) alive, and must not be released early by ARC.
        NS_VALID_UNTIL_END_OF_SCOPE AppDelegate* delegate = [[AppDelegate alloc] init];
        app.delegate = delegate;
        // No Dock icon and no menu bar of its own (LSUIElement says the same for the bundle).
        [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
        [app run];
    }
    return 0;
}
