#pragma once
// The events port over Quartz event services. Events are created with no event source,
// as the tool always does. The CGEvent, owned by the neutral event, is the single
// source of truth: every change the core makes is made to it through the port, and it
// is posted as it stands.
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

 protected:
  void applyClickState(platform::Event& event, int64_t clickState) override;
  void applyFlags(platform::Event& event, uint64_t flags) override;
  void applyUnicodeString(platform::Event& event, const std::u16string& text) override;
};

}  // namespace tavlin::macos
