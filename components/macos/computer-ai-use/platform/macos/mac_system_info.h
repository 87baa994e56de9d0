#pragma once
// The system port over the Security framework's code-signing calls (this process's own
// signature) and the kernel's product version.
#include "platform/system_info.h"

namespace tavlin::macos {

class MacSystemInfo final : public platform::SystemInfo {
 public:
  platform::CodeSignature codeSignature() override;
  std::optional<std::string> operatingSystemVersion() override;
};

}  // namespace tavlin::macos
