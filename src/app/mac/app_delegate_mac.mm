// AppDelegate: status item, quick menu, popover, hot key, URL events, the control socket, and
// the orderly stop on quit, power-off and termination signals. Main thread only.
#import "app_delegate_mac.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/quick_menu_model.h"
#include "app/status_item_model.h"
#include "commands/control_socket.h"
#include "core/app_config.h"
#include "core/dispatcher.h"
#include "core/localization.h"
#include "core/services.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"
#include "phone/ntfy_access.h"

// Last: Carbon's old macros (AssertMacros' check, verify, require) must not reach our headers.
#import <Carbon/Carbon.h>

namespace {

NSString* ns(const std::string& s) {
    NSString* text = [NSString stringWithUTF8String:s.c_str()];
    return text != nil ? text : @"";
}

// 'DWHK' spelled out: four-character literals are an extension the warnings reject.
constexpr OSType kHotKeySignature = (OSType('D') << 24) | (OSType('W') << 16) | (OSType('H') << 8) | OSType('K');
constexpr UInt32 kKeyCodeL = 37;

// Carbon calls this on the main thread; the toggle still goes through the main queue so that
// it never runs inside Carbon's dispatch.
OSStatus hotKeyHandler(EventHandlerCallRef, EventRef, void* userData) {
    AppDelegate* delegate = (__bridge AppDelegate*)userData;
    dispatch_async(dispatch_get_main_queue(), ^{
        [delegate performAction:duskwell::Action::make(duskwell::Action::Kind::toggle)];
    });
    return noErr;
}

// Leaves after the final stop without running static destructors: the monitor's queue may
// still be scanning, and nothing may be torn down under it. Pending settings and buffered
// output are written out first.
[[noreturn]] void leaveProcess() {
    CFPreferencesAppSynchronize(kCFPreferencesCurrentApplication);
    std::fflush(nullptr);
    _exit(0);
}

}  // namespace

@implementation DWActionTarget {
    duskwell::Action _action;
    __weak AppDelegate* _delegate;
}
- (instancetype)initWithAction:(const duskwell::Action&)action delegate:(AppDelegate*)delegate {
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

@interface AppDelegate ()
- (void)onClick:(id)sender;
- (void)updateStatusItem;
- (void)showQuickMenu;
- (void)registerHotKey;
- (void)startControlServer;
- (void)controllerDidChange;
- (void)finalStop;
- (void)askPhoneServer;
@end

@implementation AppDelegate {
    // Declared first so that it is destroyed last: the control server's handler points at it.
    std::unique_ptr<duskwell::AwakeController> _controller;
    std::unique_ptr<duskwell::ControlServer> _control;
    NSStatusItem* _statusItem;
    NSPopover* _popover;
    DWPopoverViewController* _content;
    std::vector<duskwell::Subscription> _bag;
    EventHotKeyRef _hotKeyRef;
    NSMutableArray* _signalSources;  // dispatch signal sources, kept for the process
    NSMutableArray* _menuTargets;    // keeps the quick menu's targets alive while it shows
    id _powerOffObserver;
    BOOL _redrawPending;
    BOOL _stopped;  // the final stop has run; the process is on its way out
}

- (instancetype)init {
    if ((self = [super init])) {
        // The one controller of the process; the services are installed by main already.
        _controller = std::make_unique<duskwell::AwakeController>();
        _popover = [[NSPopover alloc] init];
        _signalSources = [NSMutableArray array];
        _menuTargets = [NSMutableArray array];
        _hotKeyRef = nullptr;
    }
    return self;
}

- (duskwell::AwakeController&)controller {
    return *_controller;
}

- (void)performAction:(const duskwell::Action&)action {
    duskwell::ActionOutcome out;
    // Nothing thrown by the core may unwind into AppKit.
    try {
        out = duskwell::perform(*_controller, action);
    } catch (const std::exception& e) {
        NSLog(@"Duskwell: %s failed: %s", std::string(duskwell::actionName(action.kind)).c_str(), e.what());
        return;
    }
    if (out.clipboard) {
        NSPasteboard* board = [NSPasteboard generalPasteboard];
        [board clearContents];
        [board setString:ns(*out.clipboard) forType:NSPasteboardTypeString];
    }
    if (out.showPopover) {
        // After the quick menu has closed.
        dispatch_async(dispatch_get_main_queue(), ^{
            [self showPopover];
        });
    }
    if (out.askPhoneServer) {
        // After the popover's click has finished: the alert runs its own modal loop.
        dispatch_async(dispatch_get_main_queue(), ^{
            [self askPhoneServer];
        });
    }
    if (out.terminate) [NSApp terminate:nil];  // applicationWillTerminate performs the stop
}

// The self-hosted ntfy server and its access token, in one alert. The token field is a
// secure one and starts empty: the token is never shown again once set.
- (void)askPhoneServer {
    using duskwell::T;
    const std::string current = _controller->phone().serverURL();
    NSTextField* server =
        [NSTextField textFieldWithString:ns(current == duskwell::NtfyAccess::publicServer() ? "" : current)];
    server.placeholderString = @"https://ntfy.example.com";
    NSSecureTextField* token = [NSSecureTextField textFieldWithString:@""];
    token.placeholderString = ns(_controller->phone().hasToken()
                                     ? T("액세스 토큰: 비우면 유지, - 입력 시 삭제", "Access token: empty keeps it, - removes it")
                                     : T("액세스 토큰 (선택)", "Access token (optional)"));
    [server.widthAnchor constraintEqualToConstant:300].active = YES;
    [token.widthAnchor constraintEqualToConstant:300].active = YES;
    NSStackView* fields = [NSStackView stackViewWithViews:@[ server, token ]];
    fields.orientation = NSUserInterfaceLayoutOrientationVertical;
    fields.spacing = 8;

    NSAlert* alert = [[NSAlert alloc] init];
    alert.messageText = ns(T("ntfy 서버", "ntfy server"));
    alert.informativeText = ns(T("비워 두면 공개 서버를 써요.", "Leave it empty for the public server."));
    alert.accessoryView = fields;
    [alert addButtonWithTitle:ns(T("저장", "Save"))];
    [alert addButtonWithTitle:ns(T("취소", "Cancel"))];
    if ([alert runModal] != NSAlertFirstButtonReturn) return;

    const std::string serverText = server.stringValue.UTF8String ? server.stringValue.UTF8String : "";
    const std::string tokenText = token.stringValue.UTF8String ? token.stringValue.UTF8String : "";
    if (!_controller->setPhoneServer(serverText)) {
        _controller->setLastMessage(T("ntfy 서버 주소가 올바르지 않아요 (https://호스트[:포트]).",
                                      "Not an ntfy server address (https://host[:port])."));
        return;
    }
    if (tokenText.empty()) return;
    const auto change = tokenText == "-" ? std::nullopt : std::optional<std::string>(tokenText);
    if (!_controller->setPhoneToken(change)) {
        _controller->setLastMessage(T("액세스 토큰은 공백 없는 인쇄 가능한 문자여야 해요.",
                                      "An access token is printable characters without blanks."));
    }
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
    (void)notification;
    // The status item: icon before the title, both mouse buttons reach onClick.
    _statusItem = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
    NSStatusBarButton* button = _statusItem.button;
    if (button) {
        button.target = self;
        button.action = @selector(onClick:);
        [button sendActionOn:NSEventMaskLeftMouseUp | NSEventMaskRightMouseUp];
        button.imagePosition = NSImageLeading;
    }

    // The popover: transient, animated, its content drawn from PopoverModel.
    _content = [[DWPopoverViewController alloc] initWithDelegate:self];
    _popover.behavior = NSPopoverBehaviorTransient;
    _popover.delegate = self;
    _popover.animates = YES;
    _popover.contentViewController = _content;

    // Announcements come before the change lands: redraw on the next turn of the main queue,
    // once for any number of announcements in between.
    __weak AppDelegate* weakSelf = self;
    _bag.push_back(_controller->changes().subscribe([weakSelf] { [weakSelf controllerDidChange]; }));
    [self updateStatusItem];

    [self registerHotKey];

    // Power-off: stop now (sleep and power settings restored); the termination follows.
    _powerOffObserver = [[NSWorkspace sharedWorkspace].notificationCenter
        addObserverForName:NSWorkspaceWillPowerOffNotification
                    object:nil
                     queue:[NSOperationQueue mainQueue]
                usingBlock:^(NSNotification*) {
                  [weakSelf finalStop];  // marked done: the termination that follows does not stop again
                }];

    // SIGTERM, SIGINT, SIGHUP: stop, then leave with status 0 (leaveProcess). The default
    // disposition is ignored so that the dispatch sources alone see them.
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
        std::signal(sig, SIG_IGN);
        dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(sig),
                                                          0, dispatch_get_main_queue());
        if (!source) continue;
        dispatch_source_set_event_handler(source, ^{
          [weakSelf finalStop];
          leaveProcess();
        });
        dispatch_resume(source);
        [_signalSources addObject:source];
    }

    // The terminal command (`duskwell start|stop|status`) reaches us here.
    [self startControlServer];

    // First launch: show what the app is, once, after the status item has settled.
    duskwell::SettingsStore& settings = *duskwell::services().settings;
    if (!settings.boolean(duskwell::SettingsKey::didOnboard).value_or(false)) {
        settings.setBool(duskwell::SettingsKey::didOnboard, true);
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(0.6 * NSEC_PER_SEC)),
                       dispatch_get_main_queue(), ^{
                         [weakSelf showPopover];
                       });
    }
}

- (void)startControlServer {
    duskwell::Dispatcher* main = duskwell::services().dispatcher;
    duskwell::AwakeController* controller = _controller.get();
    std::string error;
    _control = duskwell::ControlServer::start(
        duskwell::AppConfig::controlSocket(),
        [main](std::function<void()> task) { main->post(std::move(task)); },
        [controller](const std::string& request) -> duskwell::ControlProtocol::Reply {
            try {
                return duskwell::ControlProtocol::answer(*controller, request);
            } catch (const std::exception& e) {
                return {duskwell::ControlProtocol::ReplyKind::error, e.what()};
            }
        },
        &error);
    // Without the socket the terminal command falls back to the URL scheme; nothing else is lost.
    if (!_control) NSLog(@"Duskwell: control socket unavailable: %s", error.c_str());
}

- (void)application:(NSApplication*)application openURLs:(NSArray<NSURL*>*)urls {
    (void)application;
    for (NSURL* url in urls) {
        const char* text = url.absoluteString.UTF8String;
        if (!text) continue;
        try {
            _controller->handleURL(text);
        } catch (const std::exception& e) {
            NSLog(@"Duskwell: %s failed: %s", text, e.what());
        }
    }
}

- (void)applicationWillTerminate:(NSNotification*)notification {
    (void)notification;
    [self finalStop];
    leaveProcess();  // instead of AppKit's exit(), which runs static destructors
}

// Every way out except a crash comes here once: quit (through termination), power-off and
// the signals. The shutdown action also leaves status.json saying inactive, freshly dated.
- (void)finalStop {
    if (_stopped) return;
    _stopped = YES;
    [self performAction:duskwell::Action::make(duskwell::Action::Kind::shutdown)];
    _control.reset();  // removes the socket file, so the terminal command knows we are gone
}

- (void)controllerDidChange {
    if (_redrawPending) return;
    _redrawPending = YES;
    __weak AppDelegate* weakSelf = self;
    dispatch_async(dispatch_get_main_queue(), ^{
      AppDelegate* strong = weakSelf;
      if (!strong) return;
      strong->_redrawPending = NO;
      [strong updateStatusItem];
      // Rebuilt only when its model changed, and outside event tracking (scheduleReload).
      if (strong->_popover.shown) [strong->_content scheduleReload];
    });
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
    [image setTemplate:YES];  // not `image.template`: a C++ keyword in Objective-C++
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
        if (_popover.shown) [_popover performClose:nil];  // a Control-click left it open
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
    // An accessory app must take the focus itself for the popover to receive keys; the
    // cooperative `activate` of macOS 14 may decline, so the older call stays.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    [NSApp activateIgnoringOtherApps:YES];
#pragma clang diagnostic pop
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
    // Attached only while it shows; menuDidClose detaches it again.
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
    [self performAction:duskwell::Action::make(duskwell::Action::Kind::popoverOpened)];
}

// A transient popover closes on any mouse-down outside it, the status item's own included;
// the mouse-up would then reach onClick and open it again. That left mouse-down is refused
// here, and onClick closes the popover on the mouse-up instead.
- (BOOL)popoverShouldClose:(NSPopover*)popover {
    (void)popover;
    NSEvent* event = [NSApp currentEvent];
    const BOOL onStatusItem = event.window != nil && event.window == _statusItem.button.window;
    return !(onStatusItem && event.type == NSEventTypeLeftMouseDown);
}

- (void)popoverDidClose:(NSNotification*)notification {
    (void)notification;
    [self performAction:duskwell::Action::make(duskwell::Action::Kind::popoverClosed)];
}

- (void)registerHotKey {
    // Keyboard class, hot-key-pressed kind, on the application target.
    EventTypeSpec pressed;
    pressed.eventClass = kEventClassKeyboard;
    pressed.eventKind = kEventHotKeyPressed;
    if (InstallEventHandler(GetApplicationEventTarget(), &hotKeyHandler, 1, &pressed, (__bridge void*)self, nullptr) !=
        noErr) {
        return;
    }
    EventHotKeyID hotKeyID;
    hotKeyID.signature = kHotKeySignature;
    hotKeyID.id = 1;
    // Option-Command-L (cmdKey | optionKey = 2304). A failed registration leaves no shortcut.
    EventHotKeyRef ref = nullptr;
    if (RegisterEventHotKey(kKeyCodeL, cmdKey | optionKey, hotKeyID, GetApplicationEventTarget(), 0, &ref) == noErr) {
        _hotKeyRef = ref;
    }
}

@end
