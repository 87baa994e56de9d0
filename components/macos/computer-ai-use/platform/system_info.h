#pragma once
// The system port: facts about this executable and the system it runs on that decide
// whether the tool can work here at all (its code signature, the macOS version). Both
// are read only; nothing here asks the user or changes anything.
#include <cstdint>
#include <optional>
#include <string>

namespace tavlin::platform {

// This executable's code signature (SecCodeCopySelf, SecCodeCopySigningInformation
// with kSecCSSigningInformation, SecCodeCheckValidity).
struct CodeSignature {
  enum class Kind {
    certificate,  // signed with a certificate (Developer ID, Apple Development, a self-made one)
    adhoc,        // kSecCodeSignatureAdhoc: no certificate, a new identity at every build
    notSigned,    // no kSecCodeInfoIdentifier, or errSecCSUnsigned
    invalid,      // the signature does not hold, or could not be read (`status` says why)
  };
  Kind kind = Kind::certificate;
  std::optional<std::string> identifier;      // kSecCodeInfoIdentifier
  std::optional<std::string> teamIdentifier;  // kSecCodeInfoTeamIdentifier
  std::optional<int32_t> status;              // the failing OSStatus, for `invalid`
};

class SystemInfo {
 public:
  virtual ~SystemInfo() = default;
  virtual CodeSignature codeSignature() = 0;
  // The product version as the system names it ("14.5", "13.3.1"); absent when it
  // cannot be read. The text is the system's: the caller parses it.
  virtual std::optional<std::string> operatingSystemVersion() = 0;
};

}  // namespace tavlin::platform
