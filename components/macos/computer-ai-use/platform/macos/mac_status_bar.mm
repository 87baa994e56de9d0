#include "platform/macos/mac_status_bar.h"

#import <AppKit/AppKit.h>

#include "platform/macos/ns_strings.h"

#include <memory>
#include <vector>

// Turns menu choices into the core's actions: the item's tag is its index.
@interface TavlinMenuTarget : NSObject <NSMenuDelegate>
- (void)choose:(NSMenuItem*)item;
@end

namespace {

struct MenuState {
  tavlin::platform::StatusMenu menu;
};

std::shared_ptr<MenuState> current;

NSString* ns(const std::string& text) { return tavlin::macos::nsString(text); }

void fill(NSMenu* target, TavlinMenuTarget* handler) {
  [target removeAllItems];
  const auto& items = current->menu.items;
  for (size_t i = 0; i < items.size(); ++i) {
    const auto& item = items[i];
    if (item.separator) {
      [target addItem:[NSMenuItem separatorItem]];
      continue;
    }
    NSMenuItem* entry = [[NSMenuItem alloc] initWithTitle:ns(item.title)
                                                   action:@selector(choose:)
                                            keyEquivalent:ns(item.quits ? "q" : "")];
    entry.target = handler;
    entry.tag = static_cast<NSInteger>(i);
    entry.enabled = item.enabled;
    entry.state = item.checked ? NSControlStateValueOn : NSControlStateValueOff;
    [target addItem:entry];
  }
}

}  // namespace

@implementation TavlinMenuTarget
- (void)choose:(NSMenuItem*)item {
  if (!current || item.tag < 0 || static_cast<size_t>(item.tag) >= current->menu.items.size()) return;
  const auto& chosen = current->menu.items[static_cast<size_t>(item.tag)];
  if (chosen.action) chosen.action();
  if (chosen.quits) [[NSApplication sharedApplication] stop:nil];
}
- (void)menuNeedsUpdate:(NSMenu*)menu {
  if (current && current->menu.refresh) current->menu = current->menu.refresh();
  fill(menu, self);
}
@end

namespace tavlin::macos {

void MacStatusBar::run(const platform::StatusMenu& menu, bool showWindow) {
  current = std::make_shared<MenuState>(MenuState{menu});
  NSApplication* app = [NSApplication sharedApplication];
  [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
  TavlinMenuTarget* handler = [[TavlinMenuTarget alloc] init];
  NSStatusItem* item = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
  if (NSStatusBarButton* button = item.button) button.title = ns(menu.title);
  NSMenu* statusMenu = [[NSMenu alloc] initWithTitle:ns(menu.title)];
  statusMenu.autoenablesItems = NO;
  statusMenu.delegate = handler;
  fill(statusMenu, handler);
  item.menu = statusMenu;
  NSWindow* window = nil;
  if (showWindow) {
    window = [[NSWindow alloc] initWithContentRect:CGRect{{0, 0}, {360, 120}}
                                         styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                                           backing:NSBackingStoreBuffered
                                             defer:NO];
    window.title = ns(menu.items.empty() ? menu.title : menu.items.front().title);
    window.releasedWhenClosed = NO;
    [window center];
    [window makeKeyAndOrderFront:nil];
    // From macOS 14 the activation is a request the system weighs; the older call is
    // deprecated there (and its "ignoring other apps" has no effect any more).
    if (@available(macOS 14.0, *)) {
      [app activate];
    } else {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
      [app activateIgnoringOtherApps:YES];
#pragma clang diagnostic pop
    }
  }
  [app run];
  current.reset();
}

}  // namespace tavlin::macos
