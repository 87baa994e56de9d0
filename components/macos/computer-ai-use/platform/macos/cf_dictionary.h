#pragma once
// Typed reads of a CFDictionary's values. Each is borrowed from the dictionary and
// absent unless the key holds a value of the expected type.
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/macos/cf_strings.h"

namespace tavlin::macos {

inline const void* dictionaryValue(CFDictionaryRef dictionary, CFStringRef key, CFTypeID type) {
  const void* value = CFDictionaryGetValue(dictionary, key);
  return value && CFGetTypeID(value) == type ? value : nullptr;
}

inline std::optional<int64_t> dictionaryNumber(CFDictionaryRef dictionary, CFStringRef key) {
  auto value = static_cast<CFNumberRef>(dictionaryValue(dictionary, key, CFNumberGetTypeID()));
  int64_t n = 0;
  if (!value || !CFNumberGetValue(value, kCFNumberSInt64Type, &n)) return std::nullopt;
  return n;
}

inline std::optional<std::string> dictionaryText(CFDictionaryRef dictionary, CFStringRef key) {
  auto value = static_cast<CFStringRef>(dictionaryValue(dictionary, key, CFStringGetTypeID()));
  if (!value) return std::nullopt;
  return toUTF8(value);
}

}  // namespace tavlin::macos
