// Declaration-only stand-in for Apple's CoreFoundation headers: exactly the names the
// macOS adapter uses, with Apple's signatures, for `clang++ -fsyntax-only` on Linux.
#pragma once
#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

// In C++ a CF_ENUM is an unscoped enum with a fixed type; a CF_OPTIONS type is a plain
// integer typedef with an anonymous enum of its values.
#define CF_ENUM(_type, _name) enum _name : _type _name; enum _name : _type
#define CF_OPTIONS(_type, _name) _type _name; enum : _type

CF_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef int32_t SInt32;
typedef uint32_t UInt32;
typedef int64_t SInt64;
typedef uint16_t UniChar;
typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFHashCode;
typedef unsigned long CFOptionFlags;
typedef double CFTimeInterval;
typedef double CFAbsoluteTime;

typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFURL* CFURLRef;
typedef const struct __CFAllocator* CFAllocatorRef;

typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);
CFHashCode CFHash(CFTypeRef cf);
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

typedef CFStringRef CFRunLoopMode;
extern const CFRunLoopMode kCFRunLoopDefaultMode;
extern const CFRunLoopMode kCFRunLoopCommonModes;
typedef CF_ENUM(SInt32, CFRunLoopRunResult){
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4,
};
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds, Boolean returnAfterSourceHandled);

CF_EXTERN_C_END
