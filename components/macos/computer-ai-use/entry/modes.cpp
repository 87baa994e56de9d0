#include "entry/modes.h"

namespace tavlin::entry {

Mode selectMode(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments[0].starts_with("-psn_")) return Mode::statusItemWithWindow;
  const std::string& word = arguments[0];
  if (word == "__menu-bar") return Mode::statusItemWithoutWindow;
  if (word == "__menu-bar-diagnose") return Mode::statusItemDiagnostic;
  if (word == "__background-window-capture") return Mode::backgroundWindowCapture;
  if (word == "__clicker") return Mode::clicker;
  if (word == "__mcp") return Mode::mcpServer;
  if (word == "__record-desktop") return Mode::recordDesktop;
  if (word == "__image-size") return Mode::imageSize;
  if (word == "__updater-feed") return Mode::updaterFeed;
  return Mode::agentTool;
}

}  // namespace tavlin::entry
