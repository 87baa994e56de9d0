#pragma once
// Synthetic input. Two families that must stay apart: session-wide events posted at
// the HID tap (they go where real hardware input goes: the frontmost application),
// and events posted to one process (the target need not be frontmost). The pauses
// are behaviour: applications rely on them to see distinct downs and ups and to
// count clicks. Every failure is a failure to create an event, thrown as ToolError.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "runtime/key_tables.h"
#include "platform/platform.h"

namespace tavlin::input {

enum class MouseButton { left, right, middle };

// "left", "right", "middle"; anything else is absent.
std::optional<MouseButton> mouseButton(const std::string& raw);
platform::MouseButtonCode mouseButtonCode(MouseButton button);
platform::EventType mouseType(MouseButton button, bool down, bool dragging = false);

// Screen coordinates beyond this (in points, either sign) are on no real screen.
inline constexpr double maxScreenCoordinate = 100000;
// Throws ToolError "Screen point X,Y is not on any screen ..." for a point that is not
// finite or lies beyond any real screen. Every mouse event and cursor warp is checked
// before the first event is posted.
void requireScreenPoint(platform::Point point);

// The most clicks one command may post (a click count above it is refused).
inline constexpr int64_t maxClickCount = 100;

// --- session-wide, at the HID tap ---
void postMouseClick(platform::Platform& platform, platform::Point at, MouseButton button, int64_t clickCount);
void postDrag(platform::Platform& platform, platform::Point from, platform::Point to, MouseButton button);
void postUnicodeText(platform::Platform& platform, const std::string& text);
void postKeyCombo(platform::Platform& platform, const runtime::KeyTables& tables, const std::string& combo);
std::optional<uint16_t> keyCode(const runtime::KeyTables& tables, const std::string& name);
// What postKeyCombo would not press as written: an unknown modifier (which it
// ignores) or a key it has no code for (which it refuses after pressing the
// modifiers). The message names the accepted modifiers and keys; absent when the
// whole combination is pressable.
std::optional<std::string> keyComboProblem(const runtime::KeyTables& tables, const std::string& combo);

// --- to one process ---
void postKeyEventToPid(platform::Platform& platform, int32_t pid, uint16_t keyCode, uint64_t flags, bool keyDown,
                       const std::optional<std::string>& unicodeText);
void tapKeyToPid(platform::Platform& platform, int32_t pid, uint16_t keyCode, uint64_t flags,
                 const std::optional<std::string>& unicodeText, double pause = 0.05);
void typeUnicodeTextToPid(platform::Platform& platform, int32_t pid, const std::string& text,
                          const std::function<void()>& beforeEachScalar = {});
void postMouseClickToPid(platform::Platform& platform, int32_t pid, platform::Point at, int64_t clickState);

}  // namespace tavlin::input
