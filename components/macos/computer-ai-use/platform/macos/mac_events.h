#pragma once
// The events port over Quartz event services. Events are created with no event source,
// as the tool always does, and kept until they are posted.
#include "platform/events.h"

namespace tavlin::macos {

class MacEvents final : public platform::Events {
 public:
  std::optional<platform::Event> createMouseEvent(platform::EventType type, platform::Point location,
                                                  platform::MouseButtonCode button) override;
  std::optional<platform::Event> createKeyboardEvent(uint16_t keyCode, bool keyDown) override;
  std::optional<platform::Event> createScrollWheelEvent(platform::ScrollUnit unit, uint32_t wheelCount, int32_t wheel1,
                                                        int32_t wheel2, int32_t wheel3) override;
  void post(platform::EventTap tap, const platform::Event& event) override;
  void postToPid(int32_t pid, const platform::Event& event) override;
  bool warpMouseCursor(platform::Point point) override;
  platform::Point pointerLocation() override;
};

}  // namespace tavlin::macos
