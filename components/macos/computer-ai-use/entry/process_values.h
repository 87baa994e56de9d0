#pragma once
// Builds the process-wide values once at start, in their documented order.
#include <optional>
#include <string>

#include "runtime/process_values.h"

namespace tavlin::platform {
class Workspace;
}

namespace tavlin::entry {

struct StartupEnvironment {
  std::optional<std::string> installRoot;           // TAVLIN_INSTALL_ROOT
  std::optional<std::string> accessibilityTimeout;  // TAVLIN_AX_TIMEOUT
  std::string programPath;                          // argv[0]
  std::optional<std::string> font = std::nullopt;   // TAVLIN_FONT
};

runtime::ProcessValues makeProcessValues(runtime::TavlinStartup startup, platform::Workspace& workspace,
                                         const StartupEnvironment& environment);

}  // namespace tavlin::entry
