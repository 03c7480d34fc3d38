// AppDelegate: status item, quick menu, popover, hot key, URL events, and the orderly stop
// on quit, power-off and termination signals. Main thread only.
#import "app_delegate_mac.h"

#import <Carbon/Carbon.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/quick_menu_model.h"
#include "app/status_item_model.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"

using duskwell::Action;

static NSString* ns(const std::string& s) { return [NSString stringWithUTF8String:s.c_str()]; }

@implementation DWActionTarget {
    Action _action;
    __weak AppDelegate* _delegate;
}
- (instancetype)initWithAction:(const Action&)action delegate:(AppDelegate*)delegate {
    if ((self = [super init])) {
        _action = action;
        _delegate = delegate;
    }
    return self;
}
- (void)fire:(id)sender {
    (void)sender;
    [_delegate performAction:_action];
}
@end

static OSStatus hotKeyHandler(EventHandlerCallRef, EventRef, void* userData) {
    AppDelegate* delegate = (__bridge AppDelegate*)userData;
    dispatch_async(dispatch_get_main_queue(), ^{
        [delegate performAction:Action::make(Action::Kind::toggle)];
    });
    return noErr;
}

@implementation AppDelegate {
    std::unique_ptr<duskwell::AwakeController> _controller;
    NSStatusItem* _statusItem;
    NSPopover* _popover;
    DWPopoverViewController* _content;
    std::vector<duskwell::Subscription> _bag;
    EventHotKeyRef _hotKeyRef;
    NSMutableArray* _signalSources;
    NSMutableArray* _menuTargets;  // keeps the quick menu's targets alive while it shows
    BOOL _redrawPending;
}

- (instancetype)init {
    if ((self = [super init])) {
        _controller = std::make_unique<duskwell::AwakeController>();
        _popover = [[NSPopover alloc] init];
        _signalSources = [NSMutableArray array];
        _menuTargets = [NSMutableArray array];
    }
    return self;
}

- (duskwell::AwakeController&)controller {
    return *_controller;
}

- (void)performAction:(const Action&)action {
    const duskwell::ActionOutcome out = duskwell::perform(*_controller, action);
    if (out.clipboard) {
        [[NSPasteboard generalPasteboard] clearContents];
        [[NSPasteboard generalPasteboard] setString:ns(*out.clipboard) forType:NSPasteboardTypeString];
    }
    if (out.showPopover) {
        // After the menu has closed.
        dispatch_async(dispatch_get_main_queue(), ^{
            [self showPopover];
        });
    }
    if (out.terminate) [NSApp terminate:nil];
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
    (void)notification;
    _statusItem = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
    NSStatusBarButton* button = _statusItem.button;
    if (button) {
        button.target = self;
        button.action = @selector(onClick:);
        [button sendActionOn:NSEventMaskLeftMouseUp | NSEventMaskRightMouseUp];
        button.imagePosition = NSImageLeading;
    }

    _content = [[DWPopoverViewController alloc] initWithDelegate:self];
    _popover.behavior = NSPopoverBehaviorTransient;
    _popover.delegate = self;
    _popover.animates = YES;
    _popover.contentViewController = _content;

    // Redraws are coalesced: many announcements within one turn of the run loop draw once.
    __weak AppDelegate* weakSelf = self;
    _bag.push_back(_controller->changes().subscribe([weakSelf] {
        AppDelegate* strong = weakSelf;
        if (!strong || strong->_redrawPending) return;
        strong->_redrawPending = YES;
        dispatch_async(dispatch_get_main_queue(), ^{
            AppDelegate* s = weakSelf;
            if (!s) return;
            s->_redrawPending = NO;
            [s updateStatusItem];
            if (s->_popover.shown) [s->_content reload];
        });
    }));
    [self updateStatusItem];
    [self registerHotKey];

    [[NSWorkspace sharedWorkspace].notificationCenter addObserverForName:NSWorkspaceWillPowerOffNotification
                                                                  object:nil
                                                                   queue:[NSOperationQueue mainQueue]
                                                              usingBlock:^(NSNotification*) {
        [weakSelf performAction:Action::make(Action::Kind::shutdown)];
    }];

    for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
        signal(sig, SIG_IGN);
        dispatch_source_t source =
            dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(sig), 0, dispatch_get_main_queue());
        dispatch_source_set_event_handler(source, ^{
            [weakSelf performAction:Action::make(Action::Kind::shutdown)];
            exit(0);
        });
        dispatch_resume(source);
        [_signalSources addObject:source];
    }

    duskwell::SettingsStore& settings = *duskwell::services().settings;
    if (!settings.boolean(duskwell::SettingsKey::didOnboard).value_or(false)) {
        settings.setBool(duskwell::SettingsKey::didOnboard, true);
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(0.6 * NSEC_PER_SEC)),
                       dispatch_get_main_queue(), ^{
            [weakSelf showPopover];
        });
    }
}

- (void)application:(NSApplication*)application openURLs:(NSArray<NSURL*>*)urls {
    (void)application;
    for (NSURL* url in urls) _controller->handleURL(url.absoluteString.UTF8String);
}

- (void)applicationWillTerminate:(NSNotification*)notification {
    (void)notification;
    [self performAction:Action::make(Action::Kind::shutdown)];
}

- (void)updateStatusItem {
    NSStatusBarButton* button = _statusItem.button;
    if (!button) return;
    const duskwell::StatusItemModel m = duskwell::makeStatusItemModel(*_controller);
    NSImageSymbolConfiguration* config = [NSImageSymbolConfiguration configurationWithPointSize:14
                                                                                         weight:NSFontWeightSemibold];
    NSImage* image = [[NSImage imageWithSystemSymbolName:ns(m.symbol)
                                accessibilityDescription:ns(m.accessibilityDescription)]
        imageWithSymbolConfiguration:config];
    image.template = YES;
    button.image = image;
    if (m.title) {
        NSDictionary* attributes = @{
            NSFontAttributeName : [NSFont monospacedDigitSystemFontOfSize:12 weight:NSFontWeightSemibold]
        };
        button.attributedTitle = [[NSAttributedString alloc] initWithString:ns(*m.title) attributes:attributes];
    } else {
        button.title = @"";
    }
    button.toolTip = ns(m.tooltip);
}

- (void)onClick:(id)sender {
    (void)sender;
    NSEvent* event = [NSApp currentEvent];
    if (event.type == NSEventTypeRightMouseUp || (event.modifierFlags & NSEventModifierFlagControl)) {
        [self showQuickMenu];
        return;
    }
    if (_popover.shown) {
        [_popover performClose:nil];
    } else {
        [self showPopover];
    }
}

- (void)showPopover {
    NSStatusBarButton* button = _statusItem.button;
    if (!button) return;
    [_content reload];
    [_popover showRelativeToRect:button.bounds ofView:button preferredEdge:NSRectEdgeMinY];
    [_popover.contentViewController.view.window makeKeyWindow];
    [NSApp activateIgnoringOtherApps:YES];
}

- (void)showQuickMenu {
    NSMenu* menu = [[NSMenu alloc] init];
    menu.autoenablesItems = NO;
    [_menuTargets removeAllObjects];
    for (const duskwell::QuickMenuItem& item : duskwell::makeQuickMenu(*_controller)) {
        if (item.kind == duskwell::QuickMenuItem::Kind::separator) {
            [menu addItem:[NSMenuItem separatorItem]];
            continue;
        }
        NSMenuItem* mi = [[NSMenuItem alloc] initWithTitle:ns(item.title) action:nil keyEquivalent:ns(item.keyEquivalent)];
        if (item.action) {
            DWActionTarget* target = [[DWActionTarget alloc] initWithAction:*item.action delegate:self];
            [_menuTargets addObject:target];
            mi.target = target;
            mi.action = @selector(fire:);
        }
        mi.enabled = item.enabled();
        [menu addItem:mi];
    }
    menu.delegate = self;
    _statusItem.menu = menu;
    [_statusItem.button performClick:nil];
}

- (void)menuDidClose:(NSMenu*)menu {
    (void)menu;
    // Detached again so that the next left click reaches onClick.
    _statusItem.menu = nil;
}

- (void)popoverWillShow:(NSNotification*)notification {
    (void)notification;
    [self performAction:Action::make(Action::Kind::popoverOpened)];
}

- (void)popoverDidClose:(NSNotification*)notification {
    (void)notification;
    [self performAction:Action::make(Action::Kind::popoverClosed)];
}

- (void)registerHotKey {
    EventTypeSpec spec = {kEventClassKeyboard, kEventHotKeyPressed};
    InstallEventHandler(GetApplicationEventTarget(), &hotKeyHandler, 1, &spec, (__bridge void*)self, nullptr);
    EventHotKeyID hotKeyID;
    hotKeyID.signature = 'DWHK';
    hotKeyID.id = 1;
    // Key code 37 is L; 2304 is Command + Option. A failed registration leaves no shortcut.
    if (RegisterEventHotKey(37, cmdKey | optionKey, hotKeyID, GetApplicationEventTarget(), 0, &_hotKeyRef) != noErr) {
        _hotKeyRef = nullptr;
    }
}

@end
