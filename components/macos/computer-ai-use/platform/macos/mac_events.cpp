#include "platform/macos/mac_events.h"

#include <ApplicationServices/ApplicationServices.h>

#include <memory>

#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

using platform::Event;

namespace {

struct MacNativeEvent final : platform::NativeEvent {
  explicit MacNativeEvent(CFHandle<CGEventRef> e) : event(std::move(e)) {}
  CFHandle<CGEventRef> event;
};

std::optional<Event> adopt(CGEventRef created, Event event) {
  auto handle = CFHandle<CGEventRef>::adopt(created);
  if (!handle) return std::nullopt;
  event.native = std::make_shared<MacNativeEvent>(std::move(handle));
  return event;
}

// The event's CGEvent, absent for an event this adapter did not create.
CGEventRef cgEvent(const Event& event) {
  const auto* native = dynamic_cast<const MacNativeEvent*>(event.native.get());
  return native ? native->event.get() : nullptr;
}

}  // namespace

std::optional<Event> MacEvents::createMouseEvent(platform::EventType type, platform::Point location,
                                                 platform::MouseButtonCode button) {
  Event event;
  event.type = type;
  event.location = location;
  event.button = button;
  return adopt(CGEventCreateMouseEvent(nullptr, static_cast<CGEventType>(type), CGPoint{location.x, location.y},
                                       static_cast<CGMouseButton>(button)),
               event);
}

std::optional<Event> MacEvents::createKeyboardEvent(uint16_t keyCode, bool keyDown) {
  Event event;
  event.type = keyDown ? platform::EventType::keyDown : platform::EventType::keyUp;
  event.keyCode = keyCode;
  event.keyDown = keyDown;
  return adopt(CGEventCreateKeyboardEvent(nullptr, keyCode, keyDown), event);
}

std::optional<Event> MacEvents::createScrollWheelEvent(platform::ScrollUnit unit, uint32_t wheelCount, int32_t wheel1,
                                                       int32_t wheel2, int32_t wheel3) {
  Event event;
  event.type = platform::EventType::scrollWheel;
  event.scrollUnit = unit;
  event.wheelCount = wheelCount;
  event.wheel1 = wheel1;
  event.wheel2 = wheel2;
  event.wheel3 = wheel3;
  return adopt(CGEventCreateScrollWheelEvent2(nullptr, static_cast<CGScrollEventUnit>(unit), wheelCount, wheel1,
                                              wheel2, wheel3),
               event);
}

void MacEvents::applyClickState(Event& event, int64_t clickState) {
  if (CGEventRef ref = cgEvent(event)) CGEventSetIntegerValueField(ref, kCGMouseEventClickState, clickState);
}

void MacEvents::applyFlags(Event& event, uint64_t flags) {
  if (CGEventRef ref = cgEvent(event)) CGEventSetFlags(ref, flags);
}

void MacEvents::applyUnicodeString(Event& event, const std::u16string& text) {
  if (CGEventRef ref = cgEvent(event)) {
    CGEventKeyboardSetUnicodeString(ref, text.size(), reinterpret_cast<const UniChar*>(text.data()));
  }
}

void MacEvents::post(platform::EventTap tap, const Event& event) {
  if (CGEventRef ref = cgEvent(event)) CGEventPost(static_cast<CGEventTapLocation>(tap), ref);
}

void MacEvents::postToPid(int32_t pid, const Event& event) {
  if (CGEventRef ref = cgEvent(event)) CGEventPostToPid(pid, ref);
}

bool MacEvents::warpMouseCursor(platform::Point point) {
  return CGWarpMouseCursorPosition(CGPoint{point.x, point.y}) == kCGErrorSuccess;
}

platform::Point MacEvents::pointerLocation() {
  auto event = CFHandle<CGEventRef>::adopt(CGEventCreate(nullptr));
  if (!event) return {};
  CGPoint p = CGEventGetLocation(event.get());
  return {p.x, p.y};
}

}  // namespace tavlin::macos
