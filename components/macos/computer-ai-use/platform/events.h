#pragma once
// The events port: Quartz event services. Events are neutral values that the core
// fills in; the adapter turns them into CGEvents when they are posted.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/geometry.h"

namespace tavlin::platform {

// CGEventType values.
enum class EventType : uint32_t {
  null = 0,
  leftMouseDown = 1,
  leftMouseUp = 2,
  rightMouseDown = 3,
  rightMouseUp = 4,
  mouseMoved = 5,
  leftMouseDragged = 6,
  rightMouseDragged = 7,
  keyDown = 10,
  keyUp = 11,
  flagsChanged = 12,
  scrollWheel = 22,
  otherMouseDown = 25,
  otherMouseUp = 26,
  otherMouseDragged = 27,
};

// CGMouseButton values.
enum class MouseButtonCode : uint32_t { left = 0, right = 1, center = 2 };

// CGEventTapLocation values.
enum class EventTap : uint32_t { hid = 0, session = 1, annotatedSession = 2 };

// CGScrollEventUnit values.
enum class ScrollUnit : uint32_t { pixel = 0, line = 1 };

// CGEventFlags masks.
namespace eventflags {
inline constexpr uint64_t alphaShift = 0x10000;
inline constexpr uint64_t shift = 0x20000;
inline constexpr uint64_t control = 0x40000;
inline constexpr uint64_t alternate = 0x80000;
inline constexpr uint64_t command = 0x100000;
inline constexpr uint64_t numericPad = 0x200000;
inline constexpr uint64_t help = 0x400000;
inline constexpr uint64_t secondaryFn = 0x800000;
inline constexpr uint64_t nonCoalesced = 0x100;
}  // namespace eventflags

// Adapter-owned state behind an event.
class NativeEvent {
 public:
  virtual ~NativeEvent() = default;
};

struct Event {
  EventType type = EventType::null;
  // Mouse events
  Point location;
  MouseButtonCode button = MouseButtonCode::left;
  std::optional<int64_t> clickState;  // kCGMouseEventClickState, when set
  // Keyboard events
  uint16_t keyCode = 0;
  bool keyDown = false;
  std::optional<std::u16string> unicodeString;  // CGEventKeyboardSetUnicodeString, when set
  // Scroll-wheel events
  ScrollUnit scrollUnit = ScrollUnit::pixel;
  uint32_t wheelCount = 0;
  int32_t wheel1 = 0, wheel2 = 0, wheel3 = 0;
  // All events
  std::optional<uint64_t> flags;  // CGEventSetFlags, when set
  // The adapter's own event object, if it made one at creation: the one that is posted.
  // Copies of an event share it.
  std::shared_ptr<const NativeEvent> native;
};

class Events {
 public:
  virtual ~Events() = default;

  // Creation can fail (no event source, no window server): absent then.
  virtual std::optional<Event> createMouseEvent(EventType type, Point location, MouseButtonCode button) = 0;
  virtual std::optional<Event> createKeyboardEvent(uint16_t keyCode, bool keyDown) = 0;
  virtual std::optional<Event> createScrollWheelEvent(ScrollUnit unit, uint32_t wheelCount, int32_t wheel1,
                                                      int32_t wheel2, int32_t wheel3) = 0;
  // Changes of a created event go through the port, so that the adapter's own event
  // object, the one posted, changes with the neutral fields.
  void setClickState(Event& event, int64_t clickState) {
    event.clickState = clickState;
    applyClickState(event, clickState);
  }
  void setFlags(Event& event, uint64_t flags) {
    event.flags = flags;
    applyFlags(event, flags);
  }
  void setUnicodeString(Event& event, const std::u16string& text) {
    event.unicodeString = text;
    applyUnicodeString(event, text);
  }

  virtual void post(EventTap tap, const Event& event) = 0;
  virtual void postToPid(int32_t pid, const Event& event) = 0;
  // Moves the cursor without posting an event. False when the system refused.
  virtual bool warpMouseCursor(Point point) = 0;
  virtual Point pointerLocation() = 0;

 protected:
  // kCGMouseEventClickState, CGEventSetFlags, CGEventKeyboardSetUnicodeString on the
  // adapter's own event; nothing for an adapter that keeps none.
  virtual void applyClickState(Event&, int64_t) {}
  virtual void applyFlags(Event&, uint64_t) {}
  virtual void applyUnicodeString(Event&, const std::u16string&) {}
};

}  // namespace tavlin::platform
