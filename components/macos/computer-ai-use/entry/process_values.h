#pragma once
// The values every mode reads, computed once at start in a fixed order and never
// changed afterwards. Handlers receive them by const reference; nothing else is global.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/date_format.h"
#include "entry/ipc.h"
#include "input/key_tables.h"

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
  input::KeyTables keyTables;
  // Beyond the shared list: argv[0] (names the tool in the permission message when
  // there is no bundle) and TAVLIN_AX_TIMEOUT as given (checked where it is used, so
  // a bad value is reported like any other bad input).
  std::string programPath;
  std::optional<std::string> accessibilityTimeoutSetting;
};

// Builds the values in their documented order. `environmentRoot` is TAVLIN_INSTALL_ROOT.
struct StartupEnvironment {
  std::optional<std::string> installRoot;         // TAVLIN_INSTALL_ROOT
  std::optional<std::string> accessibilityTimeout;  // TAVLIN_AX_TIMEOUT
  std::string programPath;                        // argv[0]
};

ProcessValues makeProcessValues(TavlinStartup startup, platform::Workspace& workspace,
                                const StartupEnvironment& environment);

}  // namespace tavlin::entry
