#pragma once
// The application delegate of Duskwell.app (Objective-C++). It owns the one controller and
// renders the core's view models; every control hands its Action back to perform().
#import <AppKit/AppKit.h>

#include <memory>

#include "app/action.h"
#include "core/awake_controller.h"

// Installs the real platform services (clock, dispatcher, commands, power, settings,
// platform, HTTP, processes) for the life of the process. Provided by the macOS platform
// layer; the returned object uninstalls them when destroyed.
namespace duskwell {
std::shared_ptr<void> installMacPlatformServices();
}

@interface AppDelegate : NSObject <NSApplicationDelegate, NSPopoverDelegate, NSMenuDelegate>
- (duskwell::AwakeController&)controller;
// Performs an action and carries out what the outcome asks of the shell.
- (void)performAction:(const duskwell::Action&)action;
- (void)showPopover;
@end

// A button or menu item that carries its action (a C++ value) back to the delegate.
@interface DWActionTarget : NSObject
- (instancetype)initWithAction:(const duskwell::Action&)action delegate:(AppDelegate*)delegate;
- (void)fire:(id)sender;
@end

// The popover's content: rebuilt from PopoverModel on every controller change.
@interface DWPopoverViewController : NSViewController
- (instancetype)initWithDelegate:(AppDelegate*)delegate;
- (void)reload;
@end
