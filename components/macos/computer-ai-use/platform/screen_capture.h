#pragma once
// The screen-capture port: ScreenCaptureKit's shareable windows and single-window
// capture. Both calls are bounded by a hard time-out in the adapter, since the
// system's completion handlers are known to never arrive at times.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/geometry.h"

namespace tavlin::platform {

struct PixelSize {
  int64_t width = 0;
  int64_t height = 0;
};

struct ShareableWindow {
  uint32_t windowID = 0;
  Rect frame;
  std::optional<std::string> title;
  int64_t windowLayer = 0;
  bool onScreen = false;
  std::optional<int32_t> ownerPID;
  std::optional<std::string> ownerBundleIdentifier;
  std::optional<std::string> ownerName;
};

// Success, a failure with the system's description, or a time-out.
struct CaptureStatus {
  enum class Kind { ok, failed, timedOut };
  Kind kind = Kind::ok;
  std::string description;
};

struct CaptureRequest {
  uint32_t windowID = 0;
  size_t pixelWidth = 0;
  size_t pixelHeight = 0;
  bool showsCursor = false;
  std::string pngPath;
  double timeoutSeconds = 0;
};

class ScreenCapture {
 public:
  virtual ~ScreenCapture() = default;
  virtual CaptureStatus shareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly, double timeoutSeconds,
                                         std::vector<ShareableWindow>& windows) = 0;
  // Writes the window's image as a PNG at `pngPath`.
  virtual CaptureStatus captureWindow(const CaptureRequest& request) = 0;
  // The pixel width and height of an image file's first frame (ImageIO's
  // kCGImagePropertyPixelWidth / Height); absent when the file cannot be read as an
  // image or lacks either property.
  virtual std::optional<PixelSize> imagePixelSize(const std::string& path) = 0;
};

}  // namespace tavlin::platform
