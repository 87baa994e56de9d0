#pragma once
// The values every mode reads, computed once at start in a fixed order and never
// changed afterwards. Handlers receive them by const reference; nothing else is global.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/date_format.h"
#include "entry/ipc.h"

namespace tavlin::platform {
class Workspace;
}

namespace tavlin::entry {

struct ProcessValues {
  TavlinStartup tavlinStartup;
  std::vector<std::string> tavlinArguments;
  std::optional<std::string> tavlinIPCDirectory;
  std::string tavlinRootURL;                     // install root (a folder path)
  std::string cacheDirectoryURL;                 // <caches>/Tavlin/computer-ai-use-state
  std::string backgroundWindowCaptureScriptURL;  // <root>/bin/background-window-capture
  std::vector<std::string> traversalAttributes;  // children attributes, in visiting order
  int64_t exactNameFirstScore = 0;
  common::CompactTimestampFormatter bwcTimestampFormatter;
};

// Builds the values in their documented order. `environmentRoot` is TAVLIN_INSTALL_ROOT.
ProcessValues makeProcessValues(TavlinStartup startup, platform::Workspace& workspace,
                                const std::optional<std::string>& environmentRoot);

}  // namespace tavlin::entry
