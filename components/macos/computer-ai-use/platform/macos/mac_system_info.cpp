#include "platform/macos/mac_system_info.h"

#include <Security/Security.h>
#include <sys/sysctl.h>

#include <cstring>

#include "platform/macos/cf_dictionary.h"
#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

using platform::CodeSignature;

CodeSignature MacSystemInfo::codeSignature() {
  CodeSignature result{CodeSignature::Kind::invalid, std::nullopt, std::nullopt, std::nullopt};
  SecCodeRef self = nullptr;
  if (OSStatus status = SecCodeCopySelf(kSecCSDefaultFlags, &self); status != errSecSuccess || !self) {
    result.status = status;
    return result;
  }
  auto code = CFHandle<SecCodeRef>::adopt(self);
  CFDictionaryRef information = nullptr;
  OSStatus status = SecCodeCopySigningInformation(code.get(), kSecCSSigningInformation, &information);
  auto info = CFHandle<CFDictionaryRef>::adopt(information);
  if (status != errSecSuccess || !info.hasType(CFDictionaryGetTypeID())) {
    result.status = status;
    return result;
  }
  // Unsigned code is the one without an identifier.
  result.identifier = dictionaryText(info.get(), kSecCodeInfoIdentifier);
  if (!result.identifier) {
    result.kind = CodeSignature::Kind::notSigned;
    return result;
  }
  result.teamIdentifier = dictionaryText(info.get(), kSecCodeInfoTeamIdentifier);
  // The information alone is not checked: only a valid signature's identity counts.
  status = SecCodeCheckValidity(code.get(), kSecCSDefaultFlags, nullptr);
  if (status == errSecCSUnsigned) {
    result.kind = CodeSignature::Kind::notSigned;
  } else if (status != errSecSuccess) {
    result.status = status;
  } else {
    // A certificate is what makes the identity stable: without a certificate chain, or
    // with flags that cannot be read, the signature is not taken for one.
    std::optional<int64_t> flags = dictionaryNumber(info.get(), kSecCodeInfoFlags);
    auto certificates = static_cast<CFArrayRef>(dictionaryValue(info.get(), kSecCodeInfoCertificates, CFArrayGetTypeID()));
    bool adhoc = !flags || (static_cast<uint64_t>(*flags) & kSecCodeSignatureAdhoc) || !certificates ||
                 CFArrayGetCount(certificates) == 0;
    result.kind = adhoc ? CodeSignature::Kind::adhoc : CodeSignature::Kind::certificate;
  }
  return result;
}

std::optional<std::string> MacSystemInfo::operatingSystemVersion() {
  // The product version ("14.5"), as Software Update names it.
  char version[64] = {};
  size_t size = sizeof version;
  if (sysctlbyname("kern.osproductversion", version, &size, nullptr, 0) != 0 || size == 0) return std::nullopt;
  return std::string(version, strnlen(version, sizeof version));
}

}  // namespace tavlin::macos
