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

// Never nil.
inline NSString* nsString(const std::string& s) {
  NSString* converted = [NSString stringWithUTF8String:common::repairingUTF8(s).c_str()];
  return converted ? converted : [NSString stringWithUTF8String:""];
}

}  // namespace tavlin::macos
