#pragma once
// The values every mode reads, computed once at start in a fixed order (by the entry)
// and never changed afterwards. Handlers receive them by const reference; nothing else
// is global.
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/date_format.h"
#include "runtime/key_tables.h"

namespace tavlin::runtime {

// The command line after the IPC pre-pass.
struct TavlinStartup {
  std::vector<std::string> arguments;       // without argv[0] and the IPC option
  std::optional<std::string> ipcDirectory;  // absent unless the option had a value
};

// The Open panel's titles (exact, case-sensitive): English and Simplified Chinese only.
struct OpenPanelTitleSets {
  std::set<std::string> panel;         // the panel window or sheet itself
  std::set<std::string> chooseButton;  // the button that confirms the choice
  std::set<std::string> cancelButton;  // the button that dismisses the panel
};

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
  KeyTables keyTables;
  OpenPanelTitleSets openPanelTitles;
  // Beyond the shared list: argv[0] (names the tool in the permission message when
  // there is no bundle) and TAVLIN_AX_TIMEOUT as given (checked where it is used, so
  // a bad value is reported like any other bad input).
  std::string programPath;
  std::optional<std::string> accessibilityTimeoutSetting;
  // TAVLIN_INSTALL_ROOT as given, so that a value the root search passed over can be
  // reported.
  std::optional<std::string> installRootSetting;
  // TAVLIN_FONT when set and not empty: the font file drawn with, instead of the search list.
  std::optional<std::string> fontSetting;
};

}  // namespace tavlin::runtime
