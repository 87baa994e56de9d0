// Declaration-only stand-in for Apple's CoreFoundation headers: exactly the names the
// macOS adapter uses, with Apple's signatures, for `clang++ -fsyntax-only` on Linux.
#pragma once
#include <os/availability.h>
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

typedef const struct __CFNull* CFNullRef;
typedef uint32_t CFStringEncoding;
enum { kCFStringEncodingUTF8 = 0x08000100 };
typedef CF_ENUM(CFIndex, CFNumberType){
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCGFloatType = 16,
};

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);
typedef struct {
  CFIndex version;
  CFArrayRetainCallBack retain;
  CFArrayReleaseCallBack release;
  CFArrayCopyDescriptionCallBack copyDescription;
  CFArrayEqualCallBack equal;
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef struct {
  CFIndex version;
  const void* retain;
  const void* release;
  const void* copyDescription;
  const void* equal;
  const void* hash;
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* retain;
  const void* release;
  const void* copyDescription;
  const void* equal;
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
extern const CFNullRef kCFNull;

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);
CFHashCode CFHash(CFTypeRef cf);
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

CFStringRef CFCopyTypeIDDescription(CFTypeID type_id);

CFTypeID CFStringGetTypeID(void);
CFTypeID CFArrayGetTypeID(void);
CFTypeID CFDictionaryGetTypeID(void);
CFTypeID CFNumberGetTypeID(void);
CFTypeID CFBooleanGetTypeID(void);
CFTypeID CFNullGetTypeID(void);
CFTypeID CFURLGetTypeID(void);

CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const uint8_t* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFIndex CFStringGetLength(CFStringRef theString);
void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);
CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding, uint8_t lossByte,
                         Boolean isExternalRepresentation, uint8_t* buffer, CFIndex maxBufLen, CFIndex* usedBufLen);

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks);
CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks);

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
Boolean CFNumberIsFloatType(CFNumberRef number);
CFNumberType CFNumberGetType(CFNumberRef number);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

CFStringRef CFURLGetString(CFURLRef anURL);
CFURLRef CFURLCopyAbsoluteURL(CFURLRef relativeURL);
typedef CF_ENUM(CFIndex, CFURLPathStyle){
    kCFURLPOSIXPathStyle = 0,
    kCFURLWindowsPathStyle = 2,
};
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
typedef struct __CFError* CFErrorRef;
CFURLRef CFURLCreateFilePathURL(CFAllocatorRef allocator, CFURLRef url, CFErrorRef* error) API_AVAILABLE(macos(10.6));
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const uint8_t* buffer, CFIndex bufLen,
                                                 Boolean isDirectory);

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);

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
typedef struct __CFRunLoop* CFRunLoopRef;
CFRunLoopRef CFRunLoopGetMain(void);
CFRunLoopRef CFRunLoopGetCurrent(void);
void CFRunLoopWakeUp(CFRunLoopRef rl);
#if __BLOCKS__
void CFRunLoopPerformBlock(CFRunLoopRef rl, CFTypeRef mode, void (^block)(void)) API_AVAILABLE(macos(10.6));
#endif

CF_EXTERN_C_END
