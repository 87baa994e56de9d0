#include "platform/macos/mac_events.h"

#include <ApplicationServices/ApplicationServices.h>

#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

using platform::Event;

namespace {

// The created CGEvent rides along in the neutral event until it is posted.
std::optional<Event> adopt(CGEventRef created, Event event) {
  if (!created) return std::nullopt;
  event.native = std::shared_ptr<const void>(created, [](const void* e) { CFRelease(e); });
  return event;
}

// Applies the fields the core set after creation, and returns the event to post.
CGEventRef prepared(const Event& event) {
  auto ref = static_cast<CGEventRef>(const_cast<void*>(event.native.get()));
  if (!ref) return nullptr;
  if (event.clickState) CGEventSetIntegerValueField(ref, kCGMouseEventClickState, *event.clickState);
  if (event.flags) CGEventSetFlags(ref, *event.flags);
  if (event.unicodeString) {
    CGEventKeyboardSetUnicodeString(ref, event.unicodeString->size(),
                                    reinterpret_cast<const UniChar*>(event.unicodeString->data()));
  }
  return ref;
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

void MacEvents::post(platform::EventTap tap, const Event& event) {
  if (CGEventRef ref = prepared(event)) CGEventPost(static_cast<CGEventTapLocation>(tap), ref);
}

void MacEvents::postToPid(int32_t pid, const Event& event) {
  if (CGEventRef ref = prepared(event)) CGEventPostToPid(pid, ref);
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
