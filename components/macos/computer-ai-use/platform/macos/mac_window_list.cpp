#include "platform/macos/mac_window_list.h"

#include <ApplicationServices/ApplicationServices.h>

#include "platform/macos/cf_dictionary.h"
#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

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
    w.number = static_cast<uint32_t>(dictionaryNumber(entry, kCGWindowNumber).value_or(0));
    w.layer = static_cast<int32_t>(dictionaryNumber(entry, kCGWindowLayer).value_or(0));
    w.ownerPID = static_cast<int32_t>(dictionaryNumber(entry, kCGWindowOwnerPID).value_or(0));
    w.ownerName = dictionaryText(entry, kCGWindowOwnerName);
    w.name = dictionaryText(entry, kCGWindowName);
    if (auto alpha = static_cast<CFNumberRef>(dictionaryValue(entry, kCGWindowAlpha, CFNumberGetTypeID()))) {
      CFNumberGetValue(alpha, kCFNumberDoubleType, &w.alpha);
    }
    if (auto onscreen = static_cast<CFBooleanRef>(dictionaryValue(entry, kCGWindowIsOnscreen, CFBooleanGetTypeID()))) {
      w.onscreen = CFBooleanGetValue(onscreen);
    }
    CGRect bounds{};
    auto boundsDict = static_cast<CFDictionaryRef>(dictionaryValue(entry, kCGWindowBounds, CFDictionaryGetTypeID()));
    if (boundsDict && CGRectMakeWithDictionaryRepresentation(boundsDict, &bounds)) {
      w.bounds = {{bounds.origin.x, bounds.origin.y}, {bounds.size.width, bounds.size.height}};
    }
    out.push_back(std::move(w));
  }
  return out;
}

}  // namespace tavlin::macos
