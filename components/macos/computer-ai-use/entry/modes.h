#pragma once
#include <string>
#include <vector>

namespace tavlin::entry {

enum class Mode {
  statusItemWithWindow,     // no arguments, or the system's "-psn_" argument
  statusItemWithoutWindow,  // "__menu-bar"
  statusItemDiagnostic,     // "__menu-bar-diagnose"
  backgroundWindowCapture,  // "__background-window-capture"
  clicker,                  // "__clicker"
  mcpServer,                // "__mcp"
  recordDesktop,            // "__record-desktop"
  imageSize,                // "__image-size"
  updaterFeed,              // "__updater-feed" (bin/tavlin-updater reads its feed with it)
  agentTool,                // anything else
};

Mode selectMode(const std::vector<std::string>& arguments);

}  // namespace tavlin::entry
