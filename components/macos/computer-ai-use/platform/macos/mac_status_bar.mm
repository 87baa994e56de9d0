#include "platform/macos/mac_status_bar.h"

#import <AppKit/AppKit.h>

#include <signal.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/macos/ns_strings.h"

// Turns menu choices into the core's actions: the item's tag is its index.
@interface TavlinMenuTarget : NSObject <NSMenuDelegate>
- (void)choose:(NSMenuItem*)item;
@end

namespace {

struct MenuState {
  tavlin::platform::StatusMenu menu;
};

std::shared_ptr<MenuState> current;
// Held for the whole run: the status bar keeps its item only weakly, a menu its delegate
// too, and ARC may let a local go after its last use.
NSStatusItem* statusItem = nil;
TavlinMenuTarget* menuHandler = nil;

// The core's code runs inside AppKit's frames, which no C++ exception may unwind.
void guarded(const char* what, const std::function<void()>& run) {
  try {
    run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "Tavlin: %s failed: %s\n", what, error.what());
  } catch (...) {
    std::fprintf(stderr, "Tavlin: %s failed\n", what);
  }
}

// SIGINT and SIGTERM, held since prepare(), end the run on the main thread. -stop: takes
// effect once the next event is handled, so one is posted.
void stopOnSignals() {
  std::thread([] {
    sigset_t stop = tavlin::platform::statusBarStopSignals();
    int received = 0;
    while (sigwait(&stop, &received) != 0) {
    }
    CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopCommonModes, ^{
      NSApplication* app = [NSApplication sharedApplication];
      [app stop:nil];
      NSEvent* wake = [NSEvent otherEventWithType:NSEventTypeApplicationDefined
                                         location:NSZeroPoint
                                    modifierFlags:0
                                        timestamp:0
                                     windowNumber:0
                                          context:nil
                                          subtype:0
                                            data1:0
                                            data2:0];
      if (wake) [app postEvent:wake atStart:YES];
    });
    CFRunLoopWakeUp(CFRunLoopGetMain());
  }).detach();
}

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
  // A copy: the action may refresh the menu it came from.
  auto chosen = current->menu.items[static_cast<size_t>(item.tag)];
  if (chosen.action) guarded("the menu action", chosen.action);
  if (chosen.quits) [[NSApplication sharedApplication] stop:nil];
}
- (void)menuNeedsUpdate:(NSMenu*)menu {
  if (current && current->menu.refresh) guarded("updating the menu", [] { current->menu = current->menu.refresh(); });
  fill(menu, self);
}
@end

namespace tavlin::macos {

void MacStatusBar::prepare() {
  // Blocked from the start, so that a stop request that comes early ends the run instead
  // of the process.
  sigset_t stop = tavlin::platform::statusBarStopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

void MacStatusBar::run(const platform::StatusMenu& menu, bool showWindow) {
  current = std::make_shared<MenuState>(MenuState{menu});
  stopOnSignals();
  NSApplication* app = [NSApplication sharedApplication];
  [app setActivationPolicy:NSApplicationActivationPolicyAccessory];
  TavlinMenuTarget* handler = menuHandler = [[TavlinMenuTarget alloc] init];
  NSStatusItem* item = statusItem = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
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
  [[NSStatusBar systemStatusBar] removeStatusItem:item];
  statusItem = nil;
  menuHandler = nil;
  current.reset();
}

}  // namespace tavlin::macos
