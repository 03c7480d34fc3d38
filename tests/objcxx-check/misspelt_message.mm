// expect: error: no visible @interface for 'NSButton' declares the selector 'setButonType:'
// A misspelt message to a known class: an exception at run time on the Mac.
#import <AppKit/AppKit.h>

void push(NSButton* button) { [button setButonType:NSButtonTypePushOnPushOff]; }
