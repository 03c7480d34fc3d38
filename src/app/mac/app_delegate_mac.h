#pragma once
// The application delegate of Duskwell.app (Objective-C++). It owns the one controller and
// renders the core's view models; every control hands its Action back to perform(). The
// real services must be installed before the delegate is created (duskwell_main_mac.mm).
#import <AppKit/AppKit.h>

#include "app/action.h"
#include "core/awake_controller.h"

@interface AppDelegate : NSObject <NSApplicationDelegate, NSPopoverDelegate, NSMenuDelegate>
- (duskwell::AwakeController&)controller;
// Performs an action and carries out what the outcome asks of the shell. Main thread.
- (void)performAction:(const duskwell::Action&)action;
- (void)showPopover;
@end

// A button or menu item that carries its action (a C++ value) back to the delegate.
// Controls hold their targets weakly: whoever builds the control keeps the target alive.
@interface DWActionTarget : NSObject
- (instancetype)initWithAction:(const duskwell::Action&)action delegate:(AppDelegate*)delegate;
- (void)fire:(id)sender;
@end

// The popover's content, drawn from PopoverModel. Main thread.
@interface DWPopoverViewController : NSViewController
- (instancetype)initWithDelegate:(AppDelegate*)delegate;
// Rebuilds the page now if its model changed since the last build.
- (void)reload;
// Reloads on a later turn of the run loop in its default mode: never while a control tracks
// the mouse or a menu is open, once for any number of calls in between.
- (void)scheduleReload;
@end
