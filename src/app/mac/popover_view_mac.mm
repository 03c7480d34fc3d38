// The popover's two pages, drawn from PopoverModel with plain AppKit stacks. Layout only:
// every text, symbol, state and action comes from the model.
#import "app_delegate_mac.h"

#include <optional>
#include <string>

#include "app/popover_model.h"
#include "phone/qr_code.h"

// Qualified names only: AppKit's umbrella headers declare many global names of their own.
namespace dw = duskwell;

static NSString* str(const std::string& s) {
    NSString* text = [NSString stringWithUTF8String:s.c_str()];
    return text != nil ? text : @"";
}

static const CGFloat kWidth = 340;

@implementation DWPopoverViewController {
    __weak AppDelegate* _delegate;
    NSStackView* _stack;
    std::optional<dw::PopoverModel> _built;  // what the page shows now
    NSTextField* _ringText;                   // the ring's clock, updated in place
    NSProgressIndicator* _ringBar;
    NSMutableArray* _targets;
    // The targets of the page before: a click sent just before the rebuild still finds its
    // target (controls hold them weakly). Dropped at the next rebuild.
    NSMutableArray* _previousTargets;
    BOOL _reloadScheduled;
}

- (instancetype)initWithDelegate:(AppDelegate*)delegate {
    if ((self = [super initWithNibName:nil bundle:nil])) {
        _delegate = delegate;
        _targets = [NSMutableArray array];
        _previousTargets = [NSMutableArray array];
    }
    return self;
}

- (void)loadView {
    _stack = [NSStackView stackViewWithViews:@[]];
    _stack.orientation = NSUserInterfaceLayoutOrientationVertical;
    _stack.alignment = NSLayoutAttributeLeading;
    _stack.spacing = 8;
    _stack.edgeInsets = NSEdgeInsetsMake(14, 14, 14, 14);
    [_stack.widthAnchor constraintEqualToConstant:kWidth].active = YES;
    self.view = _stack;
}

// --- pieces ---

- (NSTextField*)text:(const std::string&)s size:(CGFloat)size bold:(BOOL)bold {
    NSTextField* t = [NSTextField wrappingLabelWithString:str(s)];
    t.font = bold ? [NSFont boldSystemFontOfSize:size] : [NSFont systemFontOfSize:size];
    t.preferredMaxLayoutWidth = kWidth - 28;
    return t;
}

- (NSImageView*)symbol:(const std::string&)name {
    NSImage* image = [NSImage imageWithSystemSymbolName:str(name) accessibilityDescription:nil];
    return [NSImageView imageViewWithImage:image != nil ? image : [[NSImage alloc] init]];
}

- (id)targetFor:(const dw::Action&)action {
    DWActionTarget* t = [[DWActionTarget alloc] initWithAction:action delegate:_delegate];
    [_targets addObject:t];
    return t;
}

- (NSButton*)button:(const dw::Button&)b {
    NSButton* button = [NSButton buttonWithTitle:str(b.title) target:[self targetFor:b.action] action:@selector(fire:)];
    if (!b.symbol.empty()) {
        button.image = [NSImage imageWithSystemSymbolName:str(b.symbol) accessibilityDescription:nil];
        button.imagePosition = NSImageLeading;
    }
    button.enabled = b.enabled;
    if (b.style == dw::ButtonStyle::prominent) button.keyEquivalent = @"\r";
    if (b.style == dw::ButtonStyle::destructive) button.hasDestructiveAction = YES;
    return button;
}

- (NSView*)row:(NSArray<NSView*>*)views {
    NSStackView* row = [NSStackView stackViewWithViews:views];
    row.orientation = NSUserInterfaceLayoutOrientationHorizontal;
    row.spacing = 6;
    return row;
}

- (NSView*)toggle:(const dw::ToggleRow&)t {
    NSSwitch* sw = [[NSSwitch alloc] init];
    sw.state = t.on ? NSControlStateValueOn : NSControlStateValueOff;
    sw.enabled = t.enabled;
    sw.target = [self targetFor:t.action];
    sw.action = @selector(fire:);
    NSStackView* texts = [NSStackView stackViewWithViews:@[ [self text:t.title size:13 bold:NO],
                                                            [self text:t.subtitle size:11 bold:NO] ]];
    texts.orientation = NSUserInterfaceLayoutOrientationVertical;
    texts.alignment = NSLayoutAttributeLeading;
    texts.spacing = 1;
    return [self row:@[ [self symbol:t.symbol], texts, sw ]];
}

- (NSView*)chips:(const std::vector<dw::Chip>&)chips {
    NSMutableArray* views = [NSMutableArray array];
    for (const dw::Chip& c : chips) {
        NSButton* b = [NSButton buttonWithTitle:str(c.title) target:[self targetFor:c.action] action:@selector(fire:)];
        if (!c.symbol.empty()) b.image = [NSImage imageWithSystemSymbolName:str(c.symbol) accessibilityDescription:nil];
        b.imagePosition = NSImageLeading;
        b.bezelStyle = NSBezelStyleRecessed;
        [b setButtonType:NSButtonTypePushOnPushOff];  // NSButton declares only the setter
        b.state = c.selected ? NSControlStateValueOn : NSControlStateValueOff;
        b.enabled = c.enabled;
        [views addObject:b];
    }
    return [self row:views];
}

- (NSView*)statPill:(const dw::StatPillModel&)p {
    NSMutableArray* lines = [NSMutableArray arrayWithObjects:[self text:p.title size:10 bold:NO],
                                                             [self text:p.value size:12 bold:YES], nil];
    if (p.detail) [lines addObject:[self text:*p.detail size:10 bold:NO]];
    NSStackView* texts = [NSStackView stackViewWithViews:lines];
    texts.orientation = NSUserInterfaceLayoutOrientationVertical;
    texts.alignment = NSLayoutAttributeLeading;
    texts.spacing = 0;
    return [self row:@[ [self symbol:p.symbol], texts ]];
}

- (NSView*)infoRow:(const dw::InfoRowModel&)r {
    NSMutableArray* views = [NSMutableArray array];
    if (!r.symbol.empty()) [views addObject:[self symbol:r.symbol]];
    NSMutableArray* lines = [NSMutableArray arrayWithObject:[self text:r.title size:13 bold:NO]];
    if (!r.subtitle.empty()) [lines addObject:[self text:r.subtitle size:11 bold:NO]];
    [lines addObject:[self text:r.value size:11 bold:NO]];
    NSStackView* texts = [NSStackView stackViewWithViews:lines];
    texts.orientation = NSUserInterfaceLayoutOrientationVertical;
    texts.alignment = NSLayoutAttributeLeading;
    [views addObject:texts];
    if (r.button) [views addObject:[self button:*r.button]];
    return [self row:views];
}

- (NSImageView*)qr:(const std::string&)text size:(int)size {
    NSImageView* view = [[NSImageView alloc] init];
    // The platform layer draws the code (Core Image); we take ownership of its image.
    NSImage* image = CFBridgingRelease(dw::qrImage(text, size));
    if (image) view.image = image;
    [view.widthAnchor constraintEqualToConstant:size].active = YES;
    [view.heightAnchor constraintEqualToConstant:size].active = YES;
    return view;
}

// --- pages ---

- (void)addMain:(const dw::MainPageModel&)p {
    [_stack addArrangedSubview:[self row:@[ [self text:p.header.name size:15 bold:YES], [self button:p.header.gear] ]]];
    [_stack addArrangedSubview:[self text:p.header.tagline size:11 bold:NO]];

    const dw::HeroCardModel& h = p.hero;
    [_stack addArrangedSubview:[self text:h.headline size:17 bold:YES]];
    [_stack addArrangedSubview:[self text:h.detail size:12 bold:NO]];
    NSProgressIndicator* ring = [[NSProgressIndicator alloc] init];
    ring.style = NSProgressIndicatorStyleBar;
    ring.indeterminate = NO;
    ring.minValue = 0;
    ring.maxValue = 1;
    ring.doubleValue = h.ring.progress;
    _ringBar = ring;
    NSMutableArray* centre = [NSMutableArray array];
    if (!h.ring.symbol.empty()) [centre addObject:[self symbol:h.ring.symbol]];
    if (!h.ring.text.empty()) {
        _ringText = [self text:h.ring.text size:20 bold:YES];
        [centre addObject:_ringText];
    }
    if (!h.ring.caption.empty()) [centre addObject:[self text:h.ring.caption size:11 bold:NO]];
    [_stack addArrangedSubview:[self row:centre]];
    [_stack addArrangedSubview:ring];
    NSMutableArray* controls = [NSMutableArray arrayWithObject:[self button:h.mainButton]];
    for (const dw::Button& b : h.extendRow) [controls addObject:[self button:b]];
    [_stack addArrangedSubview:[self row:controls]];

    [_stack addArrangedSubview:[self chips:p.modePicker]];

    if (p.agents) {
        const dw::AgentsCardModel& a = *p.agents;
        for (const dw::AgentRowModel& r : a.rows) {
            NSMutableArray* views = [NSMutableArray arrayWithObjects:[self symbol:r.symbol], [self text:r.title size:13 bold:YES], nil];
            if (r.count) [views addObject:[self text:*r.count size:11 bold:NO]];
            [views addObject:[self text:r.subtitle size:11 bold:NO]];
            [views addObject:[self text:r.status.text size:11 bold:YES]];
            [_stack addArrangedSubview:[self row:views]];
        }
        if (a.more) [_stack addArrangedSubview:[self text:*a.more size:11 bold:NO]];
        if (a.emptyTitle) [_stack addArrangedSubview:[self text:*a.emptyTitle size:13 bold:YES]];
        if (a.emptyDetail) [_stack addArrangedSubview:[self text:*a.emptyDetail size:11 bold:NO]];
        if (a.hint) {
            [_stack addArrangedSubview:[self row:@[ [self text:a.hint->text size:11 bold:NO], [self button:a.hint->connect] ]]];
        }
        [_stack addArrangedSubview:[self row:@[ [self symbol:a.footSymbol], [self text:a.footText size:11 bold:NO],
                                                [self text:a.cap size:11 bold:YES] ]]];
    }
    if (p.timer) [_stack addArrangedSubview:[self chips:p.timer->chips]];
    if (p.until) {
        const dw::UntilCardModel& u = *p.until;
        NSDatePicker* picker = [[NSDatePicker alloc] init];
        picker.datePickerElements = NSDatePickerElementFlagHourMinute;
        // Only hour and minute are shown and read back; today carries them.
        NSDate* shown = [[NSCalendar currentCalendar] dateBySettingHour:u.hour
                                                                 minute:u.minute
                                                                 second:0
                                                                 ofDate:[NSDate date]
                                                                options:0];
        if (shown) picker.dateValue = shown;
        picker.target = self;
        picker.action = @selector(untilPicked:);
        [_stack addArrangedSubview:[self text:u.title size:13 bold:YES]];
        [_stack addArrangedSubview:[self row:@[ picker, [self button:u.apply] ]]];
        [_stack addArrangedSubview:[self text:u.caption size:11 bold:NO]];
    }

    [_stack addArrangedSubview:[self row:@[ [self statPill:p.status.power], [self statPill:p.status.lid],
                                            [self statPill:p.status.heat] ]]];
    for (const dw::FooterItemModel& f : p.footer) {
        if (f.button) {
            [_stack addArrangedSubview:[self button:*f.button]];
        } else {
            [_stack addArrangedSubview:[self row:@[ [self symbol:f.symbol], [self text:f.text size:11 bold:NO] ]]];
        }
    }
}

- (void)untilPicked:(NSDatePicker*)picker {
    NSDateComponents* parts = [[NSCalendar currentCalendar] components:NSCalendarUnitHour | NSCalendarUnitMinute
                                                              fromDate:picker.dateValue];
    [_delegate performAction:dw::Action::untilTime(static_cast<int>(parts.hour), static_cast<int>(parts.minute))];
}

- (void)addSettings:(const dw::SettingsPageModel& )p {
    [_stack addArrangedSubview:[self row:@[ [self button:p.back], [self text:p.title size:15 bold:YES] ]]];

    [_stack addArrangedSubview:[self text:p.integration.title size:13 bold:YES]];
    [_stack addArrangedSubview:[self text:p.integration.note size:11 bold:NO]];
    for (const dw::IntegrationRowModel& r : p.integration.rows) [_stack addArrangedSubview:[self toggle:r.toggle]];

    [_stack addArrangedSubview:[self toggle:p.phone.toggle]];
    int step = 1;
    for (const std::string& s : p.phone.steps) {
        [_stack addArrangedSubview:[self text:std::to_string(step++) + ". " + s size:11 bold:NO]];
    }
    if (p.phone.qrText) [_stack addArrangedSubview:[self qr:*p.phone.qrText size:p.phone.qrSize]];
    if (p.phone.test && p.phone.copy) {
        [_stack addArrangedSubview:[self row:@[ [self button:*p.phone.test], [self button:*p.phone.copy] ]]];
    }
    if (p.phone.lastResult) [_stack addArrangedSubview:[self text:*p.phone.lastResult size:11 bold:NO]];
    if (p.phone.server) [_stack addArrangedSubview:[self infoRow:*p.phone.server]];
    for (const std::string& f : p.phone.features) [_stack addArrangedSubview:[self text:f size:11 bold:NO]];

    [_stack addArrangedSubview:[self text:p.behavior.title size:13 bold:YES]];
    for (const dw::ToggleRow& t : p.behavior.toggles) [_stack addArrangedSubview:[self toggle:t]];
    NSPopUpButton* batteryFloor = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
    for (const dw::PickerOption& o : p.behavior.batteryOptions) {
        [batteryFloor addItemWithTitle:str(o.title)];
        NSMenuItem* item = batteryFloor.lastItem;
        item.target = [self targetFor:o.action];
        item.action = @selector(fire:);
        if (o.value == p.behavior.batterySelected) [batteryFloor selectItem:item];
    }
    [_stack addArrangedSubview:[self row:@[ [self symbol:p.behavior.batterySymbol],
                                            [self text:p.behavior.batteryTitle size:13 bold:NO], batteryFloor ]]];
    [_stack addArrangedSubview:[self text:p.behavior.batterySubtitle size:11 bold:NO]];

    [_stack addArrangedSubview:[self text:p.shortcuts.title size:13 bold:YES]];
    [_stack addArrangedSubview:[self text:p.shortcuts.note size:11 bold:NO]];
    [_stack addArrangedSubview:[self infoRow:p.shortcuts.hotKey]];
    [_stack addArrangedSubview:[self infoRow:p.shortcuts.terminal]];

    [_stack addArrangedSubview:[self text:p.permissions.title size:13 bold:YES]];
    [_stack addArrangedSubview:[self text:p.permissions.note size:11 bold:NO]];
    [_stack addArrangedSubview:[self infoRow:p.permissions.power]];
    [_stack addArrangedSubview:[self infoRow:p.permissions.notifications]];

    if (p.message) {
        [_stack addArrangedSubview:[self row:@[ [self symbol:p.messageSymbol], [self text:*p.message size:11 bold:NO] ]]];
    }
    [_stack addArrangedSubview:[self row:@[ [self button:p.website], [self button:p.quit] ]]];
}

- (void)scheduleReload {
    if (_reloadScheduled) return;
    _reloadScheduled = YES;
    [self performSelector:@selector(scheduledReload) withObject:nil afterDelay:0 inModes:@[ NSDefaultRunLoopMode ]];
}

- (void)scheduledReload {
    _reloadScheduled = NO;
    [self reload];
}

- (void)reload {
    [self view];  // loads the stack on first use
    AppDelegate* delegate = _delegate;
    if (!delegate) return;
    dw::PopoverModel model = dw::makePopoverModel([delegate controller]);
    // Unchanged: the controls stay, with their selection, focus and any click in flight.
    if (_built && *_built == model) return;
    // A running period's second: only the clock and the fill move.
    if (_built && dw::onlyRingTicked(*_built, model) && _ringText && _ringBar) {
        _ringText.stringValue = str(model.main->hero.ring.text);
        _ringBar.doubleValue = model.main->hero.ring.progress;
        _built = std::move(model);
        return;
    }
    _ringText = nil;
    _ringBar = nil;
    for (NSView* v in [_stack.arrangedSubviews copy]) {
        [_stack removeArrangedSubview:v];
        [v removeFromSuperview];
    }
    _previousTargets = _targets;
    _targets = [NSMutableArray array];
    if (model.main) [self addMain:*model.main];
    if (model.settings) [self addSettings:*model.settings];
    self.preferredContentSize = _stack.fittingSize;
    _built = std::move(model);
}

@end
