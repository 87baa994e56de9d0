// Declaration-only stand-in for Apple's Security framework headers: the code-signing
// calls (SecCode.h, CSCommon.h, SecBase.h) through which the macOS adapter reads this
// process's own signature, with Apple's signatures.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

CF_EXTERN_C_BEGIN

typedef int32_t OSStatus;

// SecBase.h, CSCommon.h: the results the adapter tells apart.
enum {
  errSecSuccess = 0,
  errSecCSUnsigned = -67062,
};

// CSCommon.h
typedef struct __SecCode* SecCodeRef;               // running code
typedef const struct __SecCode* SecStaticCodeRef;   // code on disk
typedef struct __SecRequirement* SecRequirementRef;
typedef CF_OPTIONS(uint32_t, SecCSFlags){
    kSecCSDefaultFlags = 0,
};
typedef CF_OPTIONS(uint32_t, SecCodeSignatureFlags){
    kSecCodeSignatureAdhoc = 0x0002,
};

// SecCode.h
enum {
  kSecCSSigningInformation = 1 << 1,
};
extern const CFStringRef kSecCodeInfoCertificates;
extern const CFStringRef kSecCodeInfoFlags;
extern const CFStringRef kSecCodeInfoIdentifier;
extern const CFStringRef kSecCodeInfoTeamIdentifier;

OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self) API_AVAILABLE(macos(10.5));
OSStatus SecCodeCheckValidity(SecCodeRef code, SecCSFlags flags, SecRequirementRef requirement)
    API_AVAILABLE(macos(10.5));
OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags, CFDictionaryRef* information)
    API_AVAILABLE(macos(10.5));

CF_EXTERN_C_END
