#pragma once
// The window-list port over CGWindowListCopyWindowInfo.
#include "platform/window_list.h"

namespace tavlin::macos {

class MacWindowList final : public platform::WindowList {
 public:
  std::optional<std::vector<platform::WindowInfo>> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) override;
};

}  // namespace tavlin::macos
