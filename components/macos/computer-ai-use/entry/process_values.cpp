#include "entry/process_values.h"

#include "common/files.h"
#include "entry/install_root.h"
#include "platform/workspace.h"

namespace tavlin::entry {

runtime::ProcessValues makeProcessValues(runtime::TavlinStartup startup, platform::Workspace& workspace,
                                const StartupEnvironment& environment) {
  runtime::ProcessValues v;
  v.tavlinStartup = std::move(startup);
  v.tavlinArguments = v.tavlinStartup.arguments;
  v.tavlinIPCDirectory = v.tavlinStartup.ipcDirectory;
  v.tavlinRootURL =
      findTavlinRoot(environment.installRoot, workspace.mainBundlePath(), buildTimeRoot(), common::currentDirectory());
  std::string caches = workspace.userCachesDirectory().value_or(
      common::appendPathComponent(workspace.homeDirectory(), "Library/Caches"));
  v.cacheDirectoryURL =
      common::appendPathComponent(common::appendPathComponent(caches, "Tavlin"), "computer-ai-use-state");
  v.backgroundWindowCaptureScriptURL = common::appendPathComponent(v.tavlinRootURL, "bin/background-window-capture");
  v.traversalAttributes = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                           "AXChildrenInNavigationOrder"};
  v.exactNameFirstScore = 1000000;
  v.bwcTimestampFormatter = common::CompactTimestampFormatter{};
  v.keyTables = runtime::makeKeyTables();
  v.openPanelTitles = {{"打开", "Open"}, {"打开", "Open", "选择", "Choose"}, {"取消", "Cancel"}};
  v.programPath = environment.programPath;
  v.accessibilityTimeoutSetting = environment.accessibilityTimeout;
  v.installRootSetting = environment.installRoot;
  if (environment.font && !environment.font->empty()) v.fontSetting = environment.font;
  return v;
}

}  // namespace tavlin::entry
