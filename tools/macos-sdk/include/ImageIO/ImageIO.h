// Declaration-only stand-in for Apple's ImageIO headers (see CoreFoundation.h).
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>

CF_EXTERN_C_BEGIN

typedef struct CGImageSource* CGImageSourceRef;
CGImageSourceRef CGImageSourceCreateWithURL(CFURLRef url, CFDictionaryRef options);
CFDictionaryRef CGImageSourceCopyPropertiesAtIndex(CGImageSourceRef isrc, size_t index, CFDictionaryRef options);
extern const CFStringRef kCGImagePropertyPixelWidth;
extern const CFStringRef kCGImagePropertyPixelHeight;

CF_EXTERN_C_END
