#pragma once
// UTF-8 <-> CFString conversions for the adapter. Both directions repair what is not
// valid, as the platform's own bridging does: a lone surrogate in a CFString reads as
// U+FFFD, and ill-formed UTF-8 becomes U+FFFD before it is made a CFString, so that a
// conversion never cuts a text short nor yields NULL.
#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

#include "common/unicode.h"
#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

// Never NULL.
inline CFHandle<CFStringRef> cfString(const std::string& text) {
  std::string valid = common::repairingUTF8(text);
  return CFHandle<CFStringRef>::adopt(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                              reinterpret_cast<const uint8_t*>(valid.data()),
                                                              static_cast<CFIndex>(valid.size()),
                                                              kCFStringEncodingUTF8, false));
}

inline CFHandle<CFArrayRef> cfStringArray(const std::vector<std::string>& texts) {
  std::vector<CFHandle<CFStringRef>> owned;
  std::vector<const void*> values;
  for (const auto& t : texts) {
    owned.push_back(cfString(t));
    if (owned.back()) values.push_back(owned.back().get());
  }
  return CFHandle<CFArrayRef>::adopt(CFArrayCreate(kCFAllocatorDefault, values.data(),
                                                   static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

// Borrowed; an absent string reads as empty.
inline std::string toUTF8(CFStringRef text) {
  if (!text) return {};
  CFIndex length = CFStringGetLength(text);
  std::u16string units(static_cast<size_t>(length), u'\0');
  if (length > 0) CFStringGetCharacters(text, CFRange{0, length}, reinterpret_cast<UniChar*>(units.data()));
  return common::utf8FromUTF16(units);
}

}  // namespace tavlin::macos
