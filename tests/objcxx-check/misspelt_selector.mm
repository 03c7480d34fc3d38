// expect: error: undeclared selector 'fier:'
// A target-action pair whose selector is misspelt: the click would go nowhere, silently.
#import <AppKit/AppKit.h>

@interface Target : NSObject
- (void)fire:(id)sender;
@end

void wire(NSButton* button, Target* target) {
    button.target = target;
    button.action = @selector(fier:);
}
