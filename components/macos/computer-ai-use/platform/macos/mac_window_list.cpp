#include "platform/macos/mac_window_list.h"

#include <ApplicationServices/ApplicationServices.h>

#include "platform/macos/cf_handle.h"
#include "platform/macos/cf_strings.h"

namespace tavlin::macos {
namespace {

// Borrowed from the entry; absent unless the key holds a value of the given type.
const void* typed(CFDictionaryRef entry, CFStringRef key, CFTypeID type) {
  const void* value = CFDictionaryGetValue(entry, key);
  return value && CFGetTypeID(value) == type ? value : nullptr;
}

std::optional<int64_t> number(CFDictionaryRef entry, CFStringRef key) {
  auto value = static_cast<CFNumberRef>(typed(entry, key, CFNumberGetTypeID()));
  int64_t n = 0;
  if (!value || !CFNumberGetValue(value, kCFNumberSInt64Type, &n)) return std::nullopt;
  return n;
}

std::optional<std::string> text(CFDictionaryRef entry, CFStringRef key) {
  auto value = static_cast<CFStringRef>(typed(entry, key, CFStringGetTypeID()));
  if (!value) return std::nullopt;
  return toUTF8(value);
}

}  // namespace

std::optional<std::vector<platform::WindowInfo>> MacWindowList::copyWindowInfo(uint32_t options,
                                                                                uint32_t relativeToWindow) {
  auto list = CFHandle<CFArrayRef>::adopt(CGWindowListCopyWindowInfo(options, relativeToWindow));
  if (!list.hasType(CFArrayGetTypeID())) return std::nullopt;  // no window-server session
  std::vector<platform::WindowInfo> out;
  CFIndex count = CFArrayGetCount(list.get());
  for (CFIndex i = 0; i < count; ++i) {
    const void* item = CFArrayGetValueAtIndex(list.get(), i);
    if (!item || CFGetTypeID(item) != CFDictionaryGetTypeID()) continue;
    auto entry = static_cast<CFDictionaryRef>(item);
    platform::WindowInfo w;
    w.number = static_cast<uint32_t>(number(entry, kCGWindowNumber).value_or(0));
    w.layer = static_cast<int32_t>(number(entry, kCGWindowLayer).value_or(0));
    w.ownerPID = static_cast<int32_t>(number(entry, kCGWindowOwnerPID).value_or(0));
    w.ownerName = text(entry, kCGWindowOwnerName);
    w.name = text(entry, kCGWindowName);
    if (auto alpha = static_cast<CFNumberRef>(typed(entry, kCGWindowAlpha, CFNumberGetTypeID()))) {
      CFNumberGetValue(alpha, kCFNumberDoubleType, &w.alpha);
    }
    if (auto onscreen = static_cast<CFBooleanRef>(typed(entry, kCGWindowIsOnscreen, CFBooleanGetTypeID()))) {
      w.onscreen = CFBooleanGetValue(onscreen);
    }
    CGRect bounds{};
    auto boundsDict = static_cast<CFDictionaryRef>(typed(entry, kCGWindowBounds, CFDictionaryGetTypeID()));
    if (boundsDict && CGRectMakeWithDictionaryRepresentation(boundsDict, &bounds)) {
      w.bounds = {{bounds.origin.x, bounds.origin.y}, {bounds.size.width, bounds.size.height}};
    }
    out.push_back(std::move(w));
  }
  return out;
}

}  // namespace tavlin::macos
