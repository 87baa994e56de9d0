#pragma once
// The screen-capture port over ScreenCaptureKit (shareable content, a single-window
// content filter, the screenshot manager of macOS 14) and ImageIO (PNG files). The
// completion handlers run on the system's queues; each is handed on at most once, and
// the core's hard time-out decides whether it still counts.
#include "platform/screen_capture.h"

namespace tavlin::macos {

class MacScreenCapture final : public platform::ScreenCapture {
 public:
  void requestShareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly,
                               platform::ShareableWindowsCompletion done) override;
  void requestWindowImage(const platform::CaptureRequest& request, platform::WindowImageCompletion done) override;
  platform::CaptureStatus writePNG(const platform::CapturedImage& image, const std::string& path) override;
  std::optional<platform::PixelSize> imagePixelSize(const std::string& path) override;
  bool screenRecordingAllowed() override;
};

}  // namespace tavlin::macos
