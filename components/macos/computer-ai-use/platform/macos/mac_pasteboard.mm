#include "platform/macos/mac_pasteboard.h"

#import <AppKit/AppKit.h>

#include "platform/macos/ns_strings.h"

namespace tavlin::macos {

// NSPasteboard answers without the main run loop turning, so a short-lived command
// reads and writes it directly.
platform::PasteboardContents MacPasteboard::read() {
  platform::PasteboardContents out;
  @autoreleasepool {
    NSPasteboard* board = NSPasteboard.generalPasteboard;
    out.changeCount = board.changeCount;
    NSArray<NSPasteboardType>* types = board.types;
    for (NSUInteger i = 0; types && i < types.count; ++i) {
      if (auto type = nsText([types objectAtIndex:i])) out.types.push_back(*type);
    }
    out.text = nsText([board stringForType:NSPasteboardTypeString]);
  }
  return out;
}

bool MacPasteboard::writeText(const std::string& text) {
  @autoreleasepool {
    NSPasteboard* board = NSPasteboard.generalPasteboard;
    // Taking ownership first drops the other types, so a paste cannot pick up a
    // richer representation of what was there before.
    [board clearContents];
    return [board setString:nsString(text) forType:NSPasteboardTypeString];
  }
}

}  // namespace tavlin::macos
