#pragma once
// NSWorkspace / NSRunningApplication behind a pure C++ header.
#include "platform/workspace.h"

namespace tavlin::macos {

class MacWorkspace final : public platform::Workspace {
 public:
  std::vector<platform::RunningApplication> runningApplications() override;
  std::optional<platform::RunningApplication> frontmostApplication() override;
  bool unhide(int32_t pid) override;
  bool activate(int32_t pid, uint64_t options) override;
  std::string displayName(const std::string& path) override;
  std::optional<platform::ScreenInfo> mainScreen() override;
  std::optional<std::string> userCachesDirectory() override;
  std::string homeDirectory() override;
  std::string mainBundlePath() override;
};

}  // namespace tavlin::macos
