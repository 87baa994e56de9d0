#pragma once
// UTF-8 <-> CFString conversions for the adapter.
#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

inline CFHandle<CFStringRef> cfString(const std::string& text) {
  return CFHandle<CFStringRef>::adopt(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                              reinterpret_cast<const uint8_t*>(text.data()),
                                                              static_cast<CFIndex>(text.size()),
                                                              kCFStringEncodingUTF8, false));
}

inline CFHandle<CFArrayRef> cfStringArray(const std::vector<std::string>& texts) {
  std::vector<CFHandle<CFStringRef>> owned;
  std::vector<const void*> values;
  for (const auto& t : texts) {
    owned.push_back(cfString(t));
    values.push_back(owned.back().get());
  }
  return CFHandle<CFArrayRef>::adopt(CFArrayCreate(kCFAllocatorDefault, values.data(),
                                                   static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

// Borrowed; an absent string reads as empty.
inline std::string toUTF8(CFStringRef text) {
  if (!text) return {};
  CFIndex length = CFStringGetLength(text);
  CFRange all{0, length};
  CFIndex bytes = 0;
  CFStringGetBytes(text, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &bytes);
  std::string out(static_cast<size_t>(bytes), '\0');
  CFStringGetBytes(text, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<uint8_t*>(out.data()), bytes, nullptr);
  return out;
}

}  // namespace tavlin::macos
