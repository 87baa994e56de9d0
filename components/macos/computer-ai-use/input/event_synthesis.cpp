#include "input/event_synthesis.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"

namespace tavlin::input {

using platform::Event;
using platform::EventTap;
using platform::EventType;
using platform::Point;

namespace {

// Names are looked up after Unicode lower-casing, as the platform lower-cases: the
// Kelvin sign is a "k".
std::string lookupName(const std::string& s) { return common::lowercased(s); }

std::u16string utf16(const std::string& text) {
  std::u16string out;
  for (const auto& scalar : common::scalarsUTF16(text)) out += scalar;
  return out;
}

}  // namespace

std::optional<MouseButton> mouseButton(const std::string& raw) {
  if (raw == "left") return MouseButton::left;
  if (raw == "right") return MouseButton::right;
  if (raw == "middle") return MouseButton::middle;
  return std::nullopt;
}

platform::MouseButtonCode mouseButtonCode(MouseButton button) {
  switch (button) {
    case MouseButton::left: return platform::MouseButtonCode::left;
    case MouseButton::right: return platform::MouseButtonCode::right;
    case MouseButton::middle: return platform::MouseButtonCode::center;
  }
  return platform::MouseButtonCode::left;
}

EventType mouseType(MouseButton button, bool down, bool dragging) {
  switch (button) {
    case MouseButton::left:
      return dragging ? EventType::leftMouseDragged : down ? EventType::leftMouseDown : EventType::leftMouseUp;
    case MouseButton::right:
      return dragging ? EventType::rightMouseDragged : down ? EventType::rightMouseDown : EventType::rightMouseUp;
    case MouseButton::middle:
      return dragging ? EventType::otherMouseDragged : down ? EventType::otherMouseDown : EventType::otherMouseUp;
  }
  return EventType::null;
}

void requireScreenPoint(Point point) {
  auto onScreen = [](double v) { return std::isfinite(v) && std::fabs(v) <= maxScreenCoordinate; };
  if (onScreen(point.x) && onScreen(point.y)) return;
  auto text = [](double v) {
    if (std::isnan(v)) return std::string("nan");
    if (std::isinf(v)) return std::string(v < 0 ? "-inf" : "inf");
    return cli::formatJSON(cli::Json(v), cli::JsonFlavor::encoder);
  };
  throw cli::ToolError("Screen point " + text(point.x) + "," + text(point.y) +
                       " is not on any screen (coordinates are limited to 100000 points either way)");
}

void postMouseClick(platform::Platform& platform, Point at, MouseButton button, int64_t clickCount) {
  requireScreenPoint(at);
  if (clickCount > maxClickCount) {
    throw cli::ToolError("A click count of " + std::to_string(clickCount) + " is more than the " +
                         std::to_string(maxClickCount) + " clicks one command may post");
  }
  platform::Events& events = platform.events();
  platform::Clock& clock = platform.clock();
  int64_t pairs = std::max<int64_t>(clickCount, 1);
  for (int64_t n = 1; n <= pairs; ++n) {
    auto down = events.createMouseEvent(mouseType(button, true), at, mouseButtonCode(button));
    auto up = events.createMouseEvent(mouseType(button, false), at, mouseButtonCode(button));
    if (!down || !up) throw cli::ToolError("Could not create mouse events");
    // States 1, 2, 3... as hardware reports a double or triple click.
    events.setClickState(*down, n);
    events.setClickState(*up, n);
    events.post(EventTap::hid, *down);
    clock.sleep(0.03);
    events.post(EventTap::hid, *up);
    if (n < clickCount) clock.sleep(0.06);
  }
}

void postDrag(platform::Platform& platform, Point from, Point to, MouseButton button) {
  requireScreenPoint(from);
  requireScreenPoint(to);
  platform::Events& events = platform.events();
  platform::Clock& clock = platform.clock();
  auto down = events.createMouseEvent(mouseType(button, true), from, mouseButtonCode(button));
  auto up = events.createMouseEvent(mouseType(button, false), to, mouseButtonCode(button));
  if (!down || !up) throw cli::ToolError("Could not create drag events");
  events.post(EventTap::hid, *down);
  clock.sleep(0.04);
  constexpr int steps = 14;
  for (int i = 1; i <= steps; ++i) {
    Point p{from.x + (to.x - from.x) * i / steps, from.y + (to.y - from.y) * i / steps};
    if (auto move = events.createMouseEvent(mouseType(button, false, true), p, mouseButtonCode(button))) {
      events.post(EventTap::hid, *move);
    }
    clock.sleep(0.012);
  }
  events.post(EventTap::hid, *up);
}

void postUnicodeText(platform::Platform& platform, const std::string& text) {
  platform::Events& events = platform.events();
  // By character, so a letter with combining marks or an emoji sequence travels whole.
  for (const std::u16string& character : common::charactersUTF16(text)) {
    for (bool keyDown : {true, false}) {
      auto event = events.createKeyboardEvent(0, keyDown);
      if (!event) throw cli::ToolError("Could not create keyboard event");
      events.setUnicodeString(*event, character);
      events.post(EventTap::hid, *event);
    }
    platform.clock().sleep(0.01);
  }
}

std::optional<uint16_t> keyCode(const runtime::KeyTables& tables, const std::string& name) {
  auto it = tables.baseKeyCodes.find(lookupName(name));
  if (it == tables.baseKeyCodes.end()) return std::nullopt;
  return it->second;
}

namespace {

// The names between "+" signs, trimmed, empty ones dropped.
std::vector<std::string> comboPieces(const std::string& combo) {
  std::vector<std::string> pieces;
  size_t start = 0;
  for (size_t i = 0; i <= combo.size(); ++i) {
    if (i == combo.size() || combo[i] == '+') {
      std::string piece = common::trimmed(combo.substr(start, i - start));
      if (!piece.empty()) pieces.push_back(piece);
      start = i + 1;
    }
  }
  return pieces;
}

template <typename Map>
std::string names(const Map& map) {
  std::string out;
  for (const auto& [name, value] : map) out += (out.empty() ? "" : ", ") + name;
  return out;
}

}  // namespace

std::optional<std::string> keyComboProblem(const runtime::KeyTables& tables, const std::string& combo) {
  std::vector<std::string> pieces = comboPieces(combo);
  if (pieces.empty()) return "The key combination is empty. " + std::string("Keys: ") + names(tables.baseKeyCodes) + ".";
  const std::string& key = pieces.back();
  std::vector<std::string> modifiers(pieces.begin(), pieces.end() - 1);
  for (const auto& m : modifiers) {
    if (!tables.modifierFlags.contains(lookupName(m))) {
      return "Unknown modifier \"" + common::escapingLineBreaks(m) + "\" in \"" + common::escapingLineBreaks(combo) +
             "\". Modifiers: " + names(tables.modifierFlags) + ".";
    }
  }
  if (keyCode(tables, key) || (common::characterCount(key) == 1 && modifiers.empty())) return std::nullopt;
  return "Unsupported key \"" + common::escapingLineBreaks(key) + "\" in \"" + common::escapingLineBreaks(combo) +
         "\". Keys: " + names(tables.baseKeyCodes) + (modifiers.empty() ? ", or any one character" : "") + ".";
}

void postKeyCombo(platform::Platform& platform, const runtime::KeyTables& tables, const std::string& combo) {
  std::vector<std::string> pieces = comboPieces(combo);
  if (pieces.empty()) throw cli::ToolError("Key spec is empty");
  const std::string key = pieces.back();
  const std::vector<std::string> modifiers(pieces.begin(), pieces.end() - 1);

  uint64_t flags = 0;
  for (const auto& m : modifiers) {
    auto it = tables.modifierFlags.find(lookupName(m));
    if (it != tables.modifierFlags.end()) flags |= it->second;  // unknown modifiers are ignored on purpose
  }
  platform::Events& events = platform.events();
  platform::Clock& clock = platform.clock();
  auto postModifier = [&](const std::string& m, bool keyDown) {
    auto it = tables.modifierKeyCodes.find(lookupName(m));
    if (it == tables.modifierKeyCodes.end()) return;
    if (auto event = events.createKeyboardEvent(it->second, keyDown)) {
      events.setFlags(*event, flags);
      events.post(EventTap::hid, *event);
    }
    clock.sleep(0.01);
  };
  for (const auto& m : modifiers) postModifier(m, true);

  if (auto code = keyCode(tables, key)) {
    auto down = events.createKeyboardEvent(*code, true);
    auto up = events.createKeyboardEvent(*code, false);
    if (!down || !up) throw cli::ToolError("Could not create key events for " + combo);
    events.setFlags(*down, flags);
    events.setFlags(*up, flags);
    events.post(EventTap::hid, *down);
    clock.sleep(0.03);
    events.post(EventTap::hid, *up);
  } else if (common::characterCount(key) == 1 && modifiers.empty()) {
    postUnicodeText(platform, key);
  } else {
    // Modifiers already pressed stay pressed: the failure ends the operation at once.
    throw cli::ToolError("Unsupported key token " + key);
  }
  for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it) postModifier(*it, false);
}

void postKeyEventToPid(platform::Platform& platform, int32_t pid, uint16_t code, uint64_t flags, bool keyDown,
                       const std::optional<std::string>& unicodeText) {
  auto event = platform.events().createKeyboardEvent(code, keyDown);
  if (!event) throw cli::ToolError("Could not create pid-targeted key event");
  platform.events().setFlags(*event, flags);
  if (unicodeText) platform.events().setUnicodeString(*event, utf16(*unicodeText));
  platform.events().postToPid(pid, *event);
}

void tapKeyToPid(platform::Platform& platform, int32_t pid, uint16_t code, uint64_t flags,
                 const std::optional<std::string>& unicodeText, double pause) {
  postKeyEventToPid(platform, pid, code, flags, true, unicodeText);
  platform.clock().sleep(0.02);
  postKeyEventToPid(platform, pid, code, flags, false, unicodeText);
  platform.clock().sleep(pause);
}

void typeUnicodeTextToPid(platform::Platform& platform, int32_t pid, const std::string& text,
                          const std::function<void()>& beforeEachScalar) {
  platform::Events& events = platform.events();
  // By scalar, with flags cleared so no modifier state leaks into the target.
  for (const std::u16string& scalar : common::scalarsUTF16(text)) {
    if (beforeEachScalar) beforeEachScalar();
    for (bool keyDown : {true, false}) {
      auto event = events.createKeyboardEvent(0, keyDown);
      if (!event) throw cli::ToolError("Could not create pid-targeted key event");
      events.setFlags(*event, 0);
      events.setUnicodeString(*event, scalar);
      events.postToPid(pid, *event);
      platform.clock().sleep(keyDown ? 0.02 : 0.01);
    }
  }
}

void postMouseClickToPid(platform::Platform& platform, int32_t pid, Point at, int64_t clickState) {
  requireScreenPoint(at);
  platform::Events& events = platform.events();
  auto down = events.createMouseEvent(EventType::leftMouseDown, at, platform::MouseButtonCode::left);
  auto up = events.createMouseEvent(EventType::leftMouseUp, at, platform::MouseButtonCode::left);
  if (!down || !up) throw cli::ToolError("Could not create pid-targeted mouse events");
  events.setClickState(*down, clickState);
  events.setClickState(*up, clickState);
  events.postToPid(pid, *down);
  platform.clock().sleep(0.04);
  events.postToPid(pid, *up);
}

}  // namespace tavlin::input
