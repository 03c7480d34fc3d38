// expect: error: cannot initialize a parameter of type 'NSView \*.*' with an lvalue of type 'NSString \*
// A string handed where the stack wants a view.
#import <AppKit/AppKit.h>

void add(NSStackView* stack, NSString* title) { [stack addArrangedSubview:title]; }
