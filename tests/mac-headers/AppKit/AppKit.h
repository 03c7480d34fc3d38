// Stand-in (see objc/NSObject.h): the AppKit classes Duskwell's shell uses.
#pragma once
#include <CoreGraphics/CoreGraphics.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN
@class CIImage, NSEvent, NSMenu, NSWindow, NSLayoutDimension, NSImageRep, NSImageSymbolConfiguration;

typedef CGFloat NSFontWeight;
typedef NSString* NSAttributedStringKey;
typedef NSString* NSPasteboardType;
typedef NSInteger NSControlStateValue;
typedef NSInteger NSModalResponse;
static const NSModalResponse NSAlertFirstButtonReturn = 1000;
static const NSControlStateValue NSControlStateValueOff = 0;
static const NSControlStateValue NSControlStateValueOn = 1;
static const CGFloat NSVariableStatusItemLength = -1;

typedef struct NSEdgeInsets { CGFloat top, left, bottom, right; } NSEdgeInsets;
inline NSEdgeInsets NSEdgeInsetsMake(CGFloat top, CGFloat left, CGFloat bottom, CGFloat right) {
    return NSEdgeInsets{top, left, bottom, right};
}

typedef NS_ENUM(NSUInteger, NSEventType) {
    NSEventTypeLeftMouseDown = 1, NSEventTypeRightMouseDown = 3, NSEventTypeRightMouseUp = 4
};
typedef NS_OPTIONS(unsigned long long, NSEventMask) { NSEventMaskLeftMouseUp = 1ULL << 2, NSEventMaskRightMouseUp = 1ULL << 4 };
typedef NS_OPTIONS(NSUInteger, NSEventModifierFlags) { NSEventModifierFlagControl = 1 << 18 };
typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy) { NSApplicationActivationPolicyAccessory = 1 };
typedef NS_ENUM(NSUInteger, NSCellImagePosition) { NSImageLeading = 7 };
typedef NS_ENUM(NSUInteger, NSBezelStyle) { NSBezelStyleRecessed = 13 };
typedef NS_ENUM(NSUInteger, NSButtonType) { NSButtonTypePushOnPushOff = 1 };
typedef NS_ENUM(NSInteger, NSUserInterfaceLayoutOrientation) {
    NSUserInterfaceLayoutOrientationHorizontal = 0, NSUserInterfaceLayoutOrientationVertical = 1
};
typedef NS_ENUM(NSInteger, NSLayoutAttribute) { NSLayoutAttributeLeading = 5 };
typedef NS_ENUM(NSUInteger, NSProgressIndicatorStyle) { NSProgressIndicatorStyleBar = 0 };
typedef NS_OPTIONS(NSUInteger, NSDatePickerElementFlags) { NSDatePickerElementFlagHourMinute = 0x000c };
typedef NS_ENUM(NSInteger, NSPopoverBehavior) { NSPopoverBehaviorTransient = 1 };

extern "C" {
extern const NSFontWeight NSFontWeightSemibold;
extern const NSAttributedStringKey NSFontAttributeName;
extern const NSPasteboardType NSPasteboardTypeString;
extern const NSNotificationName NSWorkspaceWillPowerOffNotification;
}

@interface NSEvent : NSObject
@property(readonly) NSEventType type;
@property(readonly) NSEventModifierFlags modifierFlags;
@property(nullable, readonly, weak) NSWindow* window;
@end

@interface NSResponder : NSObject
@end

@interface NSLayoutConstraint : NSObject
@property(getter=isActive) BOOL active;
@end
@interface NSLayoutDimension : NSObject
- (NSLayoutConstraint*)constraintEqualToConstant:(CGFloat)c;
@end

@interface NSView : NSResponder
@property NSRect bounds;
@property(nullable, readonly) NSWindow* window;
@property(nullable, copy) NSString* toolTip;
@property(readonly) NSSize fittingSize;
@property(readonly, strong) NSLayoutDimension* widthAnchor;
@property(readonly, strong) NSLayoutDimension* heightAnchor;
- (void)removeFromSuperview;
@end

@interface NSWindow : NSResponder
- (void)makeKeyWindow;
@end

@interface NSImage : NSObject
+ (nullable instancetype)imageWithSystemSymbolName:(NSString*)name
                          accessibilityDescription:(nullable NSString*)description;
- (instancetype)initWithSize:(NSSize)size;
- (nullable NSImage*)imageWithSymbolConfiguration:(NSImageSymbolConfiguration*)configuration;
- (void)setTemplate:(BOOL)isTemplate;  // the property is `template`, a C++ keyword
- (void)addRepresentation:(NSImageRep*)imageRep;
@end
@interface NSImageSymbolConfiguration : NSObject
+ (instancetype)configurationWithPointSize:(CGFloat)pointSize weight:(NSFontWeight)weight;
@end
@interface NSImageRep : NSObject
@end
@interface NSCIImageRep : NSImageRep
+ (instancetype)imageRepWithCIImage:(CIImage*)image;
@end

@interface NSFont : NSObject
+ (NSFont*)systemFontOfSize:(CGFloat)fontSize;
+ (NSFont*)boldSystemFontOfSize:(CGFloat)fontSize;
+ (NSFont*)monospacedDigitSystemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight;
@end

@interface NSAttributedString : NSObject
- (instancetype)initWithString:(NSString*)str attributes:(nullable NSDictionary<NSAttributedStringKey, id>*)attrs;
@end

@interface NSControl : NSView
@property(nullable, weak) id target;
@property(nullable) SEL action;
@property(getter=isEnabled) BOOL enabled;
@property(nullable, strong) NSFont* font;
@property(copy) NSString* stringValue;
- (NSInteger)sendActionOn:(NSEventMask)mask;
@end

@interface NSButton : NSControl
+ (instancetype)buttonWithTitle:(NSString*)title target:(nullable id)target action:(nullable SEL)action;
@property(copy) NSString* title;
@property(copy) NSAttributedString* attributedTitle;
@property(nullable, strong) NSImage* image;
@property NSCellImagePosition imagePosition;
@property NSControlStateValue state;
@property(copy) NSString* keyEquivalent;
@property BOOL hasDestructiveAction;
@property NSBezelStyle bezelStyle;
- (void)setButtonType:(NSButtonType)type;
- (void)performClick:(nullable id)sender;
@end

@interface NSStatusBarButton : NSButton
@end

@interface NSMenuItem : NSObject
+ (NSMenuItem*)separatorItem;
- (instancetype)initWithTitle:(NSString*)string action:(nullable SEL)selector keyEquivalent:(NSString*)charCode;
@property(nullable, weak) id target;
@property(nullable) SEL action;
@property(getter=isEnabled) BOOL enabled;
@end

@protocol NSMenuDelegate <NSObject>
@optional
- (void)menuDidClose:(NSMenu*)menu;
@end
@interface NSMenu : NSObject
@property BOOL autoenablesItems;
@property(nullable, weak) id<NSMenuDelegate> delegate;
- (void)addItem:(NSMenuItem*)newItem;
@end

@interface NSPopUpButton : NSButton
- (instancetype)initWithFrame:(NSRect)buttonFrame pullsDown:(BOOL)flag;
- (void)addItemWithTitle:(NSString*)title;
@property(nullable, readonly, strong) NSMenuItem* lastItem;
- (void)selectItem:(nullable NSMenuItem*)item;
@end

@interface NSStatusItem : NSObject
@property(nullable, readonly, strong) NSStatusBarButton* button;
@property(nullable, strong) NSMenu* menu;
@end
@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
@end

@interface NSTextField : NSControl
+ (instancetype)wrappingLabelWithString:(NSString*)stringValue;
+ (instancetype)textFieldWithString:(NSString*)stringValue;
@property CGFloat preferredMaxLayoutWidth;
@property(nullable, copy) NSString* placeholderString;
@end
@interface NSSecureTextField : NSTextField
@end
@interface NSAlert : NSObject
@property(copy) NSString* messageText;
@property(copy) NSString* informativeText;
@property(nullable, strong) NSView* accessoryView;
- (NSButton*)addButtonWithTitle:(NSString*)title;
- (NSModalResponse)runModal;
@end
@interface NSImageView : NSControl
+ (instancetype)imageViewWithImage:(NSImage*)image;
@property(nullable, strong) NSImage* image;
@end
@interface NSSwitch : NSControl
@property NSControlStateValue state;
@end
@interface NSProgressIndicator : NSView
@property NSProgressIndicatorStyle style;
@property(getter=isIndeterminate) BOOL indeterminate;
@property double minValue;
@property double maxValue;
@property double doubleValue;
@end
@interface NSDatePicker : NSControl
@property NSDatePickerElementFlags datePickerElements;
@property(copy) NSDate* dateValue;
@end

@interface NSStackView : NSView
+ (instancetype)stackViewWithViews:(NSArray<NSView*>*)views;
@property NSUserInterfaceLayoutOrientation orientation;
@property NSLayoutAttribute alignment;
@property CGFloat spacing;
@property NSEdgeInsets edgeInsets;
@property(readonly, copy) NSArray<__kindof NSView*>* arrangedSubviews;
- (void)addArrangedSubview:(NSView*)view;
- (void)removeArrangedSubview:(NSView*)view;
@end

@interface NSViewController : NSResponder
- (instancetype)initWithNibName:(nullable NSString*)nibNameOrNil bundle:(nullable NSBundle*)nibBundleOrNil;
@property(strong) NSView* view;
- (void)loadView;
@property NSSize preferredContentSize;
@end

@class NSPopover;
@protocol NSPopoverDelegate <NSObject>
@optional
- (BOOL)popoverShouldClose:(NSPopover*)popover;
- (void)popoverWillShow:(NSNotification*)notification;
- (void)popoverDidClose:(NSNotification*)notification;
@end
@interface NSPopover : NSResponder
@property NSPopoverBehavior behavior;
@property(nullable, weak) id<NSPopoverDelegate> delegate;
@property BOOL animates;
@property(nullable, strong) NSViewController* contentViewController;
@property(readonly, getter=isShown) BOOL shown;
- (void)performClose:(nullable id)sender;
- (void)showRelativeToRect:(NSRect)positioningRect ofView:(NSView*)positioningView preferredEdge:(NSRectEdge)preferredEdge;
@end

@interface NSPasteboard : NSObject
@property(class, readonly, strong) NSPasteboard* generalPasteboard;
- (NSInteger)clearContents;
- (BOOL)setString:(NSString*)string forType:(NSPasteboardType)dataType;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly, strong) NSNotificationCenter* notificationCenter;
- (BOOL)openURL:(NSURL*)url;
@end

@class NSApplication;
@protocol NSApplicationDelegate <NSObject>
@optional
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
- (void)applicationWillTerminate:(NSNotification*)notification;
- (void)application:(NSApplication*)application openURLs:(NSArray<NSURL*>*)urls;
@end
@interface NSApplication : NSResponder
@property(class, readonly, strong) __kindof NSApplication* sharedApplication;
@property(nullable, weak) id<NSApplicationDelegate> delegate;
@property(nullable, readonly, strong) NSEvent* currentEvent;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)run;
- (void)terminate:(nullable id)sender;
// Deprecated in macOS 14; marked here as a newer deployment target would see it.
- (void)activateIgnoringOtherApps:(BOOL)flag __attribute__((deprecated("use -activate")));
@end
extern "C" __kindof NSApplication* _Null_unspecified NSApp;
NS_ASSUME_NONNULL_END
