#pragma once
// The window-list port: CGWindowListCopyWindowInfo entries.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/geometry.h"

namespace tavlin::platform {

// CGWindowListOption bits.
namespace windowlist {
inline constexpr uint32_t all = 0;
inline constexpr uint32_t onScreenOnly = 1u << 0;
inline constexpr uint32_t onScreenAboveWindow = 1u << 1;
inline constexpr uint32_t onScreenBelowWindow = 1u << 2;
inline constexpr uint32_t includingWindow = 1u << 3;
inline constexpr uint32_t excludeDesktopElements = 1u << 4;
}  // namespace windowlist

struct WindowInfo {
  uint32_t number = 0;     // kCGWindowNumber
  int32_t layer = 0;       // kCGWindowLayer
  int32_t ownerPID = 0;    // kCGWindowOwnerPID
  Rect bounds;             // kCGWindowBounds
  double alpha = 1;        // kCGWindowAlpha
  std::optional<std::string> ownerName;  // kCGWindowOwnerName
  std::optional<std::string> name;       // kCGWindowName; often missing without screen recording
  bool onscreen = false;                 // kCGWindowIsOnscreen; absent reads as false
};

class WindowList {
 public:
  virtual ~WindowList() = default;
  // Absent when there is no window server session. On-screen lists run front to back.
  virtual std::optional<std::vector<WindowInfo>> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) = 0;
};

}  // namespace tavlin::platform
