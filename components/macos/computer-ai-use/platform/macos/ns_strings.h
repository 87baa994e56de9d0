#pragma once
// NSString <-> UTF-8 for the Objective-C++ files, through the repairing CFString
// conversions: a name with a lone surrogate reads with U+FFFD, never as "" or NULL.
#import <Foundation/Foundation.h>

#include <optional>
#include <string>

#include "common/unicode.h"
#include "platform/macos/cf_strings.h"

namespace tavlin::macos {

inline std::optional<std::string> nsText(NSString* _Nullable s) {
  if (!s) return std::nullopt;
  return toUTF8((__bridge CFStringRef)s);
}

// Never nil. The whole string, NULs included: a C-string conversion would end at the first.
inline NSString* _Nonnull nsString(const std::string& s) {
  std::string utf8 = common::repairingUTF8(s);
  NSString* converted = [[NSString alloc] initWithBytes:utf8.data() length:utf8.size() encoding:NSUTF8StringEncoding];
  return converted ? converted : @"";
}

}  // namespace tavlin::macos
