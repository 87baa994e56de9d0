#include "platform/macos/mac_workspace.h"

#import <AppKit/AppKit.h>

#include "platform/macos/mac_clock.h"
#include "platform/macos/ns_strings.h"

namespace tavlin::macos {
namespace {

platform::RunningApplication convert(NSRunningApplication* app) {
  platform::RunningApplication out;
  out.pid = app.processIdentifier;
  out.localizedName = nsText(app.localizedName);
  out.bundleIdentifier = nsText(app.bundleIdentifier);
  out.activationPolicy = static_cast<platform::ActivationPolicy>(static_cast<int64_t>(app.activationPolicy));
  out.hidden = app.hidden;
  out.terminated = app.terminated;
  return out;
}

}  // namespace

std::vector<platform::RunningApplication> MacWorkspace::runningApplications() {
  std::vector<platform::RunningApplication> out;
  // The list is brought up to date only as the main run loop turns.
  turnMainRunLoopOnce();
  @autoreleasepool {
    NSArray<NSRunningApplication*>* apps = NSWorkspace.sharedWorkspace.runningApplications;
    for (NSUInteger i = 0; i < apps.count; ++i) out.push_back(convert([apps objectAtIndex:i]));
  }
  return out;
}

std::optional<platform::RunningApplication> MacWorkspace::frontmostApplication() {
  turnMainRunLoopOnce();
  @autoreleasepool {
    NSRunningApplication* app = NSWorkspace.sharedWorkspace.frontmostApplication;
    if (!app) return std::nullopt;
    return convert(app);
  }
}

bool MacWorkspace::unhide(int32_t pid) {
  @autoreleasepool {
    NSRunningApplication* app = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
    return app && [app unhide];
  }
}

// -[NSRunningApplication activateWithOptions:] is the call the tool makes, as before
// macOS 14. From macOS 14 activation is cooperative: the call is a request, which the
// system may refuse when the calling process is not the active one (a command-line
// tool rarely is), and NSApplicationActivateIgnoringOtherApps is deprecated and has no
// effect ("ignoringOtherApps is deprecated in macOS 14 and will have no effect",
// AppKit's NSRunningApplication.h; Apple's "Passing control from one app to another
// with cooperative activation"). The result is therefore only an acceptance, which is
// why the core waits for the application to become frontmost before it reports
// success. A fallback on macOS 14 would be -[NSRunningApplication
// activateFromApplication:options:] with the current frontmost application after it
// called -[NSApplication yieldActivationToApplication:], which only that application
// can do; so the request stays the one call.
bool MacWorkspace::activate(int32_t pid, uint64_t options) {
  @autoreleasepool {
    NSRunningApplication* app = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
    return app && [app activateWithOptions:static_cast<NSApplicationActivationOptions>(options)];
  }
}

std::optional<platform::ScreenInfo> MacWorkspace::mainScreen() {
  @autoreleasepool {
    // The first screen holds the menu bar and the origin of screen points; mainScreen
    // would be the one with the key window instead.
    NSArray<NSScreen*>* screens = NSScreen.screens;
    if (screens.count == 0) return std::nullopt;
    NSScreen* screen = [screens objectAtIndex:0];
    CGRect frame = screen.frame;
    return platform::ScreenInfo{{frame.size.width, frame.size.height}, screen.backingScaleFactor};
  }
}

std::string MacWorkspace::displayName(const std::string& path) {
  @autoreleasepool {
    return nsText([NSFileManager.defaultManager displayNameAtPath:nsString(path)]).value_or(path);
  }
}

std::optional<std::string> MacWorkspace::userCachesDirectory() {
  @autoreleasepool {
    NSURL* url = [NSFileManager.defaultManager URLsForDirectory:NSCachesDirectory inDomains:NSUserDomainMask]
                     .firstObject;
    if (!url) return std::nullopt;
    return nsText(url.path);
  }
}

std::string MacWorkspace::homeDirectory() {
  @autoreleasepool {
    return nsText(NSHomeDirectory()).value_or("/");
  }
}

std::string MacWorkspace::mainBundlePath() {
  @autoreleasepool {
    return nsText(NSBundle.mainBundle.bundlePath).value_or("");
  }
}

}  // namespace tavlin::macos
