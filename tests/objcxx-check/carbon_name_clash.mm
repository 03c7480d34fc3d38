// expect: error: reference to 'Button' is ambiguous
// Our view models' Button against Carbon's global Button() once a using-directive meets it.
#include "app/controls.h"

#import <AppKit/AppKit.h>
#import <Carbon/Carbon.h>

using namespace duskwell;

bool prominent(const Button& b) { return b.style == ButtonStyle::prominent; }
