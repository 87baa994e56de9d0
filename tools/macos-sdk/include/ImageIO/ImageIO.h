// Declaration-only stand-in for Apple's ImageIO headers (see CoreFoundation.h).
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>

CF_EXTERN_C_BEGIN

typedef struct CGImageSource* CGImageSourceRef;
CGImageSourceRef CGImageSourceCreateWithURL(CFURLRef url, CFDictionaryRef options) API_AVAILABLE(macos(10.4));
CFDictionaryRef CGImageSourceCopyPropertiesAtIndex(CGImageSourceRef isrc, size_t index, CFDictionaryRef options) API_AVAILABLE(macos(10.4));
extern const CFStringRef kCGImagePropertyPixelWidth;
extern const CFStringRef kCGImagePropertyPixelHeight;

typedef struct CGImage* CGImageRef;
CGImageRef CGImageRetain(CGImageRef image);
void CGImageRelease(CGImageRef image);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);

typedef struct CGImageDestination* CGImageDestinationRef;
CGImageDestinationRef CGImageDestinationCreateWithURL(CFURLRef url, CFStringRef type, size_t count,
                                                      CFDictionaryRef options) API_AVAILABLE(macos(10.4));
void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image, CFDictionaryRef properties) API_AVAILABLE(macos(10.4));
bool CGImageDestinationFinalize(CGImageDestinationRef idst) API_AVAILABLE(macos(10.4));

CF_EXTERN_C_END
